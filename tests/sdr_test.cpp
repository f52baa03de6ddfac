// Sensor data records: what goes over the wire, and what the files hold.
#include "sdr/sdr.h"

#include <gtest/gtest.h>
#include <filesystem>

#include "base/error_text.h"
#include "tests/harness.h"

namespace {

using sim::Bytes;
using sim::FaultKind;

constexpr int STORAGE = 0x0A;
constexpr char CARD[] =
    "_SDR (\n\n_SDR_TYPE    12\n_REC_LEN     14\n\n"
    "   01                                   // Record ID LSB\n"
    "   00                                   // Record ID MSB\n"
    "   51                                   // SDR Version\n"
    "   12                                   // Record Type\n"
    "   0F                                   // Record Length\n\n"
    "   20                                   // Device Slave Address\n"
    "   00                                   // Channel Number\n"
    "   00\n   0F\n   00\n   00\n   00\n   2E\n   60\n   00\n   C4\n"
    "   'Card'                               // Sensor ID String'\n\n\n)\n";
constexpr char WRITTEN[] = "writing SDR......\nUpdate successfully\n";
constexpr char NOT_ERASED[] = "writing SDR......\nClear SDR Fail\n";
// A block of a binary file.
const std::string BLOCK = "\x5A\x09\x01\x02\x51\xC0\x02\xAA\xBB";
const Bytes CARD_BODY = {0x20, 0, 0, 0x0F, 0, 0, 0, 0x2E, 0x60, 0, 0xC4, 'C', 'a', 'r', 'd'};

Bytes record(uint16_t id, uint8_t type, const Bytes& body) {
  Bytes bytes = {static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), 0x51, type,
                 static_cast<uint8_t>(body.size())};
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

// A body of `size` bytes whose ID string, if its type has one, takes all that follows byte `fixed`.
Bytes body_of(size_t size, size_t fixed) {
  Bytes body;
  for (size_t i = 0; i < size; i++) body.push_back(static_cast<uint8_t>(0x41 + i % 20));
  if (fixed > 0 && size >= fixed) body[fixed - 1] = static_cast<uint8_t>(0xC0 | (size - fixed));
  return body;
}

size_t times(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++) count++;
  return count;
}

std::vector<sim::Fault> fault(FaultKind kind, int command, unsigned skip, unsigned value,
                              unsigned how_often = 1) {
  return {{kind, STORAGE, command, skip, how_often, value}};
}

std::string records_of(const sdr_repository& repository) {
  std::string text;
  for (uint32_t i = 0; i < repository.record_count; i++) {
    const sdr_entry& entry = repository.psdr_entry[i];
    Bytes bytes = {entry.record_id_ls, entry.record_id_ms, entry.sdr_version, entry.record_type,
                   entry.record_length};
    bytes.insert(bytes.end(), &entry.sdr_data[0], &entry.sdr_data[0] + entry.record_length);
    text += sim::hex_text(bytes) + '\n';
  }
  return text;
}

std::string loaded(const std::string& path) {
  sdr_repository repository{};
  return FileToSdr(path.c_str(), &repository) == 1 ? records_of(repository) : "refused";
}

struct Sdr : testing::Test {
  sim::SdrStore* sdr = nullptr;
  std::string path = path_of("records.sdr");

  Sdr() {
    sim::reset(sim::Kind::card);
    sdr = &sim::machine().bmc.sdr;
    std::filesystem::remove(path);
  }
  // The repository holds these, with IDs from 1 on.
  void hold(const std::vector<Bytes>& bodies, uint8_t type = 0xC0) const {
    sdr->records.clear();
    for (const Bytes& body : bodies) {
      const uint16_t id = static_cast<uint16_t>(sdr->records.size() + 1);
      sdr->records[id] = record(id, type, body);
    }
  }
  // A run without its first lines and without a reset.
  static RunResult run_with(const std::vector<sim::Fault>& faults, const char* way,
                            const char* action, const std::string& file) {
    sim::machine().bmc.faults = faults;
    const RunResult result = run({way, "--nrst", action, file});
    return {result.status, after_identity(result.out), after_identity(result.traffic)};
  }
  RunResult dump(const std::vector<sim::Fault>& faults = {}, const char* way = "--nrst") const {
    return run_with(faults, way, "--sdrdump", path);
  }
  // The file at `path` holds records of these bodies, with IDs from 1 on.
  void file_of(const std::vector<Bytes>& bodies) const {
    hold(bodies);
    dump();
  }
  RunResult update(const std::vector<sim::Fault>& faults = {}, const char* way = "--nrst") const {
    return run_with(faults, way, "--sdr", path);
  }
};

TEST_F(Sdr, AreReadSixteenBytesAtATimeEachWithItsOwnReservation) {
  const struct {
    unsigned body, reads;
    const char* last;  // reservation, record ID, offset and count
  } cases[] = {{0, 1, "01 00 00 00 00 10\n"},    {5, 1, "01 00 00 00 00 10\n"},
               {10, 1, "01 00 00 00 00 10\n"},   {11, 1, "01 00 00 00 00 10\n"},
               {27, 2, "02 00 00 00 10 10\n"},   {28, 3, "03 00 00 00 20 01\n"},
               {245, 16, "10 00 00 00 F0 0A\n"}, {255, 17, "11 00 00 00 F4 10\n"}};
  for (const auto& of : cases) {
    hold({body_of(of.body, 0)});
    const std::string traffic = dump().traffic;
    EXPECT_EQ(times(traffic, "28 22\n28 23 "), of.reads);
    EXPECT_EQ(times(traffic, "\n"), 1 + 2 * of.reads);
    EXPECT_TRUE(traffic.ends_with(of.last)) << traffic;
    // Looked at as text: the reader refuses a length over FF.
    std::string lines = "// Record Length\n\n";
    for (const uint8_t byte : body_of(of.body, 0)) lines += "   " + sim::hex_text({byte}) + "\n";
    EXPECT_TRUE(content_of(path).ends_with(lines + "\n\n)\n")) << of.body;
  }
}

TEST_F(Sdr, WalkEndsWithTheChainOrTheClaimedCountWhicheverComesFirst) {
  for (const auto& [claimed, read] : {std::pair{3, 3}, {0, 0}, {2, 2}, {0xFFFF, 3}}) {
    hold({{1}, {2}, {3}});
    sdr->claimed = claimed;
    EXPECT_EQ(dump({}, "--open").out, "");
    EXPECT_EQ(times(loaded(path), "\n"), static_cast<size_t>(read)) << claimed;
  }
}

TEST_F(Sdr, TextHasAByteALineAndItsCommentsInOneColumn) {
  hold({CARD_BODY}, 0x12);
  dump();
  EXPECT_EQ(content_of(path), CARD);
  sdr->records.clear();
  dump();
  EXPECT_EQ(content_of(path), "_SDR (\n\n\n)\n");
}

TEST_F(Sdr, OfAnAnswerThatIsRefusedOrTooShortIsNoFile) {
  const std::pair<std::vector<sim::Fault>, const char*> cases[] = {
      {fault(FaultKind::refuse, 0x20, 0, 0xC0), "Get Sdr Repository Fail\n"},
      {fault(FaultKind::shorten, 0x20, 0, 14), "Get Sdr Repository Fail\n"},
      {fault(FaultKind::refuse, 0x23, 0, 0xC5), "Get SDR Record 00 00 Fail\n"},
      {fault(FaultKind::shorten, 0x23, 2, 1), "Get SDR Record 02 00 Fail\n"},
      {fault(FaultKind::shorten, 0x23, 2, 7), "Get SDR Record 02 00 Fail\n"},
      {fault(FaultKind::shorten, 0x23, 2, 18), "Get SDR Record 02 00 Fail\n"},
      {fault(FaultKind::refuse, 0x23, 3, 0xFF), "Get SDR Record 02 00 Fail\n"},
      {fault(FaultKind::shorten, 0x23, 3, 6), "Get SDR Record 02 00 Fail\n"},
  };
  hold({Bytes(15), Bytes(15), Bytes(15)});
  for (const auto& [faults, text] : cases) {
    EXPECT_EQ(dump(faults).out, text);
    EXPECT_EQ(content_of(path), "(no file)");
  }
  EXPECT_TRUE(dump(fault(FaultKind::refuse, 0x22, 0, 0xC1, 0))
                  .traffic.starts_with("28 20\n28 22\n28 23 00 00 00 00 00 10\n28"));
  EXPECT_EQ(content_of(path), "(no file)") << "the second part needs a reservation";
}

TEST_F(Sdr, AreWrittenInPartsWhereTheBmcCan) {
  file_of({Bytes(11, 0xAA), Bytes(16, 0xBB), Bytes(27, 0xCC)});
  sdr->erase_polls = 2;
  sdr->first_id = 0x0102;
  const RunResult result = run({"--sdr", path});
  EXPECT_EQ(after_identity(result.out), std::string(WRITTEN) + "reset BMC and wait\n");
  EXPECT_EQ(after_identity(result.traffic),
            "28 22\n28 27 01 00 43 4C 52 AA\n"
            "28 22\n28 27 02 00 43 4C 52 00\nsleep 100000\n"
            "28 22\n28 27 03 00 43 4C 52 00\nsleep 100000\n"
            "28 22\n28 27 04 00 43 4C 52 00\n"
            "28 25\n"
            "28 22\n28 25 05 00 00 00 00 01 01 00 51 C0 0B AA AA AA AA AA AA AA AA AA AA AA\n"
            "28 22\n28 25 06 00 00 00 00 00 02 00 51 C0 10 BB BB BB BB BB BB BB BB BB BB BB\n"
            "28 25 06 00 03 01 10 01 BB BB BB BB BB\n"
            "28 22\n28 25 07 00 00 00 00 00 03 00 51 C0 1B CC CC CC CC CC CC CC CC CC CC CC\n"
            "28 25 07 00 04 01 10 01 CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC\n"
            "sleep 1000000\n18 02\nsleep 8000000\n");
}

TEST_F(Sdr, AreWrittenWholeWhereTheBmcHasNoPartialAdd) {
  sdr->partial_add = false;
  file_of({{0xAA}, {}});
  EXPECT_EQ(update().traffic,
            "28 22\n28 27 01 00 43 4C 52 AA\n28 22\n28 27 02 00 43 4C 52 00\n28 25\n"
            "28 24 01 00 51 C0 01 AA\n28 24 02 00 51 C0 00\nsleep 1000000\n");
}

TEST_F(Sdr, AreNotAddedUnlessTheEraseCompletes) {
  const struct {
    unsigned polls;
    std::vector<sim::Fault> faults;
    const char* text;
    unsigned pauses;
  } cases[] = {
      {4, {}, WRITTEN, 4},
      {5, {}, NOT_ERASED, 4},
      {0, fault(FaultKind::refuse, 0x27, 0, 0xC5), NOT_ERASED, 0},
      {0, fault(FaultKind::refuse, 0x27, 1, 0xC5), NOT_ERASED, 0},
      {0, {{FaultKind::answer, STORAGE, 0x27, 1, 1, 0, {0x00, 0x02}}}, NOT_ERASED, 0},
      {0, fault(FaultKind::shorten, 0x27, 1, 1), NOT_ERASED, 0},
  };
  file_of({{1}});
  for (const auto& of : cases) {
    sdr->erase_polls = of.polls;
    const RunResult result = update(of.faults);
    EXPECT_EQ(result.out, of.text);
    EXPECT_EQ(times(result.traffic, "28 25") > 0, of.text == WRITTEN);
    EXPECT_EQ(times(result.traffic, "sleep 100000\n"), of.pauses);
  }
}

TEST_F(Sdr, FailureEndsTheWritingOfWholeRecordsButNotOfParts) {
  // Entries have the IDs 1 to 3; the BMC gives 0101 to 0103.
  sdr->first_id = 0x0101;
  const std::vector<Bytes> three(3, Bytes(20));
  const std::string failed = "writing SDR......\nWrite Sdr Record ";
  // A BMC that takes the empty Partial Add has the command, too.
  const std::vector<sim::Fault> taken_empty = {{FaultKind::answer, STORAGE, 0x25, 0, 1, 0, {0}},
                                               {FaultKind::refuse, STORAGE, 0x24, 0, 1, 0xC1}};
  const struct {
    bool partial;
    const char* way;
    std::vector<Bytes> bodies;
    std::vector<sim::Fault> faults;  // the empty Partial Add counts too
    std::string text;
    size_t kept;
  } cases[] = {
      {false, "--nrst", three, fault(FaultKind::refuse, 0x24, 1, 0xC4), failed + "02 00 fail\n", 1},
      {true, "--nrst", three, fault(FaultKind::refuse, 0x25, 3, 0xC4), failed + "00 00 fail\n", 2},
      {true, "--nrst", three, fault(FaultKind::refuse, 0x25, 4, 0xC4), failed + "02 01 fail\n", 2},
      {true, "--nrst", three, fault(FaultKind::shorten, 0x25, 3, 2), failed + "00 00 fail\n", 2},
      {true, "--nrst", three, taken_empty, WRITTEN, 3},
      // The KCS driver ends the process when a request is too long for it.
      {false, "--nrst", {Bytes(123)}, {}, WRITTEN, 1},
      {false, "--nrst", {Bytes(124)}, {}, failed + "01 00 fail\n", 0},
      {false, "--open", {Bytes(250)}, {}, WRITTEN, 1},
      {true, "--nrst", {Bytes(250)}, {}, WRITTEN, 1},
  };
  for (const auto& of : cases) {
    sdr->partial_add = of.partial;
    file_of(of.bodies);
    EXPECT_EQ(update(of.faults, of.way).out, of.text);
    EXPECT_EQ(sdr->records.size(), of.kept);
  }
}

TEST_F(Sdr, OfEveryTypeSurviveTheWayThroughTextAndTheBmc) {
  const std::pair<uint8_t, size_t> types[] = {{0x01, 43}, {0x02, 27}, {0x03, 12}, {0x10, 11},
                                              {0x11, 11}, {0x12, 11}, {0x14, 0},  {0xC0, 0}};
  for (const auto& [type, size] : types) {
    std::vector<Bytes> bodies;
    for (const size_t length : {0U, 5U, 10U, 11U, 27U, 28U, 245U, 250U}) {
      if (size == 0 || length <= size + 31) bodies.push_back(body_of(length, size));
    }
    for (const size_t id : {0U, 1U, 31U}) bodies.push_back(body_of(size + id, size));
    for (const bool partial : {true, false}) {
      // Longer ones do not fit into a request of the KCS driver.
      const char* way = partial ? "--nrst" : "--open";
      hold(bodies, type);
      const sim::SdrRecords before = sdr->records;
      sdr->partial_add = partial;
      EXPECT_EQ(dump({}, way).out, "");
      EXPECT_EQ(update({}, way).out, WRITTEN);
      EXPECT_EQ(sdr->records, before) << "type " << int{type};
    }
  }
}

TEST_F(Sdr, ThatAFileSpellsWronglyCostNoRepository) {
  std::string many = "_SDR (\n";
  for (unsigned i = 0; i < 65536; i++) many += "_SDR_TYPE\n_REC_LEN 05\n01 00 51 C0 00\n";
  const std::string start = "_SDR (\n_SDR_TYPE 01\n";
  const std::string head(16, '\0');
  const char* const fifth = "the record's fifth byte is not the number of bytes after it\n";
  const struct {
    const char* name;
    std::string content;
    const char* place;
    const char* reason;
  } cases[] = {
      {"a", start + "_REC_LEN 06\n01 00 51\n\nC0 02 AA\n)\n", "line 6: ", fifth},
      {"a", start + "_REC_LEN 06\n01 00\n_SDR_TYPE 01\n", "line 4: ", fifth},
      {"a", start + "_REC_LEN 06", "line 3: ", fifth},
      {"a", start + "_REC_LEN 04\n", "line 3: ", "record length under 05\n"},
      {"a", start + "_REC_LEN// 06\n", "line 3: ", "record length under 05\n"},
      {"a", start + "_REC_LEN 0104\n", "line 3: ", "record length over FF\n"},
      {"a", start + "_REC_LEN 1 00 00 00 00 06\n", "line 3: ", "record length over FF\n"},
      {"a", many, "line 196609: ", "more than 65535 records\n"},
      {"a.dat", head + BLOCK + "\x5A\x09\x01\x02",
       "offset 25: ", "the block runs past the end of the file\n"},
      {"a.dat", head + "\x5A\x09\x01\x02\x51\xC0\x03\xAA\xBB", "offset 16: ", fifth},
  };
  for (const auto& of : cases) {
    const std::string file = file_with(of.name, of.content);
    const RunResult result = run_with({}, "--nrst", "--sdr", file);
    EXPECT_EQ(result.out, of.place + (of.reason + ("load sdr file " + file)) + " failed\n");
    EXPECT_EQ(result.traffic, "");
  }
  for (const std::string& file : {path_of("."), path_of("absent")}) {
    const RunResult result = run({"--sdr", file});
    EXPECT_EQ(after_identity(result.out),
              "load sdr file " + file + " failed\nreset BMC and wait\n");
    EXPECT_EQ(after_identity(result.traffic), "18 02\nsleep 8000000\n");
  }
}

TEST_F(Sdr, AreLoadedFromTextAsPeopleWriteItAndFromBlocksTwoBytesApart) {
  const std::string one = "01 00 51 C0 02 AA BB\n";
  const std::string two = "02 00 51 C0 01 CC\n";
  const std::string filled = "01 00 51 C0 02 AA 00\n";
  const std::string begun = "_SDR (\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02";
  const std::string head(16, '\x5A');
  const std::string found = "01 02 51 C0 02 AA BB\n";
  const struct {
    const char* name;
    std::string content, records;
  } cases[] = {
      {"a.txt", "", ""},
      {"a.txt", "_SDR (\n)\n", ""},
      {"a.txt",
       "noise\n_sdr (\r\n_sdr_type c0 \r\n_rec_len 07\r\n0100 51 C002\r\n'\xAA\xBB'\r\n)\r\n", one},
      {"a.txt", "_SDR_TYPE C0\n_REC_LEN 06\n" + two + "_SDR_TYPE C0\n_REC_LEN 00 07\n" + one, one},
      {"a.txt", begun + " AA\n_SDR_TYPE\n_REC_LEN 06\n" + two, filled + two},
      {"a.txt", begun + " AA\nBB CC DD\nEE\n_REC_LEN 06\n" + two, one},
      {"a.txt", begun + " AA\n)\n_REC_LEN 06\n" + two, filled + two},
      {"a.txt", begun, "01 00 51 C0 02 00 00\n"},
      {"a.txt", begun + " AA // " + std::string(3000, 'B') + "\nBB", one},
      {"a.dat", head + BLOCK + BLOCK, found + found},
      {"a.DAT", head + "\x5A\x07xx" + BLOCK + "\x5A", found},
      {"a.dat", head + "x" + BLOCK, ""},
      {"a.dat", "", ""},
      {"a.data", head + BLOCK, ""},
  };
  for (const auto& of : cases) {
    EXPECT_EQ(loaded(file_with(of.name, of.content)), of.records) << of.content;
  }
}

TEST_F(Sdr, CommentsComeFromUtilDatInTheCurrentFolder) {
  const std::string pad = std::string(35, ' ') + "// ";
  const std::string bare = "\n\n   41\n   42\n   43\n";
  // The section goes on where it stopped, and takes 43 lines in all.
  std::string full = "<SDR_COMMENT_TYPE1>\n</SDR_COMMENT_TYPE2>\n</SDR_COMMENT_TYPE1>\n";
  full += "<SDR_COMMENT_TYPE1>\n" + std::string(2000, 'x') + "\n";
  for (unsigned i = 0; i < 50; i++) full += "line " + std::to_string(i) + "\n";
  const std::pair<std::string, std::string> cases[] = {
      {"<sdr_comment_TYPE1>\nfirst\n\nthird\n</SDR_COMMENT_TYPE1>\nno\n",
       "\n   41" + pad + "first\n   42\n   43" + pad + "third\n   44\n"},
      {"<SDR_COMMENT_TYPE1> \nno\n", bare},
      {"<SDR_COMMENT_TYPE1>\r\nno\n", bare},
      {"<SDR_COMMENT_TYPE2>\nno\n", bare},
      {"no\n", bare},
      {full, "   41" + pad + "</SDR_COMMENT_TYPE2>\n   42" + pad + std::string(1022, 'x') +
                 "\n   43" + pad + "xxx"},
      {full, "   C0" + pad + "line 39\n\n\n)\n"},
  };
  hold({body_of(43, 43)}, 0x01);
  const auto folder = std::filesystem::current_path();
  for (const auto& [comments, expected] : cases) {
    std::filesystem::current_path(path_of(""));
    file_with("util.dat", comments);
    dump();
    std::filesystem::current_path(folder);
    EXPECT_EQ(times(content_of(path), expected), 1u) << comments << content_of(path);
  }
}

TEST_F(Sdr, DumpThatCannotBeWrittenWholeIsReported) {
  std::filesystem::create_directory(path_of("folder"));
  for (const std::string& file : {std::string("/dev/full"), path_of("folder")}) {
    EXPECT_EQ(run_with({}, "--nrst", "--sdrdump", file).out, "Writting File " + file + " fail\n");
  }
  EXPECT_TRUE(std::filesystem::exists("/dev/full"));
}

TEST_F(Sdr, SuppliedFilesAreSound) {
  sdr_repository repository{};
  ASSERT_EQ(FileToSdr("data/sample.sdr", &repository), 1);
  EXPECT_GE(repository.record_count, 5u);
  const auto folder = std::filesystem::current_path();
  std::filesystem::current_path("data");
  EXPECT_EQ(SdrToFile(path.c_str(), &repository), 1);
  std::filesystem::current_path(folder);
  const std::string text = content_of(path);
  for (const char* line : {"// Sensor owner ID", "// ID string type (bits 7..6) and length"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(loaded(path), records_of(repository));
}

TEST_F(Sdr, WithoutABodyAreNotWorthTheRepository) {
  sdr_repository repository{};
  file_of({{1}, {2}});
  ASSERT_EQ(FileToSdr(path.c_str(), &repository), 1);
  repository.psdr_entry[1].sdr_data.reset();
  EXPECT_EQ(Write_Sdr(&repository), 0);
  EXPECT_STREQ(err_message, "psdr_entry.sdr_data error");
  EXPECT_EQ(sim::transcript(), "");
  freespace(&repository);
  freespace(&repository);
  EXPECT_EQ(repository.record_count, 0u);
}

}  // namespace

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
// A block of a binary file, and its record.
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
  static void fault(FaultKind kind, int command, unsigned skip, unsigned value,
                    unsigned times = 1) {
    sim::machine().bmc.faults = {{kind, STORAGE, command, skip, times, value}};
  }
  // A text file with records of these bodies.
  std::string file_of(const std::vector<Bytes>& bodies, uint8_t type = 0xC0) const {
    std::string text = "_SDR (\n";
    for (const Bytes& body : bodies) {
      const Bytes bytes = record(1, type, body);
      text += "_SDR_TYPE 00\n_REC_LEN " + sim::hex_text({static_cast<uint8_t>(bytes.size())}) +
              "\n" + sim::hex_text(bytes) + "\n";
    }
    return file_with("records.sdr", text + ")\n");
  }
  std::string said_by(const std::vector<std::string>& words) const {
    return after_identity(run(words).out);
  }
};

TEST_F(Sdr, AreReadSixteenBytesAtATimeEachWithItsOwnReservation) {
  const struct {
    unsigned body;
    unsigned reads;
    const char* last;  // offset and count
  } cases[] = {{0, 1, "00 10"},  {5, 1, "00 10"},  {10, 1, "00 10"},   {11, 1, "00 10"},
               {27, 2, "10 10"}, {28, 3, "20 01"}, {245, 16, "F0 0A"}, {255, 17, "F4 10"}};
  for (const auto& of : cases) {
    hold({body_of(of.body, 0)});
    std::string expected = "28 20\n";
    for (unsigned i = 0; i < of.reads; i++) {
      const std::string place =
          i + 1 == of.reads ? of.last : sim::hex_text({static_cast<uint8_t>(i * 16)}) + " 10";
      expected += "28 22\n28 23 " + sim::hex_text({static_cast<uint8_t>(i + 1)}) + " 00 00 00 " +
                  place + "\n";
    }
    EXPECT_EQ(after_identity(run({"--sdrdump", path}).traffic), expected);
    // The text of a length over FF is refused by the reader, so the file itself is looked at.
    EXPECT_EQ(times(content_of(path), "\n"), 14 + of.body);
    if (of.body <= 250) {
      EXPECT_EQ(loaded(path), sim::hex_text(record(1, 0xC0, body_of(of.body, 0))) + "\n");
    }
  }
}

TEST_F(Sdr, WalkEndsWithTheChainOrTheClaimedCountWhicheverComesFirst) {
  for (const auto& [claimed, read] : {std::pair{3, 3}, {0, 0}, {2, 2}, {0xFFFF, 3}}) {
    hold({{1}, {2}, {3}});
    sdr->claimed = claimed;
    EXPECT_EQ(said_by({"--open", "--sdrdump", path}), "");
    EXPECT_EQ(times(loaded(path), "\n"), static_cast<size_t>(read)) << claimed;
  }
}

TEST_F(Sdr, TextHasAByteALineAndItsCommentsInOneColumn) {
  hold({CARD_BODY}, 0x12);
  run({"--sdrdump", path});
  EXPECT_EQ(content_of(path), CARD);
  sdr->records.clear();
  run({"--sdrdump", path});
  EXPECT_EQ(content_of(path), "_SDR (\n\n\n)\n");
}

TEST_F(Sdr, OfAnAnswerThatIsRefusedOrTooShortIsNoFile) {
  const struct {
    FaultKind kind;
    int command;
    unsigned skip, value;
    const char* text;
  } cases[] = {
      {FaultKind::refuse, 0x20, 0, 0xC0, "Get Sdr Repository Fail\n"},
      {FaultKind::shorten, 0x20, 0, 14, "Get Sdr Repository Fail\n"},
      {FaultKind::refuse, 0x23, 0, 0xC5, "Get SDR Record 00 00 Fail\n"},
      {FaultKind::shorten, 0x23, 2, 1, "Get SDR Record 02 00 Fail\n"},
      {FaultKind::shorten, 0x23, 2, 7, "Get SDR Record 02 00 Fail\n"},
      {FaultKind::shorten, 0x23, 2, 18, "Get SDR Record 02 00 Fail\n"},
      {FaultKind::refuse, 0x23, 3, 0xFF, "Get SDR Record 02 00 Fail\n"},
      {FaultKind::shorten, 0x23, 3, 6, "Get SDR Record 02 00 Fail\n"},
  };
  hold({Bytes(15), Bytes(15), Bytes(15)});
  for (const auto& of : cases) {
    fault(of.kind, of.command, of.skip, of.value);
    EXPECT_EQ(said_by({"--sdrdump", path}), of.text);
    EXPECT_EQ(content_of(path), "(no file)");
  }
  fault(FaultKind::refuse, 0x22, 0, 0xC1, 0);
  EXPECT_EQ(after_identity(run({"--sdrdump", path}).traffic).substr(0, 38),
            "28 20\n28 22\n28 23 00 00 00 00 00 10\n28");
  EXPECT_EQ(content_of(path), "(no file)") << "the second part needs a reservation";
}

TEST_F(Sdr, AreWrittenInPartsWhereTheBmcCan) {
  sdr->erase_polls = 2;
  sdr->first_id = 0x0102;
  file_of({Bytes(11, 0xAA), Bytes(16, 0xBB), Bytes(27, 0xCC)});
  const RunResult result = run({"--sdr", path});
  EXPECT_EQ(after_identity(result.out),
            "writing SDR......\nUpdate successfully\nreset BMC and wait\n");
  EXPECT_EQ(after_identity(result.traffic),
            "28 22\n28 27 01 00 43 4C 52 AA\n"
            "28 22\n28 27 02 00 43 4C 52 00\nsleep 100000\n"
            "28 22\n28 27 03 00 43 4C 52 00\nsleep 100000\n"
            "28 22\n28 27 04 00 43 4C 52 00\n"
            "28 25\n"
            "28 22\n28 25 05 00 00 00 00 01 01 00 51 C0 0B AA AA AA AA AA AA AA AA AA AA AA\n"
            "28 22\n28 25 06 00 00 00 00 00 01 00 51 C0 10 BB BB BB BB BB BB BB BB BB BB BB\n"
            "28 25 06 00 03 01 10 01 BB BB BB BB BB\n"
            "28 22\n28 25 07 00 00 00 00 00 01 00 51 C0 1B CC CC CC CC CC CC CC CC CC CC CC\n"
            "28 25 07 00 04 01 10 01 CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC\n"
            "sleep 1000000\n18 02\nsleep 8000000\n");
}

TEST_F(Sdr, AreWrittenWholeWhereTheBmcHasNoPartialAdd) {
  sdr->partial_add = false;
  file_of({{0xAA}, {}});
  const RunResult result = run({"--nrst", "--sdr", path});
  EXPECT_EQ(after_identity(result.out), "writing SDR......\nUpdate successfully\n");
  EXPECT_EQ(after_identity(result.traffic),
            "28 22\n28 27 01 00 43 4C 52 AA\n28 22\n28 27 02 00 43 4C 52 00\n28 25\n"
            "28 24 01 00 51 C0 01 AA\n28 24 01 00 51 C0 00\nsleep 1000000\n");
}

TEST_F(Sdr, AreNotAddedUnlessTheEraseCompletes) {
  const struct {
    unsigned polls;
    sim::Fault fault;
    bool succeeds;
    unsigned pauses;
  } cases[] = {
      {4, {}, true, 4},
      {5, {}, false, 4},
      {0, {FaultKind::refuse, STORAGE, 0x27, 0, 1, 0xC5}, false, 0},
      {0, {FaultKind::refuse, STORAGE, 0x27, 1, 1, 0xC5}, false, 0},
      {0, {FaultKind::answer, STORAGE, 0x27, 1, 1, 0, {0x00, 0x02}}, false, 0},
      {0, {FaultKind::shorten, STORAGE, 0x27, 1, 1, 1}, false, 0},
  };
  file_of({{1}});
  for (const auto& of : cases) {
    sdr->erase_polls = of.polls;
    sim::machine().bmc.faults.assign(1, of.fault);
    if (of.polls > 0) sim::machine().bmc.faults.clear();
    const RunResult result = run({"--nrst", "--sdr", path});
    EXPECT_EQ(after_identity(result.out),
              std::string("writing SDR......\n") +
                  (of.succeeds ? "Update successfully\n" : "Clear SDR Fail\n"));
    EXPECT_EQ(result.traffic.find("28 25") != std::string::npos, of.succeeds);
    EXPECT_EQ(times(result.traffic, "sleep 100000\n"), of.pauses);
  }
}

TEST_F(Sdr, FailureEndsTheWritingOfWholeRecordsButNotOfParts) {
  const struct {
    bool partial;
    int command;
    unsigned skip;  // the empty Partial Add counts too
    FaultKind kind;
    unsigned value;
    const char* text;
    size_t kept;
  } cases[] = {
      {false, 0x24, 1, FaultKind::refuse, 0xC4, "Write Sdr Record 01 00 fail\n", 1},
      {true, 0x25, 3, FaultKind::refuse, 0xC4, "Write Sdr Record 00 00 fail\n", 2},
      {true, 0x25, 4, FaultKind::refuse, 0xC4, "Write Sdr Record 02 00 fail\n", 2},
      {true, 0x25, 3, FaultKind::shorten, 2, "Write Sdr Record 00 00 fail\n", 2},
  };
  file_of({Bytes(20), Bytes(20), Bytes(20)});
  for (const auto& of : cases) {
    sdr->partial_add = of.partial;
    fault(of.kind, of.command, of.skip, of.value);
    EXPECT_EQ(said_by({"--nrst", "--sdr", path}), std::string("writing SDR......\n") + of.text);
    EXPECT_EQ(sdr->records.size(), of.kept);
  }
}

TEST_F(Sdr, TooLongForOneRequestNeverReachTheKcsDriver) {
  const struct {
    bool partial;
    const char* way;
    size_t body;
    bool succeeds;
  } cases[] = {
      {false, "--nrst", 123, true}, {false, "--nrst", 124, false}, {false, "--open", 250, true},
      {true, "--nrst", 250, true},  {true, "--open", 250, true},
  };
  for (const auto& of : cases) {
    sdr->partial_add = of.partial;
    file_of({body_of(of.body, 0)});
    const RunResult result = run({of.way, "--nrst", "--sdr", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(after_identity(result.out),
              std::string("writing SDR......\n") +
                  (of.succeeds ? "Update successfully\n" : "Write Sdr Record 01 00 fail\n"));
    EXPECT_EQ(sdr->records.size(), of.succeeds ? 1u : 0u);
  }
}

TEST_F(Sdr, OfEveryTypeSurviveTheWayThroughTextAndTheBmc) {
  for (const auto& [type, fixed] : {std::pair{0x01, 43},
                                    {0x02, 27},
                                    {0x03, 12},
                                    {0x10, 11},
                                    {0x11, 11},
                                    {0x12, 11},
                                    {0x14, 0},
                                    {0xC0, 0}}) {
    const size_t size = static_cast<size_t>(fixed);
    std::vector<Bytes> bodies;
    for (const size_t length : {0U, 5U, 10U, 11U, 27U, 28U, 245U, 250U}) {
      if (fixed == 0 || length <= size + 31) bodies.push_back(body_of(length, size));
    }
    for (const size_t id : {0U, 1U, 31U}) bodies.push_back(body_of(size + id, size));
    for (const bool partial : {true, false}) {
      // Longer ones do not fit into a request of the KCS driver.
      const char* way = partial ? "--nrst" : "--open";
      hold(bodies, static_cast<uint8_t>(type));
      const sim::SdrRecords before = sdr->records;
      sdr->partial_add = partial;
      EXPECT_EQ(said_by({way, "--sdrdump", path}), "");
      EXPECT_EQ(said_by({way, "--nrst", "--sdr", path}),
                "writing SDR......\nUpdate successfully\n");
      EXPECT_EQ(sdr->records, before) << "type " << type;
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
    const RunResult result = run({"--nrst", "--sdr", file});
    EXPECT_EQ(after_identity(result.out),
              of.place + (of.reason + ("load sdr file " + file)) + " failed\n");
    EXPECT_EQ(after_identity(result.traffic), "");
  }
  for (const std::string& file : {path_of("."), path_of("absent"), path_of("../")}) {
    const RunResult result = run({"--sdr", file});
    EXPECT_EQ(after_identity(result.out),
              "load sdr file " + file + " failed\nreset BMC and wait\n");
    EXPECT_EQ(after_identity(result.traffic), "18 02\nsleep 8000000\n");
  }
}

TEST_F(Sdr, TextIsReadAsPeopleWriteIt) {
  const std::string one = "01 00 51 C0 02 AA BB\n";
  const std::string two = "02 00 51 C0 01 CC\n";
  const struct {
    std::string content, records;
  } cases[] = {
      {"", ""},
      {"_SDR (\n)\n", ""},
      {"noise\n_sdr (\r\n_sdr_type c0 \r\n_rec_len 07\r\n0100 51 C002\r\n'\xAA\xBB'\r\n)\r\n", one},
      {"_SDR_TYPE C0\n_REC_LEN 06\n02 00 51 C0 01 CC\n_SDR_TYPE C0\n_REC_LEN 00 07\n" + one, one},
      {"_SDR (\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02 AA\n_SDR_TYPE\n_REC_LEN 06\n" + two,
       "01 00 51 C0 02 AA 00\n" + two},
      {"_SDR (\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02 AA\nBB CC DD\nEE\n_REC_LEN 06\n" + two, one},
      {"_SDR (\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02 AA\n)\n_REC_LEN 06\n" + two,
       "01 00 51 C0 02 AA 00\n" + two},
      {"_SDR (\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02", "01 00 51 C0 02 00 00\n"},
  };
  for (const auto& of : cases) EXPECT_EQ(loaded(file_with("a.txt", of.content)), of.records);
}

TEST_F(Sdr, BinaryFileIsSearchedForBlocksTwoBytesAtATime) {
  const std::string head(16, '\x5A');
  const std::string found = "01 02 51 C0 02 AA BB\n";
  const struct {
    const char* name;
    std::string content, records;
  } cases[] = {
      {"a.dat", head + BLOCK + BLOCK, found + found},
      {"a.DAT", head + "\x5A\x07xx" + BLOCK + "\x5A", found},
      {"a.dat", head + "x" + BLOCK, ""},
      {"a.dat", "", ""},
      {"a.data", head + BLOCK, ""},
  };
  for (const auto& of : cases) {
    EXPECT_EQ(loaded(file_with(of.name, of.content)), of.records) << of.name;
  }
}

TEST_F(Sdr, CommentsComeFromUtilDatInTheCurrentFolder) {
  const auto folder = std::filesystem::current_path();
  const auto dump = [&](const std::string& comments) {
    std::filesystem::current_path(path_of(""));
    file_with("util.dat", comments);
    run({"--sdrdump", path});
    std::filesystem::current_path(folder);
    return content_of(path);
  };
  const std::string pad(35, ' ');
  hold({body_of(43, 43)}, 0x01);
  const std::string three = dump("<sdr_comment_TYPE1>\nfirst\n\nthird\n</SDR_COMMENT_TYPE1>\nno\n");
  EXPECT_NE(three.find("\n   41" + pad + "// first\n   42\n   43" + pad + "// third\n   44\n"),
            std::string::npos)
      << three;
  for (const char* nothing : {"<SDR_COMMENT_TYPE1> \nno\n", "<SDR_COMMENT_TYPE1>\r\nno\n",
                              "<SDR_COMMENT_TYPE2>\nno\n", "no\n"}) {
    EXPECT_EQ(dump(nothing).find("no\n"), std::string::npos) << nothing;
  }
  // The section goes on where it stopped, and takes 43 lines in all.
  std::string lines = "<SDR_COMMENT_TYPE1>\n</SDR_COMMENT_TYPE2>\n</SDR_COMMENT_TYPE1>\n";
  lines += "<SDR_COMMENT_TYPE1>\n" + std::string(2000, 'x') + "\n";
  for (unsigned i = 0; i < 50; i++) lines += "line " + std::to_string(i) + "\n";
  const std::string full = dump(lines);
  EXPECT_NE(full.find("   41" + pad + "// </SDR_COMMENT_TYPE2>\n   42" + pad + "// " +
                      std::string(1022, 'x') + "\n   43" + pad + "// xxx"),
            std::string::npos);
  EXPECT_NE(full.find("   C0" + pad + "// line 39\n\n\n)\n"), std::string::npos) << full;
}

TEST_F(Sdr, DumpThatCannotBeWrittenWholeIsReported) {
  std::filesystem::create_directory(path_of("folder"));
  for (const std::string& file : {std::string("/dev/full"), path_of("folder")}) {
    EXPECT_EQ(said_by({"--sdrdump", file}), "Writting File " + file + " fail\n");
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
  ASSERT_EQ(FileToSdr(file_of({{1}, {2}}).c_str(), &repository), 1);
  repository.psdr_entry[1].sdr_data.reset();
  EXPECT_EQ(Write_Sdr(&repository), 0);
  EXPECT_STREQ(err_message, "psdr_entry.sdr_data error");
  EXPECT_EQ(sim::transcript(), "");
  freespace(&repository);
  freespace(&repository);
  EXPECT_EQ(repository.record_count, 0u);
}

}  // namespace

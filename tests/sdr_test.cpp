// Sensor data records: what goes over the wire, and what the files hold.
#include "sdr/sdr.h"

#include <gtest/gtest.h>
#include <filesystem>

#include "tests/harness.h"

namespace {

using sim::Bytes;
using enum sim::FaultKind;
using Faults = std::vector<sim::Fault>;

const std::string WRITTEN = "writing SDR......\nUpdate successfully\n";
const std::string NOT_ERASED = "writing SDR......\nClear SDR Fail\n";
const std::string FAILED = "writing SDR......\nWrite Sdr Record ";
// A file's first bytes and one of its blocks, in binary.
const std::string HEAD(16, 'Z');
const std::string BLOCK = "Z\x09\x01\x02\x51\xC0\x02\xAA\xBB";
const std::string PAD(35, ' ');  // from a byte to its comment

// A body of `size` bytes whose ID string, if its type has one, takes all that follows byte `fixed`.
Bytes body_of(size_t size, size_t fixed = 0) {
  Bytes body;
  for (size_t i = 0; i < size; i++) body.push_back(static_cast<uint8_t>(0x41 + i % 20));
  if (fixed > 0 && size >= fixed) body[fixed - 1] = static_cast<uint8_t>(0xC0 | (size - fixed));
  return body;
}

Faults fault(sim::FaultKind kind, int command, unsigned skip, unsigned value,
             unsigned how_often = 1) {
  return {{kind, 0x0A, command, skip, how_often, value}};
}

struct Sdr : testing::Test {
  std::string path = path_of("records.sdr");
  sim::SdrStore* sdr = nullptr;

  Sdr() {
    std::filesystem::remove(path);
    sim::reset(sim::Kind::card);
    sdr = &sim::machine().bmc.sdr;
  }
  // The repository holds these, with IDs from 1 on.
  void hold(const std::vector<Bytes>& bodies, uint8_t type = 0xC0) const {
    sdr->records.clear();
    for (uint8_t id = 1; const Bytes& body : bodies) {
      Bytes& record = sdr->records[id];
      record = {id++, 0, 0x51, type, static_cast<uint8_t>(body.size())};
      record.insert(record.end(), body.begin(), body.end());
    }
  }
  // A run on the file at `path`, without its first lines and without a reset.
  RunResult act(const char* action, const Faults& faults = {}, const char* way = "--nrst") const {
    sim::machine().bmc.faults = faults;
    const RunResult result = run({way, "--nrst", action, path});
    return {result.status, after_identity(result.out), after_identity(result.traffic)};
  }
  // How many of the records with these bodies are written, and what is said.
  std::string written(const std::vector<Bytes>& bodies, const Faults& faults = {},
                      const char* way = "--nrst") const {
    hold(bodies);
    act("--sdrdump");
    const std::string out = act("--sdr", faults, way).out;
    return std::to_string(sdr->records.size()) + " " + out;
  }
  // What is said and sent when this file is written.
  std::string loaded(const char* name, const std::string& content) {
    path = file_with(name, content);
    const RunResult result = act("--sdr");
    return result.out + result.traffic;
  }
};

TEST_F(Sdr, AreReadSixteenBytesAtATimeEachWithItsOwnReservation) {
  // The size of a body, and the last reservation, record ID, offset and count.
  const std::pair<unsigned, const char*> cases[] = {
      {0, "01 00 00 00 00 10\n"},  {11, "01 00 00 00 00 10\n"},  {27, "02 00 00 00 10 10\n"},
      {28, "03 00 00 00 20 01\n"}, {245, "10 00 00 00 F0 0A\n"}, {255, "11 00 00 00 F4 10\n"}};
  for (const auto& [size, last] : cases) {
    hold({body_of(size)});
    EXPECT_TRUE(act("--sdrdump").traffic.ends_with(std::string("28 22\n28 23 ") + last)) << size;
    // Looked at as text: the reader refuses a length over FF.
    std::string lines = "// Record Length\n\n";
    for (const uint8_t byte : body_of(size)) lines += "   " + sim::hex_text({byte}) + "\n";
    EXPECT_TRUE(content_of(path).ends_with(lines + "\n\n)\n")) << size;
  }
}

TEST_F(Sdr, WalkEndsWithTheChainOrTheClaimedCountWhicheverComesFirst) {
  hold({{1}, {2}, {3}});
  const char third[] = "28 23 03 00 03 00 00 10\n";
  for (const auto& [claimed, last] : {std::pair<int, const char*>{3, third},
                                      {0, "28 20\n"},
                                      {2, "28 23 02 00 02 00 00 10\n"},
                                      {0xFFFF, third}}) {
    sdr->claimed = claimed;
    EXPECT_TRUE(act("--sdrdump", {}, "--open").traffic.ends_with(last)) << claimed;
  }
}

TEST_F(Sdr, TextHasAByteALineAndItsCommentsInOneColumn) {
  hold({{0x20, 0, 0, 0x0F, 0, 0, 0, 0x2E, 0x60, 0, 0xC4, 'C', 'a', 'r', 'd'}}, 0x12);
  act("--sdrdump");
  EXPECT_EQ(content_of(path), "_SDR (\n\n_SDR_TYPE    12\n_REC_LEN     14\n\n   01" + PAD +
                                  "// Record ID LSB\n   00" + PAD + "// Record ID MSB\n   51" +
                                  PAD + "// SDR Version\n   12" + PAD + "// Record Type\n   0F" +
                                  PAD + "// Record Length\n\n   20" + PAD +
                                  "// Device Slave Address\n   00" + PAD +
                                  "// Channel Number\n   00\n   0F\n" +
                                  "   00\n   00\n   00\n   2E\n   60\n   00\n   C4\n   'Card'" +
                                  PAD.substr(4) + "// Sensor ID String'\n\n\n)\n");
}

TEST_F(Sdr, CommentsComeFromUtilDatInTheCurrentFolder) {
  // A section goes on where it stopped, and takes 43 lines in all.
  std::string comments =
      "<SDR_COMMENT_TYPE1> \nno\n<SDR_COMMENT_TYPE1>\r\nno\n<SDR_COMMENT_TYPE2>\nno\n"
      "</SDR_COMMENT_TYPE2>\n<sdr_comment_TYPE1>\nfirst\n\n</SDR_COMMENT_TYPE2>\n"
      "</SDR_COMMENT_TYPE1>\nno\n<SDR_COMMENT_TYPE1>\n" +
      std::string(2000, 'x') + "\n";
  for (unsigned i = 0; i < 50; i++) comments += "line " + std::to_string(i) + "\n";
  hold({body_of(43, 43)}, 0x01);
  const auto folder = std::filesystem::current_path();
  std::filesystem::current_path(path_of(""));
  file_with("util.dat", comments);
  act("--sdrdump");
  std::filesystem::current_path(folder);
  const std::string start = "\n\n   41" + PAD + "// first\n   42\n   43" + PAD +
                            "// </SDR_COMMENT_TYPE2>\n   44" + PAD + "// " +
                            std::string(1022, 'x') + "\n   45" + PAD + "// xxx";
  EXPECT_NE(content_of(path).find(start), std::string::npos) << content_of(path);
  EXPECT_TRUE(content_of(path).ends_with("   C0" + PAD + "// line 37\n\n\n)\n"));
}

TEST_F(Sdr, DumpThatCannotBeReadOrWrittenWholeIsNoFile) {
  const std::pair<Faults, const char*> cases[] = {
      {fault(refuse, 0x20, 0, 0xC0), "Get Sdr Repository Fail\n"},
      {fault(shorten, 0x20, 0, 14), "Get Sdr Repository Fail\n"},
      {fault(refuse, 0x23, 0, 0xC5), "Get SDR Record 00 00 Fail\n"},
      {fault(shorten, 0x23, 2, 1), "Get SDR Record 02 00 Fail\n"},
      {fault(shorten, 0x23, 2, 7), "Get SDR Record 02 00 Fail\n"},
      {fault(shorten, 0x23, 2, 18), "Get SDR Record 02 00 Fail\n"},
      {fault(refuse, 0x23, 3, 0xFF), "Get SDR Record 02 00 Fail\n"},
      {fault(shorten, 0x23, 3, 6), "Get SDR Record 02 00 Fail\n"},
      // The second part of a record needs a reservation.
      {fault(refuse, 0x22, 0, 0xC1, 0), "Get SDR Record 00 00 Fail\n"},
  };
  hold({Bytes(15), Bytes(15), Bytes(15)});
  for (const auto& [faults, text] : cases) {
    EXPECT_EQ(act("--sdrdump", faults).out, text);
    EXPECT_EQ(content_of(path), "(no file)");
  }
  for (const std::string& file : {std::string("/dev/full"), path_of("")}) {
    path = file;
    EXPECT_EQ(act("--sdrdump").out, "Writting File " + file + " fail\n");
  }
}

TEST_F(Sdr, AreWrittenInPartsWhereTheBmcCan) {
  sdr->erase_polls = 2;
  sdr->first_id = 0x0102;
  hold({Bytes(11, 0xAA), Bytes(16, 0xBB), Bytes(27, 0xCC)});
  act("--sdrdump");
  const RunResult result = run({"--sdr", path});
  EXPECT_EQ(after_identity(result.out), WRITTEN + "reset BMC and wait\n");
  EXPECT_EQ(after_identity(result.traffic),
            "28 22\n28 27 01 00 43 4C 52 AA\n28 22\n28 27 02 00 43 4C 52 00\nsleep 100000\n"
            "28 22\n28 27 03 00 43 4C 52 00\nsleep 100000\n28 22\n28 27 04 00 43 4C 52 00\n28 25\n"
            "28 22\n28 25 05 00 00 00 00 01 01 00 51 C0 0B AA AA AA AA AA AA AA AA AA AA AA\n"
            "28 22\n28 25 06 00 00 00 00 00 02 00 51 C0 10 BB BB BB BB BB BB BB BB BB BB BB\n"
            "28 25 06 00 03 01 10 01 BB BB BB BB BB\n"
            "28 22\n28 25 07 00 00 00 00 00 03 00 51 C0 1B CC CC CC CC CC CC CC CC CC CC CC\n"
            "28 25 07 00 04 01 10 01 CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC\n"
            "sleep 1000000\n18 02\nsleep 8000000\n");
}

TEST_F(Sdr, AreNotAddedUnlessTheEraseCompletes) {
  EXPECT_EQ(written({{1}}, fault(refuse, 0x27, 0, 0xC5)), "1 " + NOT_ERASED);
  EXPECT_EQ(written({{1}}, fault(refuse, 0x27, 1, 0xC5)), "0 " + NOT_ERASED);
  EXPECT_EQ(written({{1}}, fault(shorten, 0x27, 1, 1)), "0 " + NOT_ERASED);
  EXPECT_EQ(written({{1}}, {{answer, 0x0A, 0x27, 1, 1, 0, {0, 2}}}), "0 " + NOT_ERASED);
  sdr->erase_polls = 4;
  EXPECT_EQ(written({{1}}), "1 " + WRITTEN);
  sdr->erase_polls = 5;
  EXPECT_EQ(written({{1}}), "0 " + NOT_ERASED);
  EXPECT_TRUE(act("--sdr").traffic.ends_with(
      "sleep 100000\n28 22\n28 27 06 00 43 4C 52 00\nsleep 1000000\n"));
}

TEST_F(Sdr, FailureEndsTheWritingOfWholeRecordsButNotOfParts) {
  // Entries have the IDs 1 to 3; the BMC gives 0101 to 0103. The empty Partial Add counts too.
  const std::vector<Bytes> three(3, Bytes(20));
  sdr->first_id = 0x0101;
  EXPECT_EQ(written(three, fault(refuse, 0x25, 3, 0xC4)), "2 " + FAILED + "00 00 fail\n");
  EXPECT_EQ(written(three, fault(refuse, 0x25, 4, 0xC4)), "2 " + FAILED + "02 01 fail\n");
  EXPECT_EQ(written(three, fault(shorten, 0x25, 3, 2)), "2 " + FAILED + "00 00 fail\n");
  // A BMC that takes the empty Partial Add has the command, too.
  EXPECT_EQ(written({Bytes(250)}, {{answer, 0x0A, 0x25, 0, 1, 0, {0}}}), "1 " + WRITTEN);
  sdr->partial_add = false;
  EXPECT_EQ(written(three, fault(refuse, 0x24, 1, 0xC4)), "1 " + FAILED + "02 00 fail\n");
  // The KCS driver ends the process when a request is too long for it.
  EXPECT_EQ(written({Bytes(123)}), "1 " + WRITTEN);
  EXPECT_EQ(written({Bytes(124)}), "0 " + FAILED + "01 00 fail\n");
}

TEST_F(Sdr, OfEveryTypeSurviveTheWayThroughTextAndTheBmc) {
  const std::pair<uint8_t, size_t> types[] = {{0x01, 43}, {0x02, 27}, {0x03, 12},  {0x10, 11},
                                              {0x11, 11}, {0x12, 11}, {0x14, 219}, {0xC0, 0}};
  for (const auto& [type, size] : types) {
    hold({{}, body_of(10), body_of(size, size), body_of(size + 1, size), body_of(size + 31, size)},
         type);
    const sim::SdrRecords before = sdr->records;
    for (const bool partial : {true, false}) {
      sdr->partial_add = partial;
      act("--sdrdump");
      // Long ones do not fit into a whole request of the KCS driver.
      EXPECT_EQ(act("--sdr", {}, partial ? "--nrst" : "--open").out, WRITTEN);
      EXPECT_EQ(sdr->records, before) << "type " << int{type};
    }
  }
}

TEST_F(Sdr, ThatAFileSpellsWronglyCostNoRepository) {
  const std::string start = "_SDR (\n_SDR_TYPE 01\n_REC_LEN";
  const std::string fifth = ": the record's fifth byte is not the number of bytes after it\n";
  std::string many = "_SDR (\n";
  for (unsigned i = 0; i < 65536; i++) many += "_SDR_TYPE\n_REC_LEN 05\n01 00 51 C0 00\n";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"a", start + " 06\n01 00 51\n\nC0 02 AA\n)\n", "line 6" + fifth},
      {"a", start + " 06\n01 00\n_SDR_TYPE 01\n", "line 4" + fifth},
      {"a", start + " 06", "line 3" + fifth},
      {"a", start + " 04\n", "line 3: record length under 05\n"},
      {"a", start + "// 06\n", "line 3: record length under 05\n"},
      {"a", start + " 0100\n", "line 3: record length over FF\n"},
      {"a", start + " 1 00 00 00 00 06\n", "line 3: record length over FF\n"},
      {"a", many, "line 196609: more than 65535 records\n"},
      {"a.dat", HEAD + BLOCK + "Z\x09\x01", "offset 25: the block runs past the end of the file\n"},
      {"a.dat", HEAD + "Z\x09\x01\x02\x51\xC0\x03\xAA\xBB", "offset 16" + fifth},
      {".", "", ""},
  };
  for (const auto& [name, content, reason] : cases) {
    EXPECT_EQ(loaded(name, content), reason + "load sdr file " + path_of(name) + " failed\n");
  }
  const RunResult result = run({"--sdr", "absent"});
  EXPECT_EQ(after_identity(result.out), "load sdr file absent failed\nreset BMC and wait\n");
  EXPECT_EQ(after_identity(result.traffic), "18 02\nsleep 8000000\n");
}

TEST_F(Sdr, AreLoadedFromTextAsPeopleWriteItAndFromBlocksTwoBytesApart) {
  const std::string other = "_REC_LEN 06\n02 00 51 C0 01 CC\n";
  const std::string begun = "_SDR (\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02";
  const std::string one = "28 24 01 00 51 C0 02 AA BB\n";
  const std::string filled = "28 24 01 00 51 C0 02 AA 00\n28 24 02 00 51 C0 01 CC\n";
  const std::string found = "28 24 01 02 51 C0 02 AA BB\n";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"a.txt", "noise\n_sdr (\r\n_sdr_type c0 \r\n_rec_len 07\r\n0100 51 C002\r\n'\xAA\xBB'\r\n",
       one},
      {"a", "_SDR_TYPE\n" + other + "_SDR (\n_SDR_TYPE\n_REC_LEN 00 06\n02 00 51 C0 01 EE",
       "28 24 02 00 51 C0 01 EE\n"},
      {"a", begun + " AA\n_SDR_TYPE\n" + other, filled},
      {"a", begun + " AA\nBB CC DD\nEE\n" + other, one},
      {"a", begun + " AA\n)\n" + other, filled},
      {"a", begun, "28 24 01 00 51 C0 02 00 00\n"},
      {"a", begun + " AA // " + std::string(3000, 'B') + "\nBB", one},
      {"a.DAT", HEAD + "Z\x07xx" + BLOCK + BLOCK + "Z", found + found},
      {"a.dat", HEAD + "x" + BLOCK, ""},
      {"a.dat", "", ""},
      {"a.data", HEAD + BLOCK, ""},
  };
  const std::string erased =
      WRITTEN + "28 22\n28 27 01 00 43 4C 52 AA\n28 22\n28 27 02 00 43 4C 52 00\n28 25\n";
  sdr->partial_add = false;
  for (const auto& [name, content, requests] : cases) {
    EXPECT_EQ(loaded(name, content), erased + requests + "sleep 1000000\n") << content;
  }
}

TEST_F(Sdr, SuppliedFilesAreSound) {
  std::filesystem::current_path("data");
  EXPECT_EQ(loaded("sample.sdr", content_of("sample.sdr")).find(WRITTEN + "28 22\n"), 0U);
  act("--sdrdump");
  std::filesystem::current_path("..");
  EXPECT_EQ(sdr->records.size(), 6U);
  EXPECT_NE(content_of(path).find("// ID string type (bits 7..6) and length"), std::string::npos);
}

}  // namespace

// Sensor data records: what goes over the wire, and what the files hold.
#include "sdr/sdr.h"

#include <filesystem>

#include "tests/harness.h"

namespace {

using sim::Bytes;

const std::string WRITTEN = "writing SDR......\nUpdate successfully\n";
const std::string ERASED = "28 22\n28 27 01 00 43 4C 52 AA\n28 22\n28 27 02 00 43 4C 52 00\n";
// The first bytes of a binary file, and one of its blocks.
const std::string HEAD(16, 'Z');
const std::string BLOCK = "Z\x09\x01\x02\x51\xC0\x02\xAA\xBB";

// A body of `size` bytes whose ID string, if its type has one, takes all that follows byte `fixed`.
Bytes body(size_t size, size_t fixed = 0) {
  Bytes data;
  for (size_t i = 0; i < size; i++) data.push_back(static_cast<uint8_t>(0x41 + i % 20));
  if (fixed > 0 && size >= fixed) data[fixed - 1] = static_cast<uint8_t>(0xC0 | (size - fixed));
  return data;
}

// A tab stands for the 35 blanks from a byte to its comment.
std::string with_tabs(std::string text) {
  const std::string blanks(35, ' ');
  for (size_t at = 0; (at = text.find(blanks, at)) != text.npos;) text.replace(at, 35, "\t");
  return text;
}

struct Sdr : testing::Test {
  std::string path = path_of("records.sdr");
  sim::SdrStore* sdr = &sim::machine().bmc.sdr;

  Sdr() {
    std::filesystem::remove(path);
  }
  // The repository holds these, with IDs from 1 on.
  void hold(const std::vector<Bytes>& bodies, uint8_t type = 0xC0) const {
    sdr->records.clear();
    for (uint8_t id = 1; const Bytes& data : bodies) {
      Bytes& record = sdr->records[id];
      record = {id++, 0, 0x51, type, static_cast<uint8_t>(data.size())};
      record.insert(record.end(), data.begin(), data.end());
    }
  }
  // What a run with this option for the file at `path` says and sends, while these faults act.
  std::string act(const std::string& action, const char* faults = "") const {
    const RunResult result = run(action + " " + path, {faults});
    return result.said + result.sent;
  }
  // Writes records with these bodies: how many the BMC holds then, and what is said.
  std::string written(const std::vector<Bytes>& bodies, const char* faults = "") const {
    const std::string start = "writing SDR......\n";
    hold(bodies);
    act("--sdrdump");
    const std::string text = act("--nrst --sdr", faults);
    EXPECT_TRUE(text.starts_with(start)) << text;
    const size_t said = text.find('\n', start.size()) - start.size();
    return std::to_string(sdr->records.size()) + " held, " + text.substr(start.size(), said);
  }
  // This file is refused, and nothing is sent but the reset.
  void refuses(const char* name, const std::string& content, const std::string& reason) {
    path = file_with(name, content);
    EXPECT_EQ(act("--open --sdr"), reason + "load sdr file " + path_of(name) + " failed\n" +
                                       "reset BMC and wait\n18 02\nsleep 8000000\n");
  }
  // This file is written with these requests.
  void sends(const char* name, const std::string& content, const std::string& requests) {
    path = file_with(name, content);
    EXPECT_EQ(act("--open --sdr"), WRITTEN + "reset BMC and wait\n" + ERASED + "28 25\n" +
                                       requests + "sleep 1000000\n18 02\nsleep 8000000\n");
  }
};

TEST_F(Sdr, are_read_sixteen_bytes_at_a_time_and_no_more_than_the_bmc_claims) {
  // Requests: reservation (2), record ID (2), offset, count.
  const std::pair<unsigned, const char*> sizes[] = {{0, "28 23 01 00 00 00 00 10\n"},
                                                    {28, "28 23 03 00 00 00 20 01\n"},
                                                    {245, "28 23 10 00 00 00 F0 0A\n"},
                                                    {255, "28 23 11 00 00 00 F4 10\n"}};
  for (const auto& [size, last_request] : sizes) {
    hold({body(size)});
    EXPECT_TRUE(act("--sdrdump").ends_with(std::string("28 22\n") + last_request)) << size;
  }
  // Reading ends at the last record or at the claimed count, whichever comes first.
  hold({{1}, {2}, {3}});
  const char third[] = "28 23 03 00 03 00 00 10\n";
  const std::pair<int, const char*> claims[] = {
      {0, "28 20\n"}, {2, "28 23 02 00 02 00 00 10\n"}, {3, third}, {0xFFFF, third}};
  for (const auto& [claimed, last] : claims) {
    sdr->claimed = claimed;
    EXPECT_TRUE(act("--sdrdump").ends_with(last)) << claimed;
  }
  EXPECT_TRUE(act("--sdrdump", "shorten cmd=20 value=4").ends_with(third)) << "the count alone";
  // An ID with one byte FF is not yet the end of the chain.
  sdr->claimed = -1;
  sdr->records = {{0x00FF, {0xFF, 0x00, 0x51, 0xC0, 0}}, {0xFFFE, {0xFE, 0xFF, 0x51, 0xC0, 0}}};
  EXPECT_TRUE(act("--sdrdump").ends_with("28 23 02 00 FE FF 00 10\n"));
}

TEST_F(Sdr, dump_that_cannot_be_read_or_written_whole_is_no_file) {
  const std::string second = "Get SDR Record 02 00 Fail\n28 20\n";
  const std::pair<const char*, std::string> cases[] = {
      {"refuse cmd=20 value=C0", "Get Sdr Repository Fail\n28 20\n"},
      {"shorten cmd=20 value=3", "Get Sdr Repository Fail\n28 20\n"},
      {"shorten cmd=23 skip=2 value=7", second},
      {"shorten cmd=23 skip=2 value=12", second},
      {"refuse cmd=23 skip=3 value=FF", second},
      {"shorten cmd=23 skip=3 value=6", second},
      // The second part of a record needs a reservation.
      {"refuse cmd=22 times=0 value=C1",
       "Get SDR Record 00 00 Fail\n28 20\n28 22\n28 23 00 00 00 00 00 10\n28 22\n"
       "28 23 00 00 00 00 10 0"}};
  hold({Bytes(15), Bytes(15), Bytes(15)});
  for (const auto& [faults, said] : cases) {
    EXPECT_TRUE(act("--sdrdump", faults).starts_with(said)) << faults;
    EXPECT_EQ(content_of(path), "(no file)") << faults;
  }
  for (const std::string& file : {std::string("/dev/full"), path_of("")}) {
    path = file;
    EXPECT_TRUE(act("--sdrdump").starts_with("Writting File " + file + " fail\n28 20\n")) << file;
  }
}

TEST_F(Sdr, are_not_added_unless_the_erase_completes) {
  EXPECT_EQ(written({{1}}, "refuse cmd=27 value=C5"), "1 held, Clear SDR Fail");
  for (const char* faults : {"refuse cmd=27 skip=1 value=C5", "shorten cmd=27 skip=1 value=1",
                             "answer cmd=27 skip=1 bytes=0002"})
    EXPECT_EQ(written({{1}}, faults), "0 held, Clear SDR Fail");
  sdr->erase_polls = 4;
  EXPECT_EQ(written({{1}}), "1 held, Update successfully");
  sdr->erase_polls = 5;
  const std::string poll = "sleep 100000\n28 22\n28 27 0";
  std::string polls = "writing SDR......\nClear SDR Fail\n" + ERASED;
  for (const char id : {'3', '4', '5', '6'}) polls += poll + id + " 00 43 4C 52 00\n";
  EXPECT_EQ(act("--nrst --sdr"), polls + "sleep 1000000\n");
}

TEST_F(Sdr, failure_ends_the_writing_of_whole_records_but_not_of_parts) {
  // Entries have the IDs 1 to 3; the BMC gives 0102 to 0104. The empty Partial Add counts too.
  const std::vector<Bytes> three(3, Bytes(20));
  sdr->first_id = 0x0102;
  EXPECT_EQ(written(three, "refuse cmd=25 skip=3 value=C4"), "2 held, Write Sdr Record 00 00 fail");
  EXPECT_EQ(written(three, "refuse cmd=25 skip=4 value=C4"), "2 held, Write Sdr Record 03 01 fail");
  // A BMC that takes the empty Partial Add has the command, too.
  EXPECT_EQ(written({Bytes(250)}, "answer cmd=25 bytes=00"), "1 held, Update successfully");
  // The answer to a record's last part need not repeat its ID.
  EXPECT_EQ(written({Bytes(20)}, "answer cmd=25 skip=2 bytes=00"), "1 held, Update successfully");
  // Everything that is sent for two records.
  hold({Bytes(11, 0xAA), Bytes(27, 0xCC)});
  act("--sdrdump");
  sends("records.sdr", content_of(path),
        "28 22\n28 25 03 00 00 00 00 01 01 00 51 C0 0B AA AA AA AA AA AA AA AA AA AA AA\n"
        "28 22\n28 25 04 00 00 00 00 00 02 00 51 C0 1B CC CC CC CC CC CC CC CC CC CC CC\n"
        "28 25 04 00 03 01 10 01 CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC CC\n");
  sdr->partial_add = false;
  EXPECT_EQ(written(three, "refuse cmd=24 skip=1 value=C4"), "1 held, Write Sdr Record 02 00 fail");
  // The KCS driver ends the process when a request is too long for it.
  EXPECT_EQ(written({Bytes(123)}), "1 held, Update successfully");
  // A BMC that changes its mind after the erase.
  EXPECT_EQ(written({Bytes(124)}, "answer cmd=25 bytes=00"), "0 held, Write Sdr Record 01 00 fail");
}

TEST_F(Sdr, too_long_for_the_ports_do_not_cost_those_that_are_there) {
  const std::vector<Bytes> bodies = {Bytes(123), Bytes(124), Bytes(250)};
  hold(bodies);
  act("--sdrdump");
  const std::string asked = "28 25\n";  // the empty Partial Add, which is sent after the erase, too
  EXPECT_NE(
      act("--nrst --sdr").find("writing SDR......\nUpdate successfully\n" + asked + ERASED + asked),
      std::string::npos);
  sdr->partial_add = false;
  EXPECT_EQ(act("--nrst --sdr"),
            "writing SDR......\nSDR Record 02 00 needs --open\n28 25\nsleep 1000000\n");
  EXPECT_EQ(sdr->records.size(), 3U);
  EXPECT_TRUE(act("--open --nrst --sdr").starts_with(WRITTEN + ERASED + asked + "28 24 "));
  EXPECT_EQ(sdr->records.size(), 3U);
  EXPECT_EQ(
      run("--strict --nrst --sdr " + path).err,
      "qarn: the sensor record 0002 is too long for the ports: use --open; nothing is erased\n");
}

TEST_F(Sdr, of_every_type_survive_the_way_through_text_and_the_bmc) {
  const std::pair<uint8_t, size_t> types[] = {{0x01, 43}, {0x02, 27}, {0x03, 12},  {0x10, 11},
                                              {0x11, 11}, {0x12, 11}, {0x14, 219}, {0xC0, 0}};
  for (const auto& [type, size] : types) {
    hold({{}, body(10), body(size, size), body(size + 1, size), body(size + 31, size)}, type);
    if (size > 0) sdr->records[4][size + 4] = 0xDF;  // claims 31 characters, and has one
    const sim::SdrRecords before = sdr->records;
    act("--sdrdump");
    // Long ones do not fit into a whole request of the KCS driver.
    EXPECT_TRUE(act("--open --sdr").starts_with(WRITTEN + "reset BMC"));
    EXPECT_EQ(sdr->records, before) << "type " << int{type};
  }
}

TEST_F(Sdr, file_that_is_wrong_is_refused_with_its_place_and_costs_no_repository) {
  const std::string start = "_SDR (\n_SDR_TYPE 01\n_REC_LEN";
  const std::string fifth = ": the record's fifth byte is not the number of bytes after it\n";
  const std::string many =
      "_SDR (\n" + repeated(256, repeated(256, "_SDR_TYPE\n_REC_LEN 05\n01 00 51 C0 00\n"));
  refuses("a", start + " 06\n01 00 51 C0\n\n02 AA\n)\n", "line 6" + fifth);
  refuses("a", start + " 06\n01 00\n_SDR_TYPE 01\n", "line 4" + fifth);
  refuses("a", start + " 06", "line 3" + fifth);
  refuses("a", start + "// 06\n", "line 3: record length under 05\n");
  refuses("a", start + " 0105\n", "line 3: record length over 0104\n");
  refuses("a", start + " 1 00 00 00 00 06\n", "line 3: record length over 0104\n");
  refuses("a", many, "line 196609: more than 65535 records\n");
  refuses("a.dat", HEAD + BLOCK + "Z\x09.", "offset 25: the block runs past the end of the file\n");
  refuses("a.dat", HEAD + "Z\x09\x01\x02\x51\xC0\x03\xAA\xBB", "offset 16" + fifth);
  refuses("absent/a", "", "");
}

TEST_F(Sdr, are_written_as_people_spell_them_and_from_binary_blocks_two_bytes_apart) {
  const std::string other = "_REC_LEN 06\n02 00 51 C0 01 CC\n";
  const std::string begun = "_SDR (\n_SDR_TYPE 01\n_REC_LEN 00 07\n01 02 51 C0 02";
  const std::string one = "28 24 01 02 51 C0 02 AA BB\n";
  const std::string filled = "28 24 01 02 51 C0 02 AA 00\n28 24 02 00 51 C0 01 CC\n";
  sdr->partial_add = false;
  sends("a", "_sdr (\r\n_sdr_type c0 \r\n_rec_len 07\r\n0102 51 C002\r\n'\xAA\xBB'\r\n", one);
  sends("a", "_SDR_TYPE\n" + other + begun + " AA BB", one);
  sends("a", begun + " AA\n_SDR_TYPE\n" + other, filled);
  sends("a", begun + " AA\nBB CC DD\nEE\n" + other, one);
  sends("a", "noise\n" + begun, "28 24 01 02 51 C0 02 00 00\n");
  sends("a", begun + " AA // " + std::string(3000, 'B') + "\nBB", one);
  sends("a.DAT", HEAD + "Z\x07xx" + BLOCK + BLOCK + "Z", one + one);
  sends("a.dat", HEAD + "Z\x08\x01\x02\x51\xC0\x01\xAA", "28 24 01 02 51 C0 01 AA\n");
  sends("a.dat", HEAD + "x" + BLOCK, "");
  sends("a.data", HEAD + BLOCK, "");
}

TEST_F(Sdr, text_has_a_byte_a_line_and_its_comments_from_util_dat_in_one_column) {
  // The files in data/.
  std::filesystem::current_path("data");
  run("--sdr sample.sdr");
  act("--sdrdump");
  EXPECT_EQ(sdr->records.size(), 6U);
  EXPECT_NE(content_of(path).find("// ID string type (bits 7..6) and length"), std::string::npos);
  // A section goes on where it stopped, and takes 43 lines in all.
  std::string comments =
      "<SDR_COMMENT_TYPE1>\r\n<SDR_COMMENT_TYPE2>\nno\n</SDR_COMMENT_TYPE2>\n<sdr_comment_TYPE1>\n"
      "top\n\n</SDR_COMMENT_TYPE2>\n</SDR_COMMENT_TYPE1>\nno\n<SDR_COMMENT_TYPE1>\n";
  for (unsigned i = 0; i < 50; i++) comments += "line " + std::to_string(i) + "\n";
  hold({body(43, 43), body(15, 11)}, 0x01);
  sdr->records[2][3] = 0x12;
  sdr->records[2][15] = 0xE3;  // the ID string has 3 characters; bit 5 says nothing
  std::filesystem::current_path(path_of(""));
  file_with("util.dat", comments);
  act("--sdrdump");
  const std::string text = with_tabs(content_of(path));
  EXPECT_TRUE(text.starts_with("_SDR (\n\n_SDR_TYPE    01\n"));
  EXPECT_NE(
      text.find("\n\n   41\t// top\n   42\n   43\t// </SDR_COMMENT_TYPE2>\n   44\t// line 0\n"),
      std::string::npos);
  EXPECT_EQ(text.substr(text.find("   C0\t")),
            "   C0\t// line 39\n\n_SDR_TYPE    12\n_REC_LEN     14\n\n   02\t// Record ID LSB\n"
            "   00\t// Record ID MSB\n   51\t// SDR Version\n   12\t// Record Type\n"
            "   0F\t// Record Length\n\n   41\t// Device Slave Address\n   42\t// Channel Number\n"
            "   43\n   44\n   45\n   46\n   47\n   48\n   49\n   4A\n   E3\n"
            "   'LMN'                                // Sensor ID String'\n\n\n)\n");
}

TEST_F(Sdr, comments_of_a_section_that_is_full_are_passed_over_when_it_occurs_again) {
  std::filesystem::current_path(path_of(""));
  file_with("util.dat",
            "<SDR_COMMENT_TYPE1>\n" + repeated(43, "x\n") +
                "<SDR_COMMENT_TYPE2>\none\n</SDR_COMMENT_TYPE2>\n<SDR_COMMENT_TYPE1>\nmore\n"
                "<SDR_COMMENT_TYPE2>\nwrong\n</SDR_COMMENT_TYPE1>\n<SDR_COMMENT_TYPE2>\ntwo\n");
  hold({body(27, 27)}, 0x02);
  act("--sdrdump");
  EXPECT_NE(with_tabs(content_of(path)).find("   41\t// one\n   42\t// two\n   43\n"),
            std::string::npos);
}

}  // namespace

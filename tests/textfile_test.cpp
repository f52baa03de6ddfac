// Lines of definition files, and scripts of raw requests.
#include <gtest/gtest.h>

#include "tests/harness.h"
#include "textfile/lines.h"
#include "textfile/tokenizer.h"

namespace {

std::string cleaned(const char* line, size_t room = CONTENT_SIZE) {
  char text[CONTENT_SIZE];
  process_string(line, std::span(text).first(room));
  return text;
}

std::string content(const std::string& text) {
  std::array<uint8_t, CONTENT_SIZE> out;
  out.fill(0xEE);
  const unsigned count = get_content(text.c_str(), out);
  EXPECT_EQ(sim::Bytes(out.begin() + count, out.end()), sim::Bytes(CONTENT_SIZE - count)) << text;
  return sim::hex_text(sim::Bytes(out.begin(), out.begin() + count));
}

TEST(Line, loses_leading_blanks_and_comment_and_begins_with_a_keyword_whatever_the_case) {
  for (const char* line : {"", " \t# x\n", "//", ")", "5 // x\n"}) EXPECT_EQ(cleaned(line), "");
  EXPECT_EQ(cleaned("   01             # Record ID LSB\n"), "01");
  EXPECT_EQ(cleaned("\t_SDR ( \r\n"), "_SDR ( \r\n");
  EXPECT_EQ(cleaned(")\n"), ")\n");
  EXPECT_EQ(cleaned("'http://host'\n"), "'http:");
  EXPECT_EQ(cleaned("20 18 01//"), "20 18 01");
  EXPECT_EQ(cleaned("20 18 01#"), "20 18 01#");  // the last character begins no comment
  EXPECT_EQ(cleaned("  20 18 01\n", 5), "20 1");
  EXPECT_EQ(start_with("_sdr_type 01", "_SDR_TYPE"), 1);
  EXPECT_EQ(start_with("_SD", "_SDR"), 0);
  EXPECT_EQ(start_with("_SDR", ""), 0);
}

TEST(Line, gives_bytes_from_digits_and_quoted_text_as_far_as_there_is_room) {
  EXPECT_EQ(content("1 2\t3 f\r\n'AB' 01 '' F"), "12 3F 41 42 01 0F");
  EXPECT_EQ(content("'# \t\r\n"), "23 20 09 0D 0A");  // no closing quote
  EXPECT_EQ(content("1'A'2"), "01 12");               // the pair's end replaces the last byte
  // Letters beyond F count on, and run over; other characters are digits without a value.
  EXPECT_EQ(content("G0 0z zZ 12 -3 4\xFF"), "00 23 33 12 23 40");
  const std::string full = sim::hex_text(sim::Bytes(CONTENT_SIZE, 0x77));
  EXPECT_EQ(content(std::string(2 * CONTENT_SIZE + 7, '7')), full);
  EXPECT_EQ(content("'" + std::string(CONTENT_SIZE + 7, 'w')), full);
}

// For each column around the ends of both buffers, from 1: a line with `data`, and this comment in
// that column.
std::string lines_with(const std::string& data, const std::string& comment) {
  std::string text;
  for (size_t column = 248; column <= 1030; column = column == 262 ? 1015 : column + 1) {
    text += data + std::string(column - 1 - data.size(), ' ') + comment + "\n";
  }
  return text;
}

TEST(Line, says_to_each_reader_what_it_says_without_its_comment_whatever_column_that_begins_in) {
  const struct {
    const char* option;
    const char* before;
    const char* data;
    const char* after;
    const char* success;
  } readers[] = {
      {"--cfg", "", "20 18 01", "", "send: 20 18 01 \n"},
      // The last byte of the record would be dropped if the comment gave a byte more.
      {"--sdr", "_SDR\n_SDR_TYPE\n_REC_LEN 25\n01 00 51 C0 20\n", "AA", "BB\n", "successfully"},
      {"--fru", "_FRU_TITLE 'x'\n_DEV_ID 00\n_SEE_INTERNAL\n01\n", "AA", "", "successfully"}};
  std::string requests;
  while (requests.size() < 3 * LINE_ROOM) requests += " 20 18 02";
  for (const auto& [option, before, data, after, success] : readers) {
    std::string expected;  // of the first file, which has no comments
    for (const std::string comment : {"", "//", "///", "#"}) {
      for (const std::string& text : {std::string(), std::string("A"), requests}) {
        if (comment.empty() && !text.empty()) continue;
        sim::reset(sim::Kind::card);
        const std::string file = before + lines_with(data, comment + text) + after;
        const RunResult result = run({"--nrst", option, file_with("commented", file)});
        if (comment.empty()) expected = result.out + result.traffic;
        EXPECT_NE(expected.find(success), std::string::npos) << expected;
        EXPECT_EQ(result.out + result.traffic, expected) << option << comment << text;
      }
    }
  }
}

// The bytes of each line of this file, as a reader with this room sees it.
std::string bytes_of(const std::string& text, int room) {
  Lines lines = {};
  lines.file = std::fopen(file_with("lines", text).c_str(), "re");
  lines.room = room;
  std::string bytes;
  while (next_line(&lines)) bytes += content(cleaned(lines.text)) + "\n";
  std::fclose(lines.file);
  return bytes;
}

TEST(Line, may_end_the_file_in_a_number_sign_or_a_slash_that_begins_no_comment) {
  for (const int room : {256, LINE_ROOM}) {
    for (int column = room - 8; column <= room + 6; column++) {
      const std::string data = "20 18 01" + std::string(static_cast<size_t>(column) - 9, ' ');
      // A character alone in a piece of a long line does not count.
      const std::string rest = column < room ? "\n" : "\n\n";
      EXPECT_EQ(bytes_of(data + "#", room), "20 18 01" + rest) << column;
      // A slash is a digit without a value.
      EXPECT_EQ(bytes_of(data + "/", room), (column < room ? "20 18 01 01" : "20 18 01") + rest)
          << column;
    }
  }
}

// What a script says, and what reaches the BMC.
std::string scripted(const std::string& path, const char* option = "--nrst") {
  const RunResult result = run({"--cfg", path, option});
  EXPECT_EQ(result.status, 0);
  return after_identity(result.out) + after_identity(result.traffic);
}

TEST(Script, sends_each_line_and_names_one_that_is_no_request) {
  sim::reset(sim::Kind::card);
  // Line 2 is longer than the buffer: two requests, but one line to the reader.
  const std::string long_line = "20 18 46 02" + std::string(1012, ' ') + "203002\t01 63 00 00\r\n";
  EXPECT_EQ(
      scripted(file_with("script.cfg", "20 18\n" + long_line + "#\n5 5\n 20 18 02 // end\r\n'")),
      "line 1: 2 of the 3 bytes that a request needs at least: not sent\n"
      "send: 20 18 46 02 \nrecv: 20 1C 46 00 4F 70 65 72 61 74 6F 72 00 00 00 00 00 00 00 00 \n\n"
      "send: 20 30 02 01 63 00 00 \nrecv: 20 34 02 80 \n\n"
      "line 4: 1 of the 3 bytes that a request needs at least: not sent\n"
      "send: 20 18 02 \nrecv: 20 1C 02 00 \n\n18 46 02\n30 02 01 63 00 00\n18 02\n");
  EXPECT_EQ(scripted("no-such-file"), "");
  EXPECT_TRUE(
      scripted("data/sample.cfg").ends_with("\n18 01\n18 46 02\n30 02 01 03 00 00\n28 40\n"));
}

TEST(Script, reaches_another_controller_on_the_ports_and_the_bmc_itself_through_the_kernel) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.targets[0x2C].users[1].name = "Far";
  const std::string path = file_with("script.cfg", "20 28 40\n2C 18 46 02\n");
  EXPECT_NE(scripted(path).find("\nrecv: 2C 1E 46 00 46 61 72 00 "), std::string::npos);
  sim::machine().bmc.faults = sim::faults("silent cmd=40");
  EXPECT_EQ(scripted(path, "--open"),
            "send: 20 28 40 \nError no data available\nrecv: \n\n"
            "send: 2C 18 46 02 \nrecv: 20 1C 46 00 4F 70 65 72 61 74 6F 72 00 00 00 00 00 00 00 00 "
            "\n\n28 40\n18 46 02\n");
}

}  // namespace

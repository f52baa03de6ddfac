// Lines of definition files, and scripts of raw requests.
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

TEST(Line, loses_leading_blanks_and_its_comment) {
  for (const char* line : {"", " \t# x\n", "//", ")", "5 // x\n"}) EXPECT_EQ(cleaned(line), "");
  EXPECT_EQ(cleaned("   01             # Record ID LSB\n"), "01");
  EXPECT_EQ(cleaned("\t_SDR ( \r\n"), "_SDR ( \r\n");
  EXPECT_EQ(cleaned("'http://host'\n"), "'http:");
  EXPECT_EQ(cleaned("  20 18 01\n", 5), "20 1");
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

// The bytes of the lines of this file that have any, as a reader with this room sees them.
std::string bytes_of(const std::string& text, int room) {
  Lines lines = {};
  lines.file = std::fopen(file_with("lines", text).c_str(), "re");
  lines.room = room;
  std::string all;
  while (next_line(&lines)) {
    const std::string bytes = content(cleaned(lines.text));
    if (!bytes.empty()) all += bytes + "\n";
  }
  std::fclose(lines.file);
  return all;
}

TEST(Line, reads_the_same_with_a_comment_in_any_column) {
  std::string requests = "#";
  while (requests.size() < 3 * LINE_ROOM) requests += " 20 18 02";
  for (const int room : {256, LINE_ROOM}) {
    for (int column = room - 8; column <= room + 6; column++) {  // from 1
      const std::string data = "20 18 01" + std::string(static_cast<size_t>(column) - 9, ' ');
      for (const char* comment : {"//", "//A", "///", "#", "#A", requests.c_str()}) {
        EXPECT_EQ(bytes_of(data + comment + "\n20 18 46 02\n", room), "20 18 01\n20 18 46 02\n")
            << comment << " in " << column;
      }
      // The last character of a file begins none. A slash is a digit without a value, but alone in
      // a piece of a long line it is nothing.
      EXPECT_EQ(bytes_of(data + "#", room), "20 18 01\n") << column;
      EXPECT_EQ(bytes_of(data + "/", room), column < room ? "20 18 01 01\n" : "20 18 01\n");
    }
  }
}

// What a script says, and what reaches the BMC.
std::string scripted(const std::string& path) {
  const RunResult result = run("--cfg " + path);
  EXPECT_EQ(result.status, 0);
  return result.said + result.sent;
}

TEST(Script, sends_each_line_and_names_one_that_is_no_request) {
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

}  // namespace

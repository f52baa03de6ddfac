// Lines of definition files, and scripts of raw requests.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/harness.h"
#include "textfile/tokenizer.h"

namespace {

std::string cleaned(const std::string& line) {
  char text[CONTENT_SIZE];
  process_string(line.c_str(), text, sizeof text);
  return text;
}

std::string content(const std::string& text) {
  uint8_t out[CONTENT_SIZE];
  std::memset(out, 0xEE, sizeof out);
  const unsigned count = get_content(text.c_str(), out);
  for (unsigned i = count; i < CONTENT_SIZE; i++) EXPECT_EQ(out[i], 0) << text;
  return sim::hex_text(sim::Bytes(out, out + count));
}

TEST(Line, LosesLeadingBlanksAndCommentButKeepsItsEnd) {
  for (const char* line : {"", " \t ", "\n", " \t# remark\n", "//", ")", "5 // five\n"}) {
    EXPECT_EQ(cleaned(line), "") << line;
  }
  EXPECT_EQ(cleaned("   01             // Record ID LSB\n"), "01");
  EXPECT_EQ(cleaned("\t_SDR ( \r\n"), "_SDR ( \r\n");
  EXPECT_EQ(cleaned(")\n"), ")\n");
  EXPECT_EQ(cleaned("'A#B'\n"), "'A");
  EXPECT_EQ(cleaned("'http://host'\n"), "'http:");
  EXPECT_EQ(cleaned("20 18 01//"), "20 18 01");
  EXPECT_EQ(cleaned("20 18 01#"), "20 18 01#");  // the last character begins no comment
}

TEST(Line, BeginsWithAKeywordWhateverTheCase) {
  EXPECT_EQ(start_with("_sdr_type 01", "_SDR_TYPE"), 1);
  EXPECT_EQ(start_with("_SDR_TYPE 01", "_SDR"), 1);
  EXPECT_EQ(start_with("_SD", "_SDR"), 0);
  EXPECT_EQ(start_with("", "_SDR"), 0);
  EXPECT_EQ(start_with("_SDR", ""), 0);
}

TEST(Line, GivesBytesFromDigitsAndQuotedText) {
  EXPECT_EQ(content(""), "");
  EXPECT_EQ(content("20 18 01\r\n"), "20 18 01");
  EXPECT_EQ(content("1 2\t3 fF"), "12 3F 0F");
  EXPECT_EQ(content("'AB' 01 ''"), "41 42 01");
  EXPECT_EQ(content("'# \t\r\n"), "23 20 09 0D 0A");  // no closing quote
  EXPECT_EQ(content("1'A'2"), "01 12");               // the pair's end replaces the last byte
  EXPECT_EQ(content("G0 0z zZ"), "00 23 33");         // letters beyond F count on, and run over
  EXPECT_EQ(content("12 -3 4\xFF"), "12 23 40");      // digits without a value
}

TEST(Line, IsCutToTheRoomOfItsTarget) {
  char text[6] = "?????";
  process_string("  20 18 01\n", text, 5);
  EXPECT_STREQ(text, "20 1");
  EXPECT_EQ(text[5], '\0');
  uint8_t out[CONTENT_SIZE + 1] = {};
  EXPECT_EQ(get_content(std::string(2 * CONTENT_SIZE + 7, '7').c_str(), out), CONTENT_SIZE);
  EXPECT_EQ(out[CONTENT_SIZE - 1], 0x77);
  EXPECT_EQ(get_content(("'" + std::string(CONTENT_SIZE + 7, 'A')).c_str(), out), CONTENT_SIZE);
  EXPECT_EQ(out[CONTENT_SIZE], 0);
}

struct Script : testing::Test {
  Script() {
    sim::reset(sim::Kind::card);
  }
  RunResult run_script(const std::string& text, const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {"--cfg", file_with("script.cfg", text)};
    words.insert(words.end(), more.begin(), more.end());
    return run(words);
  }
};

TEST_F(Script, SendsEachLineAndShowsTheResponseWhateverItsCompletionCode) {
  const RunResult result = run_script(
      "# two requests\r\n\r\n 20 18 46 02 // name\r\n203002\t01 63 00 00\r\n// end\r\n'");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(after_identity(result.traffic), "18 46 02\n30 02 01 63 00 00\n");
  EXPECT_EQ(after_identity(result.out),
            "send: 20 18 46 02 \n"
            "recv: 20 1C 46 00 4F 70 65 72 61 74 6F 72 00 00 00 00 00 00 00 00 \n\n"
            "send: 20 30 02 01 63 00 00 \nrecv: 20 34 02 80 \n\n");
}

TEST_F(Script, ReachesAnotherControllerOnThePortsAndTheBmcItselfThroughTheKernel) {
  sim::machine().bmc.targets[0x2C].users[1].name = "Far";
  const std::string line = "2C 18 46 02\n";
  EXPECT_NE(run_script(line).out.find("recv: 2C 1E 46 00 46 61 72 00"), std::string::npos);
  EXPECT_NE(run_script(line, {"--open"}).out.find("recv: 20 1C 46 00 4F 70"), std::string::npos);
}

TEST_F(Script, NamesALineThatIsNoRequestAndGoesOn) {
  // Line 2 is longer than the buffer: two requests, but one line to the reader.
  const std::string name = "20 18 46 02";
  const std::string two = name + std::string(1023 - name.size(), ' ') + name + '\n';
  const RunResult result = run_script("20 18\n" + two + "#\n5 5\n20 18 01");
  EXPECT_EQ(after_identity(result.traffic), "18 46 02\n18 46 02\n18 01\n");
  const char reason[] = " of the 3 bytes that a request needs at least: not sent\n";
  EXPECT_NE(result.out.find(std::string("line 1: 2") + reason), std::string::npos) << result.out;
  EXPECT_NE(result.out.find(std::string("line 4: 1") + reason), std::string::npos) << result.out;
}

TEST_F(Script, ShowsNoBytesWhenNoResponseCame) {
  sim::machine().bmc.faults = {{.kind = sim::FaultKind::silent, .netfn = 0x06, .command = 0x46}};
  const RunResult result = run_script("20 28 40\n20 18 46 02\n20 28 42\n", {"--open"});
  EXPECT_NE(result.out.find("send: 20 18 46 02 \nError no data available\nrecv: \n\n"
                            "send: 20 28 42 \nrecv: 20 2C 42 00 01 00 \n\n"),
            std::string::npos)
      << result.out;
}

TEST_F(Script, ShippedAsASampleIsAcceptedWholeAndAMissingOneIsSilent) {
  EXPECT_EQ(after_identity(run({"--cfg", path_of("no-such-file")}).out), "");
  const RunResult result = run({"--cfg", "data/sample.cfg"});
  EXPECT_EQ(after_identity(result.traffic), "18 01\n18 46 02\n30 02 01 03 00 00\n28 40\n");
  EXPECT_EQ(result.out.find("not sent"), std::string::npos);
}

}  // namespace

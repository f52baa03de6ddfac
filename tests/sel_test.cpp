// The event log: read whole from the BMC, written as text.
#include <algorithm>
#include <cstdio>

#include "base/progress.h"
#include "tests/harness.h"

namespace {

using sim::machine;

const std::string INFO = "28 40\n";
// Get SEL Entry for the first record, whole and without a reservation.
const std::string ENTRY = "28 43 00 00 00 00 00 FF\n";

// What a dump says and sends while these faults act, and the file that it leaves.
std::string dumped(const std::string& faults = "") {
  const std::string path = path_of("log.sel");
  std::remove(path.c_str());
  const RunResult result = run("--open --seldump " + path, {faults});
  EXPECT_EQ(result.status, 0);
  return result.said.substr(result.said.find('\n') + 1) + result.sent + content_of(path);
}

TEST(Sel, the_log_is_written_up_to_its_end_and_an_answer_refused_or_cut_leaves_no_file) {
  machine().bmc.sel.claimed = 65535;
  machine().bmc.sel.records[1][0] = 0xFF;  // the last one has the ID FFFF
  const std::string second = "28 43 00 00 FF 00 00 FF\n";
  const std::pair<const char*, std::string> cases[] = {
      {"refuse cmd=40 value=c1", " Get SEL Repository Info Fail\n" + INFO},
      {"shorten cmd=40 value=3", " Get SEL Repository Info Fail\n" + INFO},
      {"refuse cmd=43 skip=1 value=cb", "Get SEL Record FF00 Fail\n" + INFO + ENTRY + second},
      {"shorten cmd=43 value=12", "Get SEL Record 0000 Fail\n" + INFO + ENTRY}};
  for (const auto& [fault, text] : cases)
    EXPECT_EQ(dumped(fault), "Get SEL Fail:\t" + text + "(no file)");
  EXPECT_EQ(dumped("shorten cmd=40 value=4"),  // the count of entries is all that is needed
            INFO + ENTRY + second +
                "28 43 00 00 03 00 00 FF\n"
                "_SEL\n_LOG_NUM   0300\n\n"
                "01 00 02 00 F1 53 65 20 00 04 10 09 6F 42 FF FF\n"
                "FF 00 02 2C F1 53 65 20 00 04 01 30 01 57 5F 5A\n"
                "03 00 02 90 F1 53 65 20 00 04 08 51 6F 01 FF FF\n");
}

TEST(Sel, a_log_without_end_is_read_up_to_the_claimed_count) {
  machine().bmc.sel.records = {{}, {}};  // each record names itself as the next one
  for (const auto& [claimed, count] : {std::pair(0, "0000"), {299, "2B01"}, {65535, "FFFF"}}) {
    machine().bmc.sel.claimed = claimed;
    const std::string text = dumped();
    EXPECT_NE(text.find("_SEL\n_LOG_NUM   " + std::string(count) + "\n\n"), std::string::npos);
    EXPECT_EQ(std::ranges::count(text, '\n'), 1 + claimed + 3 + claimed) << "requests and file";
  }
}

TEST(Sel, a_log_that_cannot_be_written_whole_gives_a_message) {
  for (const std::string target : {"/no-such-folder/log", "/dev/full"}) {
    EXPECT_EQ(run("--seldump " + target).said,
              "Dumping SEL to file " + target + "\nWritting File " + target + " fail\n");
  }
}

TEST(Progress, is_renewed_at_each_thousandth_and_on_a_terminal_only) {
  testing::internal::CaptureStderr();
  progress("SEL", 1, 3);
  progressFlag = 1;
  for (unsigned i = 1; i <= 2000; i++) progress("SDR", i, 2000);
  progress_end();
  progress_end();
  progressFlag = 0;
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(shown.starts_with("\033[KSDR 1/2000\r\033[KSDR 2/2000\r\033[KSDR 4/2000\r")) << shown;
  EXPECT_TRUE(shown.ends_with("\033[KSDR 1998/2000\r\033[KSDR 2000/2000\r\033[K")) << shown;
}

}  // namespace

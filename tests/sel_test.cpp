// The event log: read whole from the BMC, written as text.
#include "sel/sel.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>

#include "base/progress.h"
#include "tests/harness.h"

namespace {

const std::string INFO = "28 40\n";
// Get SEL Entry for the first record, whole and without a reservation.
const std::string ENTRY = "28 43 00 00 00 00 00 FF\n";
const std::string HEAD = "_SEL\n_LOG_NUM   ";

// What a dump says and sends, and the file that it leaves.
std::string dumped() {
  const std::string path = path_of("log.sel");
  const RunResult result = run({"--seldump", path, "--open"});
  EXPECT_EQ(result.status, 0);
  const std::string said = after_identity(result.out);
  return said.substr(said.find('\n') + 1) + after_identity(result.traffic) + content_of(path);
}

TEST(Sel, the_log_is_written_up_to_its_end_and_an_answer_refused_or_cut_leaves_no_file) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.sel.claimed = 65535;
  sim::machine().bmc.sel.records[1][1] = 0x01;
  const std::string second = "28 43 00 00 02 01 00 FF\n";
  const std::string log = INFO + ENTRY + second + "28 43 00 00 03 00 00 FF\n" + HEAD +
                          "0300\n\n"
                          "01 00 02 00 F1 53 65 20 00 04 10 09 6F 42 FF FF\n"
                          "02 01 02 2C F1 53 65 20 00 04 01 30 01 57 5F 5A\n"
                          "03 00 02 90 F1 53 65 20 00 04 08 51 6F 01 FF FF\n";
  const std::pair<const char*, std::string> cases[] = {
      {"refuse cmd=40 value=c1", " Get SEL Repository Info Fail\n" + INFO},
      {"shorten cmd=40 value=3", " Get SEL Repository Info Fail\n" + INFO},
      {"refuse cmd=43 skip=1 value=cb", "Get SEL Record 0201 Fail\n" + INFO + ENTRY + second},
      {"shorten cmd=43 value=12", "Get SEL Record 0000 Fail\n" + INFO + ENTRY},
  };
  for (const auto& [fault, text] : cases) {
    sim::machine().bmc.faults = sim::faults(fault);
    EXPECT_EQ(dumped(), "Get SEL Fail:\t" + text + "(no file)");
  }
  sim::machine().bmc.faults = sim::faults("shorten cmd=40 value=4");
  EXPECT_EQ(dumped(), log) << "the count of entries is all that is needed";
}

TEST(Sel, a_log_without_end_is_read_up_to_the_claimed_count) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.sel.records = {{}, {}};  // each record names itself as the next one
  for (const auto& [claimed, count] : {std::pair(0, "0000"), {299, "2B01"}, {65535, "FFFF"}}) {
    sim::machine().bmc.sel.claimed = claimed;
    const std::string text = dumped();
    EXPECT_NE(text.find(HEAD + count + "\n\n"), std::string::npos) << text.substr(0, 200);
    EXPECT_EQ(std::ranges::count(text, '\n'), 1 + claimed + 3 + claimed) << "requests and file";
  }
}

TEST(Sel, a_log_that_cannot_be_written_whole_gives_a_message_and_leaves_the_old_one) {
  sim::reset(sim::Kind::card);
  for (const std::string target : {"/no-such-folder/log", "/dev/full"}) {
    EXPECT_EQ(after_identity(run({"--seldump", target}).out),
              "Dumping SEL to file " + target + "\nWritting File " + target + " fail\n");
  }
  const std::string path = file_with("log.sel", "old");
  const SelList list{};
  rlimit limit = {16, RLIM_INFINITY};
  std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(prlimit(0, RLIMIT_FSIZE, &limit, &limit), 0);  // `limit` is now the earlier one
  EXPECT_EQ(SelToFile2(path.c_str(), &list), 0) << "a file that finds no room";
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(content_of(path), "old");
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

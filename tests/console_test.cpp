// What a terminal and a log show of a run.
#include <gtest/gtest.h>

#include "tests/harness.h"

namespace {

using sim::machine;

TEST(Terminal, shows_the_progress_line_and_erases_it_before_a_message_of_the_transport) {
  sim::reset(sim::Kind::card);
  const std::vector<std::string> dump = {"--seldump", path_of("log")};
  EXPECT_EQ(run(dump, true).err, "\033[KSEL 1/3\r\033[KSEL 2/3\r\033[KSEL 3/3\r\033[K");
  EXPECT_EQ(run(dump).err, "") << "this is no terminal";
  EXPECT_EQ(run({"--debug", dump[0], dump[1]}, true).err, "") << "requests are traced there";
  machine().bmc.faults = sim::faults("write_error netfn=0a cmd=43 skip=1 times=0 value=1");
  EXPECT_EQ(run(dump, true).err,
            "\033[KSEL 1/3\r\033[Kqarn: the BMC does not take the request at its ports\n");
}

TEST(Log, shows_how_far_a_run_came_that_was_cut_off) {
  sim::reset(sim::Kind::card);
  machine().bmc.faults = sim::faults("power_cut netfn=0a cmd=40");
  const RunResult result = run({"--seldump", "log"});
  EXPECT_EQ(result.status, 137);
  EXPECT_EQ(after_identity(result.out), "Dumping SEL to file log\n");
}

}  // namespace

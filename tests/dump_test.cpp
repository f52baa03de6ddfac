// What a dump leaves behind, and what a terminal and a log show of a run.
#include "base/dump_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/harness.h"

namespace {

namespace fs = std::filesystem;
using sim::machine;

TEST(Dump, is_new_and_for_its_owner_only_where_the_mask_hides_nothing) {
  sim::reset(sim::Kind::card);
  machine().bmc.sel.records.clear();
  const std::string path = path_of("new");
  const mode_t mask = umask(0);
  run({"--seldump", path});
  umask(mask);
  EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  run({"--seldump", file_with("new", std::string(5000, 'x'))});
  EXPECT_EQ(content_of(path), "_SEL\n_LOG_NUM   0000\n\n") << "nothing of an older file";
}

TEST(Dump, that_fails_removes_its_file_but_no_link_and_no_other_file) {
  const std::string link = path_of("link");
  const std::string target = file_with("target", "");
  fs::create_symlink("target", link);
  dump_drop(dump_open(link.c_str()), link.c_str());
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_EQ(content_of(target), "(no file)");
  FILE* file = dump_open(target.c_str());
  fs::rename(target, path_of("moved"));
  file_with("target", "of someone else");
  dump_drop(file, target.c_str());
  EXPECT_EQ(content_of(target), "of someone else");
}

TEST(Terminal, shows_the_progress_line_and_erases_it_before_a_message_of_the_transport) {
  sim::reset(sim::Kind::card);
  const std::vector<std::string> dump = {"--seldump", path_of("log")};
  EXPECT_EQ(run(dump, true).err, "\033[KSEL 1/3\r\033[KSEL 2/3\r\033[KSEL 3/3\r\033[K");
  EXPECT_EQ(run(dump).err, "") << "this is no terminal";
  EXPECT_EQ(run({"--debug", dump[0], dump[1]}, true).err, "") << "requests are traced there";
  machine().bmc.faults = sim::faults("write_error netfn=0a cmd=43 skip=1 times=0 value=1");
  EXPECT_EQ(run(dump, true).err, "\033[KSEL 1/3\r\033[K");
}

TEST(Log, shows_how_far_a_run_came_that_was_cut_off) {
  sim::reset(sim::Kind::card);
  machine().bmc.faults = sim::faults("power_cut netfn=0a cmd=40");
  const RunResult result = run({"--seldump", "log"});
  EXPECT_EQ(result.status, 137);
  EXPECT_EQ(after_identity(result.out), "Dumping SEL to file log\n");
}

}  // namespace

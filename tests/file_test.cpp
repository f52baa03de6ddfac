// The files of a run: what becomes of an older dump, where a dump may go, files without an end, and
// standard streams that are closed or full.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "base/dump_file.h"
#include "base/standard_streams.h"
#include "tests/harness.h"
#include "textfile/lines.h"

int qarn_main(int argc, char** argv);

namespace {

namespace fs = std::filesystem;
using sim::machine;
using enum sim::FaultKind;

const std::string EMPTY_LOG = "_SEL\n_LOG_NUM   0000\n\n";

struct Files : testing::Test {
  Files() {
    sim::reset(sim::Kind::card);
    machine().bmc.sel.records.clear();
    machine().bmc.card.flash_size = 0x2000;
    fs::remove_all(place);
    fs::create_directory(place);
    fs::permissions(place, fs::perms{0755});
  }
  const std::string place = path_of("place");
  const std::string path = place + "/dump";

  unsigned files() const {
    return static_cast<unsigned>(std::distance(fs::directory_iterator(place), {}));
  }
};

int mode_of(const std::string& path) {
  return static_cast<int>(fs::status(path).permissions());
}

// A dump of that text: 0, or the errno of its refusal.
int dumps(const std::string& path, const char* text = "new") {
  FILE* file = dump_open(path.c_str());
  if (file == nullptr) return errno;
  std::fputs(text, file);
  return dump_close(file) ? 0 : -1;
}

// Puts something at a path, of an older dump's content where it has some.
void old_file(const std::string& path) {
  file_with(fs::relative(path, path_of("")).string(), "old");
}

TEST_F(Files, an_older_dump_survives_whatever_stops_the_new_one) {
  struct Case {
    const char* option;
    sim::Fault fault;
  };
  const Case cases[] = {{"--save", {shorten, 0x08, 0x03, 300, 1, 17}},
                        {"--save", {write_error, 0x08, 0x03, 300, 0, 1}},
                        {"--save", {.kind = power_cut, .command = 0x03, .skip = 300}},
                        {"--seldump", {write_error, 0x0A, 0x40, 0, 0, 1}},
                        {"--seldump", {refuse, 0x0A, 0x40, 0, 0, 0xC0}},
                        {"--sdrdump", {refuse, 0x0A, 0x23, 1, 0, 0xC0}},
                        {"--wfru", {refuse, 0x0A, 0x11, 1, 0, 0xC0}}};
  for (const Case& a : cases) {
    old_file(path);
    machine().bmc.faults = {a.fault};
    run({a.option, path});
    EXPECT_EQ(content_of(path), "old") << a.option;
    // Only a power cut leaves the unfinished new file in the folder.
    EXPECT_EQ(files(), a.fault.kind == power_cut ? 2U : 1U) << a.option;
    fs::remove_all(place);
    fs::create_directory(place);
    machine().bmc.faults.clear();
  }
}

TEST_F(Files, a_new_dump_is_for_its_owner_and_one_that_replaces_another_keeps_its_mode) {
  const mode_t mask = umask(0);
  run({"--seldump", path});
  EXPECT_EQ(mode_of(path), 0600);
  fs::permissions(path, fs::perms{0644});
  const bool root = geteuid() == 0;
  const gid_t group = root ? 1234 : getegid();
  EXPECT_EQ(chown(path.c_str(), geteuid(), group), 0);
  file_with("place/dump", std::string(5000, 'x'));
  run({"--seldump", path});
  umask(mask);
  EXPECT_EQ(content_of(path), EMPTY_LOG);
  EXPECT_EQ(mode_of(path), 0644);
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, group);
  EXPECT_EQ(files(), 1U);
}

TEST_F(Files, links_are_followed_to_a_file_or_to_where_one_will_be) {
  old_file(path);
  fs::create_directory(place + "/deep");
  fs::create_symlink("../dump", place + "/deep/one");
  fs::create_symlink("deep/one", place + "/two");
  EXPECT_EQ(dumps(place + "/two"), 0);
  EXPECT_TRUE(fs::is_symlink(place + "/two") && fs::is_symlink(place + "/deep/one"));
  EXPECT_EQ(content_of(path), "new");
  fs::create_symlink(place + "/made", place + "/dangling");
  FILE* given_up = dump_open((place + "/dangling").c_str());
  dump_drop(given_up);
  EXPECT_FALSE(fs::exists(place + "/made"));
  EXPECT_EQ(dumps(place + "/dangling"), 0);
  EXPECT_EQ(content_of(place + "/made"), "new");
  fs::create_symlink("loop", place + "/loop");
  EXPECT_EQ(dumps(place + "/loop"), ELOOP);
  EXPECT_EQ(dumps(place + "/" + std::string(255, 'n')), 0);
  EXPECT_EQ(dumps(place + "/" + std::string(256, 'n')), ENAMETOOLONG);
  EXPECT_EQ(dumps(""), ENOENT);
  EXPECT_EQ(dumps(place), EISDIR);
  EXPECT_EQ(dumps(place + "/"), EISDIR);
  EXPECT_EQ(dumps(place + "/none/dump"), ENOENT);
}

TEST_F(Files, nothing_that_the_run_did_not_create_is_removed_or_overwritten) {
  FILE* file = dump_open(path.c_str());
  old_file(path);
  dump_drop(file);
  EXPECT_EQ(content_of(path), "old");
  dump_open(path.c_str());
  dump_abandon();
  EXPECT_EQ(content_of(path), "old");
  EXPECT_EQ(files(), 1U);
  file = dump_open(path.c_str());
  fs::remove(path);
  fs::create_directory(path);
  EXPECT_FALSE(dump_close(file));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(files(), 1U);
}

TEST_F(Files, devices_and_fifos_and_open_files_are_written_as_they_are) {
  EXPECT_EQ(dumps("/dev/null"), 0);
  EXPECT_EQ(dumps("/dev/full"), -1);
  EXPECT_EQ(errno, ENOSPC);
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_NONBLOCK), 0);
  EXPECT_EQ(dumps("/dev/fd/" + std::to_string(pipe_ends[1])), 0);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int fifo = open(path.c_str(), O_RDWR | O_NONBLOCK);
  EXPECT_EQ(dumps(path), 0);
  EXPECT_TRUE(fs::is_fifo(path));
  const int removed = open((place + "/removed").c_str(), O_RDWR | O_CREAT, 0600);
  fs::remove(place + "/removed");
  EXPECT_EQ(dumps("/proc/self/fd/" + std::to_string(removed)), 0);
  for (const int handle : {pipe_ends[0], fifo, removed}) {
    char text[4] = {};
    EXPECT_EQ(read(handle, text, 3), 3);
    EXPECT_STREQ(text, "new");
    close(handle);
  }
  close(pipe_ends[1]);
  EXPECT_EQ(files(), 1U);
}

TEST_F(Files, what_is_standard_output_takes_a_dump_in_its_place_among_the_rest) {
  for (const std::string& name : {std::string("/dev/stdout"), std::string("/dev/fd/1"),
                                  std::string("/proc/self/fd/1"), path_of("run.out")}) {
    const RunResult result = run({"--seldump", name, "-e", "18", "02"});
    EXPECT_TRUE(result.out.starts_with("BMC Utility on Linux version")) << result.out;
    EXPECT_EQ(after_identity(result.out),
              "Dumping SEL to file " + name + "\n" + EMPTY_LOG + "response is 1C 02 00 \n");
  }
}

TEST_F(Files, a_file_with_several_names_is_refused_with_the_actions_line) {
  old_file(path);
  fs::create_hard_link(path, place + "/name");
  const std::pair<const char*, std::string> cases[] = {
      {"--seldump", "Writting File " + path + " fail\n"},
      {"--sdrdump", "Writting File " + path + " fail\n"},
      {"--wfru", "writing file......fail\n"},
      {"--save", "cannot open the data file: " + path + "\n"}};
  for (const auto& [option, line] : cases) {
    EXPECT_NE(run({option, path}).out.find(line), std::string::npos) << option;
    EXPECT_EQ(content_of(path), "old") << option;
  }
  fs::remove(place + "/name");
  EXPECT_EQ(dumps(path), 0);
}

TEST_F(Files, what_another_user_put_into_a_folder_that_others_may_write_is_refused) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can play other users";
  constexpr uid_t OTHER = 1234;
  const std::string link = place + "/link";
  const auto outcome = [&](mode_t mode, uid_t folder, uid_t of_link, uid_t of_file) {
    fs::remove(link);
    old_file(path);
    fs::create_symlink("dump", link);
    EXPECT_EQ(lchown(link.c_str(), of_link, 0) | chown(path.c_str(), of_file, 0), 0);
    EXPECT_EQ(chown(place.c_str(), folder, 0) | chmod(place.c_str(), mode), 0);
    const int reason = dumps(link);
    EXPECT_EQ(content_of(path), reason == 0 ? "new" : "old");
    fs::remove(path);
    return reason;
  };
  for (const mode_t shared : {0777U, 01777U, 0775U, 0757U}) {
    EXPECT_EQ(outcome(shared, 0, 0, 0), 0);
    EXPECT_EQ(outcome(shared, 0, OTHER, 0), ELOOP);
    EXPECT_EQ(outcome(shared, 0, 0, OTHER), ELOOP);
  }
  EXPECT_EQ(outcome(0755, 0, OTHER, OTHER), 0) << "only root can have put them there";
  EXPECT_EQ(outcome(0755, OTHER, OTHER, 0), ELOOP) << "the folder is the other user's";
  EXPECT_EQ(outcome(0755, OTHER, 0, 0), 0);
  fs::permissions(path_of(""), fs::perms{0755});
  for (const mode_t mode : {0644U, 0444U}) {
    old_file(path);
    EXPECT_EQ(chmod(path.c_str(), mode) | chown(path.c_str(), OTHER, 0) | seteuid(OTHER), 0);
    EXPECT_EQ(dumps(path), mode == 0644 ? 0 : EACCES) << "its owner may not write it";
    EXPECT_EQ(seteuid(0), 0);
    fs::remove(path);
  }
  ASSERT_EQ(mkfifo(path.c_str(), 0666) | chmod(place.c_str(), 01777), 0);
  ASSERT_EQ(chown(path.c_str(), OTHER, 0), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(dumps(path), ELOOP);
  close(reader);
}

TEST_F(Files, a_link_of_another_user_to_a_folder_is_not_followed_in_a_shared_one) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can play other users";
  fs::create_directory(place + "/ours");
  fs::create_directory_symlink("ours", place + "/link");
  EXPECT_EQ(dumps(place + "/link//dump"), 0);
  EXPECT_EQ(dumps(place + "/./ours/../link/dump"), 0);
  EXPECT_EQ(dumps(place + "/link/none/dump"), ENOENT);
  ASSERT_EQ(chmod(place.c_str(), 01777) | lchown((place + "/link").c_str(), 1234, 0), 0);
  EXPECT_EQ(dumps(place + "/link/dump"), ELOOP);
  EXPECT_EQ(dumps(place + "/ours/dump"), 0);
}

TEST_F(Files, a_file_that_came_while_the_dump_was_written_stays) {
  for (const bool there : {false, true}) {
    fs::remove(path);
    if (there) old_file(path);
    FILE* file = dump_open(path.c_str());
    ASSERT_NE(file, nullptr);
    fs::remove(path);
    old_file(place + "/other");
    fs::rename(place + "/other", path);
    EXPECT_FALSE(dump_close(file));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(content_of(path), "old");
    EXPECT_EQ(files(), 1U);
  }
}

// The limit is the file's size, then one byte less.
TEST_F(Files, a_definition_file_beyond_the_limit_is_refused) {
  const std::string records = "_SDR (\n_SDR_TYPE 01\n_REC_LEN 06\n01 00 51 01 01 AA\n)\n# end";
  const std::string block("\x5A\x08\x01\x00\x51\x01\x01\xAA", 8);
  const std::string binary = std::string(16, 'h') + block + "end.";
  const std::string request = "20 18 01\n20 18 46 02\n";
  const std::string device = "_FRU\n_DEV_ID 01\n// end";
  const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
      {"--sdr", "text", records, "line 6: the file is too long\nload sdr file "},
      {"--sdr", "a.dat", binary, "offset 26: the file is too long\nload sdr file "},
      {"--fru", "fru", device, "line 3: the file is too long\nCannot read file "},
      {"--cfg", "script", request, "line 2: the file is too long\n"}};
  const uint64_t usual = file_limit;
  for (const auto& [option, name, content, says] : cases) {
    const std::string file = file_with(name, content);
    file_limit = content.size();
    EXPECT_EQ(run({option, file}).out.find("too long"), std::string::npos) << name;
    file_limit--;
    const RunResult refused = run({option, file});
    EXPECT_NE(refused.out.find(says), std::string::npos) << refused.out;
    EXPECT_EQ(refused.out.find("too long"), refused.out.rfind("too long")) << refused.out;
    EXPECT_EQ(refused.traffic.find("28 27"), std::string::npos) << "nothing is erased";
    EXPECT_EQ(refused.traffic.find("18 46 02"), std::string::npos) << "the script ends there";
  }
  file_limit = 100000;
  for (const char* option : {"--sdr", "--fru", "--cfg"}) {
    EXPECT_NE(run({option, "/dev/zero"}).out.find("line 1: the file is too long\n"),
              std::string::npos);
  }
  // The rest of a comment counts, although it is not kept.
  EXPECT_NE(run({"--cfg", file_with("long", "# " + std::string(200000, 'x'))}).out.find("too long"),
            std::string::npos);
  file_limit = usual;
}

TEST_F(Files, util_dat_is_read_only_if_it_is_a_file) {
  const auto before = fs::current_path();
  const std::string comments = "<SDR_COMMENT_TYPE1>\nfirst field\n";
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  ASSERT_GT(write(pipe_ends[1], comments.data(), comments.size()), 0);
  close(pipe_ends[1]);
  fs::current_path(place);
  fs::create_symlink("/proc/self/fd/" + std::to_string(pipe_ends[0]), "util.dat");
  run({"--sdrdump", "dump"});
  EXPECT_EQ(content_of("dump").find("// first field"), std::string::npos);
  fs::remove("util.dat");
  file_with("place/util.dat", comments);
  run({"--sdrdump", "dump"});
  EXPECT_NE(content_of("dump").find("// first field"), std::string::npos);
  fs::current_path(before);
  close(pipe_ends[0]);
}

TEST_F(Files, no_file_takes_the_place_of_a_closed_standard_stream) {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const pid_t child = fork();
    if (child == 0) {
      close(stream);
      prepare_standard_streams();
      const std::string link = "/proc/self/fd/" + std::to_string(stream);
      std::_Exit(fs::read_symlink(link) == "/dev/null" ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << stream;
  }
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    std::string words[] = {"qarn", "--save", path};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    std::exit(qarn_main(3, arguments));
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  run({"--save", place + "/usual"});
  EXPECT_EQ(content_of(path).size(), 0x2000U);
  EXPECT_TRUE(content_of(path) == content_of(place + "/usual"));
}

// Standard error of "qarn -e 18 02" with a standard output that takes nothing.
std::string errors_of_lost_output(bool on_terminal) {
  const int ours = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_TRUE(grantpt(ours) == 0 && unlockpt(ours) == 0);
  const int other = open(on_terminal ? ptsname(ours) : path_of("errors").c_str(),
                         O_RDWR | O_NOCTTY | O_CREAT | O_CLOEXEC, 0600);
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    dup2(other, STDERR_FILENO);
    char words[][5] = {"qarn", "-e", "18", "02"};
    char* arguments[] = {words[0], words[1], words[2], words[3], nullptr};
    std::exit(qarn_main(4, arguments));
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  char shown[200] = {};
  const ssize_t count = on_terminal ? read(ours, shown, sizeof shown - 1) : 0;
  EXPECT_EQ(count > 0, on_terminal);
  close(ours);
  close(other);
  return on_terminal ? shown : content_of(path_of("errors"));
}

TEST_F(Files, lost_output_is_a_hint_on_a_terminal) {
  EXPECT_EQ(errors_of_lost_output(true),
            "qarn: standard output could not be written: No space left on device\r\n");
  EXPECT_EQ(errors_of_lost_output(false), "");
}

}  // namespace

// The files of a run: what becomes of an older dump, where a dump may go, files without an end, and
// standard streams that are closed or full.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "base/dump_file.h"
#include "tests/harness.h"
#include "textfile/lines.h"

namespace {

namespace fs = std::filesystem;
using sim::machine;

constexpr uid_t OTHER = 1234;

// Each test begins in an empty folder.
struct Files : testing::Test {
  Files() {
    machine().bmc.sel.records.clear();
    machine().bmc.card.flash_size = 0x2000;
    fs::remove_all(path_of("place"));
    fs::create_directory(path_of("place"));
    fs::current_path(path_of("place"));
    fs::permissions(".", fs::perms{0755});
  }
};

long files() {
  return std::distance(fs::directory_iterator("."), {});
}

void put(const std::string& name, const std::string& text = "old") {
  file_with("place/" + name, text);
}

// What becomes of a dump of that text: 0, or the errno of its refusal.
int dumps(const std::string& path) {
  FILE* file = dump_open(path.c_str());
  if (file == nullptr) return errno;
  std::fputs("new", file);
  return dump_close(file) ? 0 : -1;
}

void give(const char* name, uid_t owner) {
  EXPECT_EQ(lchown(name, owner, static_cast<gid_t>(-1)), 0) << name;
}

TEST_F(Files, an_older_dump_survives_whatever_stops_the_new_one) {
  const std::pair<const char*, const char*> cases[] = {
      {"--save", "shorten netfn=8 cmd=3 skip=300 value=11"},
      {"--save", "write_error netfn=8 cmd=3 skip=300 times=0 value=1"},
      {"--save", "power_cut cmd=3 skip=300"},
      {"--seldump", "write_error netfn=a cmd=40 times=0 value=1"},
      {"--seldump", "refuse cmd=40 value=c0"},
      {"--sdrdump", "refuse cmd=23 skip=1 value=c0"},
      {"--wfru", "refuse cmd=11 skip=1 value=c0"}};
  for (const auto& [option, fault] : cases) {
    put("dump");
    const int status = run(std::string(option) + " dump", {.faults = fault}).status;
    EXPECT_EQ(content_of("dump"), "old") << fault;
    EXPECT_EQ(files(), status == 137 ? 2 : 1) << "a power cut leaves the unfinished file, too";
    EXPECT_EQ(status == 255, std::string(fault).starts_with("write_error")) << fault;
    for (const fs::path& file : fs::directory_iterator(".")) fs::remove(file);
  }
}

TEST_F(Files, a_new_dump_is_for_its_owner_and_one_that_replaces_another_keeps_its_rights) {
  const mode_t mask = umask(0);
  run("--seldump dump");
  EXPECT_EQ(fs::status("dump").permissions(), fs::perms{0600});
  put("dump", std::string(5000, 'x'));
  fs::permissions("dump", fs::perms{0644});
  const gid_t group = geteuid() == 0 ? OTHER : getegid();
  EXPECT_EQ(chown("dump", geteuid(), group), 0);
  run("--seldump dump");
  umask(mask);
  EXPECT_EQ(content_of("dump"), "_SEL\n_LOG_NUM   0000\n\n");
  struct stat status = {};
  EXPECT_EQ(stat("dump", &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0644U);
  EXPECT_EQ(status.st_gid, group);
  EXPECT_EQ(files(), 1);
}

// The group's bits of such a file's mode are the most that its list may give.
TEST_F(Files, the_access_list_of_a_dump_that_is_replaced_stays) {
  put("dump", "old");
  const unsigned char list[] = {2,  0, 0, 0,                       // version
                                1,  0, 6, 0, 255, 255, 255, 255,   // owner: rw
                                2,  0, 6, 0, 254, 255, 0,   0,     // user 65534: rw
                                4,  0, 4, 0, 255, 255, 255, 255,   // group: r
                                16, 0, 6, 0, 255, 255, 255, 255,   // the most: rw
                                32, 0, 0, 0, 255, 255, 255, 255};  // others: none
  constexpr char NAME[] = "system.posix_acl_access";
  if (setxattr("dump", NAME, list, sizeof list, 0) != 0) GTEST_SKIP() << "no access lists here";
  run("--seldump dump");
  unsigned char now[100] = {};
  EXPECT_EQ(getxattr("dump", NAME, now, sizeof now), ssize_t{sizeof list});
  EXPECT_EQ(std::memcmp(now, list, sizeof list), 0);
  EXPECT_NE(content_of("dump"), "old");
}

TEST_F(Files, links_are_followed_to_a_file_or_to_where_one_will_be) {
  put("dump");
  fs::create_directory("deep");
  fs::create_symlink("../dump", "deep/one");
  fs::create_symlink("deep/one", "two");
  EXPECT_EQ(dumps("two"), 0);
  EXPECT_TRUE(fs::is_symlink("two") && fs::is_symlink("deep/one"));
  EXPECT_EQ(content_of("dump"), "new");
  fs::create_symlink(path_of("place/made"), "dangling");
  dump_drop(dump_open("dangling"));
  EXPECT_FALSE(fs::exists("made"));
  EXPECT_EQ(dumps("dangling"), 0);
  EXPECT_EQ(content_of("made"), "new");
  fs::create_symlink("loop", "loop");
  const std::string longest(255, 'n');
  const std::pair<std::string, int> cases[] = {
      {"loop", ELOOP},  {longest, 0},      {longest + "n", ENAMETOOLONG}, {"", ENOENT},
      {"deep", EISDIR}, {"deep/", EISDIR}, {"none/dump", ENOENT}};
  for (const auto& [path, reason] : cases) EXPECT_EQ(dumps(path), reason) << path;
}

TEST_F(Files, nothing_that_the_run_did_not_create_is_removed_or_overwritten) {
  FILE* file = dump_open("dump");
  put("dump");
  dump_drop(file);
  dump_open("dump");
  dump_abandon();
  EXPECT_EQ(content_of("dump"), "old");
  EXPECT_EQ(files(), 1);
  // Something takes the target's place while the dump is written.
  for (const bool older : {false, true}) {
    fs::remove("dump");
    if (older) put("dump");
    file = dump_open("dump");
    fs::remove("dump");
    put("other");
    fs::rename("other", "dump");
    EXPECT_FALSE(dump_close(file));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(content_of("dump"), "old");
    EXPECT_EQ(files(), 1);
  }
}

TEST_F(Files, devices_and_fifos_and_open_files_are_written_as_they_are) {
  EXPECT_EQ(dumps("/dev/null"), 0);
  EXPECT_EQ(dumps("/dev/full"), -1);
  EXPECT_EQ(errno, ENOSPC);
  int pipe_ends[2];
  ASSERT_EQ(pipe2(pipe_ends, O_NONBLOCK), 0);
  EXPECT_EQ(dumps("/dev/fd/" + std::to_string(pipe_ends[1])), 0);
  const int fifo = open(new_fifo("place/dump").c_str(), O_RDWR | O_NONBLOCK);
  EXPECT_EQ(dumps("dump"), 0);
  EXPECT_TRUE(fs::is_fifo("dump"));
  const int removed = open("removed", O_RDWR | O_CREAT, 0600);
  fs::remove("removed");
  EXPECT_EQ(dumps("/proc/self/fd/" + std::to_string(removed)), 0);
  for (const int handle : {pipe_ends[0], fifo, removed}) {
    char text[4] = {};
    EXPECT_EQ(read(handle, text, 3), 3);
    EXPECT_STREQ(text, "new");
    close(handle);
  }
  close(pipe_ends[1]);
  EXPECT_EQ(files(), 1);
}

TEST_F(Files, what_is_standard_output_takes_a_dump_in_its_place_among_the_rest) {
  for (const std::string& name :
       {std::string("/dev/stdout"), std::string("/dev/fd/1"), path_of("run.out")}) {
    const RunResult result = run("--seldump " + name + " -e 18 02");
    EXPECT_TRUE(result.out.starts_with("BMC Utility on Linux version")) << result.out;
    EXPECT_EQ(result.said,
              "Dumping SEL to file " + name + "\n_SEL\n_LOG_NUM   0000\n\nresponse is 1C 02 00 \n");
  }
}

TEST_F(Files, a_file_with_several_names_is_refused_until_it_has_one) {
  put("dump");
  fs::create_hard_link("dump", "name");
  EXPECT_EQ(dumps("dump"), EMLINK);
  EXPECT_EQ(content_of("dump"), "old");
  fs::remove("name");
  EXPECT_EQ(dumps("dump"), 0);
}

TEST_F(Files, what_another_user_put_into_a_folder_that_others_may_write_is_refused) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can play other users";
  // Rights of the folder; owners of the folder, the link and the file; the reason of a refusal.
  std::vector<std::tuple<unsigned, uid_t, uid_t, uid_t, int>> cases = {
      {0755, 0, OTHER, OTHER, 0},  // only root can have put them there
      {0755, OTHER, OTHER, 0, ELOOP},
      {0755, OTHER, 0, 0, 0}};
  for (const unsigned shared : {0777U, 01777U, 0775U, 0757U}) {
    cases.insert(
        cases.end(),
        {{shared, 0, 0, 0, 0}, {shared, 0, OTHER, 0, ELOOP}, {shared, 0, 0, OTHER, ELOOP}});
  }
  for (const auto& [mode, of_folder, of_link, of_file, reason] : cases) {
    put("dump");
    fs::create_symlink("dump", "link");
    give("link", of_link);
    give("dump", of_file);
    give(".", of_folder);
    fs::permissions(".", fs::perms{mode});
    EXPECT_EQ(dumps("link"), reason) << std::oct << mode;
    EXPECT_EQ(content_of("dump"), reason == 0 ? "new" : "old");
    fs::remove("link");
    fs::remove("dump");
  }
}

TEST_F(Files, a_file_that_its_owner_may_not_write_is_not_replaced) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can play other users";
  give(".", OTHER);
  fs::permissions("..", fs::perms{0755});
  for (const unsigned mode : {0644U, 0444U}) {
    put("dump");
    give("dump", OTHER);
    fs::permissions("dump", fs::perms{mode});
    EXPECT_EQ(seteuid(OTHER), 0);
    EXPECT_EQ(dumps("dump"), mode == 0644 ? 0 : EACCES);
    EXPECT_EQ(seteuid(0), 0);
    fs::remove("dump");
  }
}

TEST_F(Files, a_fifo_and_a_link_to_a_folder_of_another_user_are_not_followed_in_a_shared_one) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can play other users";
  fs::create_directory("ours");
  fs::create_directory_symlink("ours", "link");
  const int reader = open(new_fifo("place/fifo").c_str(), O_RDONLY | O_NONBLOCK);
  for (const char* path : {"link//dump", "./ours/../link/dump", "fifo"}) EXPECT_EQ(dumps(path), 0);
  EXPECT_EQ(dumps("link/none/dump"), ENOENT);
  fs::permissions(".", fs::perms{01777});
  give("link", OTHER);
  give("fifo", OTHER);
  EXPECT_EQ(dumps("link/dump"), ELOOP);
  EXPECT_EQ(dumps("fifo"), ELOOP);
  EXPECT_EQ(dumps("ours/dump"), 0);
  close(reader);
}

// The limit is the file's size, then one byte less.
TEST_F(Files, a_definition_file_beyond_the_limit_is_refused) {
  const std::string records = "_SDR (\n_SDR_TYPE 01\n_REC_LEN 06\n01 00 51 01 01 AA\n)\n# end";
  const std::string block("\x5A\x08\x01\x00\x51\x01\x01\xAA", 8);
  const std::string request = "20 18 01\n20 18 46 02\n";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      {"--sdr text", records, "line 6: the file is too long\nload sdr file "},
      {"--sdr a.dat", std::string(16, 'h') + block + "end.",
       "offset 26: the file is too long\nload sdr file "},
      {"--fru text", "_FRU\n_DEV_ID 01\n// end", "line 3: the file is too long\nCannot read file "},
      {"--cfg text", request, "line 2: the file is too long\n"}};
  const uint64_t usual = file_limit;
  for (const auto& [line, content, says] : cases) {
    for (const char* name : {"text", "a.dat"}) put(name, content);
    file_limit = content.size();
    EXPECT_EQ(run(line).out.find("too long"), std::string::npos) << line;
    file_limit--;
    const RunResult refused = run(line);
    EXPECT_NE(refused.out.find(says), std::string::npos) << refused.out;
    EXPECT_EQ(refused.out.find("too long"), refused.out.rfind("too long")) << refused.out;
    EXPECT_EQ(refused.traffic.find("28 27"), std::string::npos) << "nothing is erased";
    EXPECT_EQ(refused.traffic.find("18 46 02"), std::string::npos) << "the script ends there";
  }
  file_limit = 100000;
  put("comment", "# " + std::string(200000, 'x'));  // counts, although it is not kept
  for (const char* line : {"--sdr /dev/zero", "--fru /dev/zero", "--cfg comment"})
    EXPECT_NE(run(line).out.find("line 1: the file is too long\n"), std::string::npos) << line;
  file_limit = usual;
}

TEST_F(Files, util_dat_is_no_pipe) {
  const std::string comments = "<SDR_COMMENT_TYPE1>\nfirst field\n";
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  ASSERT_GT(write(pipe_ends[1], comments.data(), comments.size()), 0);
  close(pipe_ends[1]);
  fs::create_symlink("/proc/self/fd/" + std::to_string(pipe_ends[0]), "util.dat");
  run("--sdrdump dump");
  EXPECT_EQ(content_of("dump").find("// first field"), std::string::npos);
  close(pipe_ends[0]);
}

TEST_F(Files, no_file_takes_the_place_of_a_closed_standard_stream) {
  run("--save usual");
  for (const char* streams : {"0", "1", "2", "01", "012"}) {
    const auto close_them = [streams] {
      for (const char* stream = streams; *stream != '\0'; stream++) close(*stream - '0');
      std::atexit([] {
        for (const int stream : {0, 1, 2}) {
          if (fcntl(stream, F_GETFD) < 0) std::_Exit(9);
        }
      });
    };
    EXPECT_EQ(run("--save dump", {.prepare = close_them}).status, 0) << streams;
    EXPECT_EQ(content_of("dump").size(), 0x2000U);
    EXPECT_TRUE(content_of("dump") == content_of("usual")) << streams;
  }
}

TEST_F(Files, lost_output_is_a_hint_on_a_terminal) {
  const std::string hint = "qarn: standard output could not be written: No space left on device\n";
  const auto fill = [] { dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); };
  const RunResult seen = run("-e 18 02", {.terminals = "2", .prepare = fill});
  EXPECT_EQ(seen.terminal + std::to_string(seen.status), hint + "0");
  EXPECT_EQ(run("-e 18 02", {.prepare = fill}).told(), "0");
  EXPECT_EQ(run("-d --stric", {.prepare = fill}).told(), hint + "2");
}

}  // namespace

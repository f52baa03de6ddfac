// Whole commands in a child process, console text, files.
#include "tests/harness.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "base/notice.h"
#include "platform/platform.h"
#include "textfile/quoted.h"
#include "transport/kcs_intf.h"
#include "transport/transaction.h"

int qarn_main(int argc, char** argv);

namespace {

struct FreshMachine : testing::EmptyTestEventListener {
  const std::filesystem::path source = std::filesystem::current_path();
  void OnTestStart(const testing::TestInfo&) override {
    sim::reset(sim::Kind::card);
    KCS_bounds = {20, 3};
    openIpmiFlag = strictFlag = exactFlag = 0;
    std::filesystem::current_path(source);
  }
};

[[maybe_unused]] const bool listens = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new FreshMachine);
  return true;
}();

// Removed with all its files when the test program ends, but not when a child of it ends.
struct Folder {
  std::string path = testing::TempDir() + "qarn_test_XXXXXX";
  pid_t owner = mkdtemp(path.data()) != nullptr ? getpid() : 0;
  ~Folder() {
    std::error_code ignored;
    if (getpid() == owner) std::filesystem::remove_all(path, ignored);
  }
};

const std::string& folder() {
  static Folder kept;
  return kept.path;
}

// Points a standard stream to the file; returns a handle to what it was.
int divert_to(const std::string& path, int stream, int flags = O_WRONLY | O_CREAT | O_TRUNC) {
  std::fflush(nullptr);
  const int before = dup(stream);
  const int file = open(path.c_str(), flags | O_CLOEXEC, 0600);
  dup2(file, stream);
  close(file);
  return before;
}

// What is written to the program's end of a terminal is read from ours.
struct Terminal {
  int ours = -1;
  int programs = -1;
};

// Types each line once it is asked for; all that comes to our end until the other one is closed.
std::string shown_on(const Terminal& terminal, std::vector<std::string> typed) {
  std::string text;
  for (char byte = 0; read(terminal.ours, &byte, 1) == 1;) {
    if (byte == '\n' && text.ends_with('\r')) text.pop_back();
    text += byte;
    if (typed.empty() || !text.ends_with(": ")) continue;
    const std::string line = typed.front() + "\n";
    EXPECT_EQ(write(terminal.ours, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    typed.erase(typed.begin());
  }
  close(terminal.ours);
  return text;
}

[[noreturn]] void run_child(const std::string& line, const Start& start, int terminal) {
  divert_to(file_with("run.in", start.input), STDIN_FILENO, O_RDONLY);
  divert_to(path_of("run.out"), STDOUT_FILENO);
  divert_to(path_of("run.err"), STDERR_FILENO);
  for (const char stream : start.terminals) dup2(terminal, stream - '0');
  close(terminal);
  sim::save_state(path_of("run.state"), sim::machine().bmc);
  sim::keep_state(path_of("run.state"));
  sim::keep_transcript(path_of("run.traffic"));
  if (!start.faults.empty()) sim::machine().bmc.faults = sim::faults(start.faults);
  if (start.prepare) start.prepare();
  std::istringstream text("qarn " + line);
  std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::exit(qarn_main(static_cast<int>(words.size()), arguments.data()));
}

// Sends the signal to a child that waits for something, and ends one that goes on waiting.
void end_waiting(pid_t child, int signal) {
  usleep(50000);
  kill(child, signal);
  siginfo_t ended = {};
  for (unsigned left = 100; left > 0 && ended.si_pid == 0; left--) {
    usleep(20000);
    waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT);
  }
  if (ended.si_pid == 0) kill(child, SIGKILL);
}

// The exit status of the child; a stop is noted, and ended.
int status_of(pid_t child, std::string* stopped) {
  for (int raw = 0; waitpid(child, &raw, WUNTRACED) == child;) {
    if (WIFEXITED(raw)) return WEXITSTATUS(raw);
    if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
    *stopped = content_of(path_of("run.out"));
    kill(child, SIGCONT);
  }
  return -1;
}

std::string taken(const std::string& name) {
  const std::string content = content_of(path_of(name));
  std::remove(path_of(name).c_str());
  return content;
}

std::string after_identity(const std::string& text, const std::string& mark) {
  const size_t at = text.find(mark);
  return at == std::string::npos ? text : text.substr(text.find('\n', at) + 1);
}

}  // namespace

void setting(const std::string& name, const std::string& value) {
  EXPECT_TRUE(sim::set_variable("QARN_SIM_" + name, value)) << name << "=" << value;
}

RunResult run(const std::string& line, const Start& start) {
  sim::machine();
  folder();
  std::fflush(nullptr);
  Terminal terminal;
  if (!start.terminals.empty()) {
    EXPECT_EQ(openpty(&terminal.ours, &terminal.programs, nullptr, nullptr, nullptr), 0);
  }
  const pid_t child = fork();
  if (child == 0) run_child(line, start, terminal.programs);
  close(terminal.programs);
  RunResult result;
  result.terminal = shown_on(terminal, start.typed);
  if (start.signal != 0) end_waiting(child, start.signal);
  result.status = status_of(child, &result.stopped);
  sim::load_state(path_of("run.state"), sim::machine().bmc);
  result.out = taken("run.out");
  result.err = taken("run.err");
  result.traffic = taken("run.traffic");
  result.said = after_identity(result.out, "IPMI Ver:");
  result.sent = after_identity(result.traffic, "18 01\n");
  const std::string errors = result.err + result.terminal;
  if (errors.find("Sanitizer") != std::string::npos) std::fputs(errors.c_str(), stderr);
  return result;
}

std::string RunResult::deeds() const {
  return out + "status " + std::to_string(status) + "\n" + traffic;
}

std::string RunResult::told() const {
  return err + std::to_string(status);
}

Heard run_for_all(const std::string& line) {
  const sim::Machine before = sim::machine();
  Heard heard;
  heard.script = run(line);
  sim::machine() = before;
  heard.person = run(line, {.terminals = "2"});
  sim::machine() = before;
  heard.strict = run("--strict " + line);
  EXPECT_EQ(heard.script.err, "");
  EXPECT_EQ(heard.person.deeds(), heard.script.deeds());
  return heard;
}

void expect_told(const Telling& telling) {
  SCOPED_TRACE(telling.line + " " + telling.faults);
  sim::machine().bmc.faults = sim::faults(telling.faults);
  const auto [script, person, strict] = run_for_all(telling.line);
  const std::string lines = each_line("qarn: ", telling.tells);
  const bool shown = person.terminal.find(lines) != std::string::npos;
  EXPECT_TRUE(lines.empty() || shown == telling.to_people) << person.terminal;
  EXPECT_EQ(script.status, telling.status);
  const bool failed = telling.status == 0 && !lines.empty();
  EXPECT_EQ(strict.told(), lines + std::to_string(failed ? 2 : telling.status));
  EXPECT_EQ(strict.out + strict.traffic, script.out + script.traffic);
}

std::string each_line(const std::string& before, const std::string& text) {
  std::istringstream lines(text);
  std::string all;
  for (std::string line; std::getline(lines, line);) all += before + line + "\n";
  return all;
}

std::string console_of(const std::function<void()>& action) {
  const int before = divert_to(path_of("console.out"), STDOUT_FILENO);
  action();
  std::fflush(stdout);
  dup2(before, STDOUT_FILENO);
  close(before);
  return taken("console.out");
}

std::string path_of(const std::string& name) {
  return folder() + "/" + name;
}

std::string file_with(const std::string& name, const std::string& content) {
  std::ofstream(path_of(name), std::ios::binary) << content;
  return path_of(name);
}

std::string new_fifo(const std::string& name) {
  std::remove(path_of(name).c_str());
  EXPECT_EQ(mkfifo(path_of(name).c_str(), 0600), 0);
  return path_of(name);
}

std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "(no file)";
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string repeated(size_t count, const std::string& text) {
  return count == 0 ? "" : text + repeated(count - 1, text);
}

bool everything() {
  return std::getenv("QARN_TEST_ALL") != nullptr;
}

unsigned generated() {
  return everything() ? 10000 : 300;
}

void open_kernel_device() {
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
}

std::string memory_file() {
  return "/proc/self/fd/" + std::to_string(memfd_create("text", MFD_CLOEXEC));
}

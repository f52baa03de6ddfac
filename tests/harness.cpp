// Whole commands in a child process, console text, files.
#include "tests/harness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

int qarn_main(int argc, char** argv);

namespace {

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
int divert_to(const std::string& path, int stream = STDOUT_FILENO) {
  std::fflush(nullptr);
  const int before = dup(stream);
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(file, stream);
  close(file);
  return before;
}

// A terminal: what is written to the program's end is read from ours. -1: there is none.
struct Terminal {
  int ours = -1;
  int programs = -1;
};

Terminal new_terminal() {
  const int ours = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (ours < 0 || grantpt(ours) != 0 || unlockpt(ours) != 0) return {};
  return {ours, open(ptsname(ours), O_RDWR | O_NOCTTY | O_CLOEXEC)};
}

// All that comes to our end of a terminal until its other end is closed, with plain line ends.
std::string shown_on(int ours) {
  std::string text;
  char bytes[4096];
  for (ssize_t count = 1; ours >= 0 && count > 0;) {
    count = read(ours, bytes, sizeof bytes);
    for (ssize_t i = 0; i < count; i++) {
      if (bytes[i] != '\r' || i + 1 == count || bytes[i + 1] != '\n') text += bytes[i];
    }
  }
  if (ours >= 0) close(ours);
  return text;
}

[[noreturn]] void run_child(std::vector<std::string> words, int terminal) {
  close(divert_to(path_of("run.out")));
  if (terminal >= 0) {
    dup2(terminal, STDERR_FILENO);
  } else {
    close(divert_to(path_of("run.err"), STDERR_FILENO));
  }
  sim::save_state(path_of("run.state"), sim::machine().bmc);
  sim::keep_state(path_of("run.state"));
  sim::keep_transcript(path_of("run.traffic"));
  words.insert(words.begin(), "qarn");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::exit(qarn_main(static_cast<int>(words.size()), arguments.data()));
}

std::string taken(const std::string& name) {
  const std::string content = content_of(path_of(name));
  std::remove(path_of(name).c_str());
  return content;
}

}  // namespace

RunResult run(const std::vector<std::string>& words, bool on_terminal) {
  sim::machine();
  folder();
  std::fflush(nullptr);
  const Terminal terminal = on_terminal ? new_terminal() : Terminal{};
  const pid_t child = fork();
  if (child == 0) run_child(words, terminal.programs);
  if (terminal.programs >= 0) close(terminal.programs);
  std::string err = shown_on(terminal.ours);
  int raw = 0;
  const bool ended = child > 0 && waitpid(child, &raw, 0) == child;
  int status = -1;
  if (ended && WIFEXITED(raw)) status = WEXITSTATUS(raw);
  if (ended && WIFSIGNALED(raw)) status = 128 + WTERMSIG(raw);
  sim::load_state(path_of("run.state"), sim::machine().bmc);
  if (!on_terminal) err = taken("run.err");
  if (err.find("Sanitizer") != std::string::npos) std::fputs(err.c_str(), stderr);
  return {status, taken("run.out"), err, taken("run.traffic")};
}

std::string after_identity(const std::string& text) {
  for (const char* mark : {"IPMI Ver:", "18 01\n"}) {
    const size_t at = text.find(mark);
    if (at != std::string::npos) return text.substr(text.find('\n', at) + 1);
  }
  return text;
}

std::string console_of(const std::function<void()>& action) {
  const int before = divert_to(path_of("console.out"));
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

std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "(no file)";
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

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

// Removed with all its files when the test program ends; a child only borrows it.
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

// Points standard output to the file; returns a handle to what it was.
int divert_to(const std::string& path) {
  std::fflush(stdout);
  const int before = dup(STDOUT_FILENO);
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(file, STDOUT_FILENO);
  close(file);
  return before;
}

[[noreturn]] void run_child(std::vector<std::string> words) {
  close(divert_to(path_of("run.out")));
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

RunResult run(const std::vector<std::string>& words) {
  sim::machine();
  folder();
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) run_child(words);
  int raw = 0;
  const bool ended = child > 0 && waitpid(child, &raw, 0) == child;
  int status = -1;
  if (ended && WIFEXITED(raw)) status = WEXITSTATUS(raw);
  if (ended && WIFSIGNALED(raw)) status = 128 + WTERMSIG(raw);
  sim::load_state(path_of("run.state"), sim::machine().bmc);
  return {status, taken("run.out"), taken("run.traffic")};
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

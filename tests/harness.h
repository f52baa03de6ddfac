// What all tests share: a simulated machine, whole commands in a child process, files, console
// text.
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "sim/machine.h"

// A whole command, run in a child process on a copy of sim::machine().
struct RunResult {
  int status;           // exit status as a shell sees it
  std::string out;      // standard output
  std::string err;      // standard error
  std::string traffic;  // sim::transcript() of the child
};

// Runs "qarn WORDS..."; standard error is a file, or a terminal when `on_terminal` is set.
// Afterwards sim::machine().bmc holds what the child's BMC held at its end, as far as a state file
// keeps it: not the queue, the clock and the faults.
RunResult run(const std::vector<std::string>& words, bool on_terminal = false);

// What a run said (RunResult::out) or sent (RunResult::traffic) after the identity of the BMC.
std::string after_identity(const std::string& text);

// Standard output of `action`, run in this process.
std::string console_of(const std::function<void()>& action);

// A file in the test's own temporary folder: its path, after writing `content` to it.
std::string file_with(const std::string& name, const std::string& content);
std::string path_of(const std::string& name);
// The whole file, or "(no file)".
std::string content_of(const std::string& path);

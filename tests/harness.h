// What all tests share: a simulated machine, whole commands in a child process, files, console
// text. Each test begins with a fresh machine that has the card, and waits a moment for its ports.
#pragma once
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "sim/machine.h"

// How a run starts, where it differs from one with empty standard input, output and errors to
// files.
struct Start {
  std::string faults = {};              // what goes wrong, in the words of sim/faults.h
  std::string input = {};               // standard input
  std::string terminals = {};           // streams that are a terminal; "2" is standard error
  std::vector<std::string> typed = {};  // a line each time that the terminal shows ": "
  int signal = 0;                       // comes after a while, for a run that waits
  std::function<void()> prepare = {};   // what else the process does first
};

// A whole command, run in a child process on a copy of sim::machine().
struct RunResult {
  int status = -1;       // exit status as a shell sees it
  std::string out;       // standard output
  std::string err;       // standard error
  std::string terminal;  // what was shown on the terminal, with plain line ends
  std::string stopped;   // standard output at the moment when the process was stopped
  std::string traffic;   // sim::transcript() of the child
  std::string said;      // `out` after the identity of the BMC
  std::string sent;      // `traffic` likewise

  // Standard output, the exit status and all that was sent; standard error and the exit status.
  std::string deeds() const;
  std::string told() const;
};

// Sets the machine up in the words of sim/environment.cpp: setting("LOCK", "4711").
void setting(const std::string& name, const std::string& value);

// Runs "qarn LINE"; blanks separate its words. Afterwards sim::machine().bmc holds what the child's
// BMC held at its end, as far as a state file keeps it: not the queue, the clock and the faults.
RunResult run(const std::string& line, const Start& start = {});

// The run of a script, of a person at a terminal and with --strict, each on the machine as it is
// now. A script must be told nothing, and a person sees nothing but more on standard error.
struct Heard {
  RunResult script, person, strict;
};
Heard run_for_all(const std::string& line);

// What a run has to say beside its output: lines that begin with "qarn: ", here without it.
struct Telling {
  const char* faults = "";
  std::string line = {};
  std::string tells = {};
  bool to_people = false;  // at a terminal, too; else with --strict alone
  int status = 0;          // without --strict, which makes 2 of a 0 when there is something to tell
};
void expect_told(const Telling& telling);
// The lines of the text, each with this before it.
std::string each_line(const std::string& before, const std::string& text);

// Standard output of `action`, run in this process.
std::string console_of(const std::function<void()>& action);

// A file in the test's own temporary folder: its path, after writing `content` to it.
std::string file_with(const std::string& name, const std::string& content);
std::string path_of(const std::string& name);
std::string new_fifo(const std::string& name);
// The whole file, or "(no file)".
std::string content_of(const std::string& path);

std::string repeated(size_t count, const std::string& text);

// Whether QARN_TEST_ALL asks for all inputs; how many generated ones a test takes.
bool everything();
unsigned generated();
// A test in this process goes over the kernel's device, and writes to a file in memory.
void open_kernel_device();
std::string memory_file();

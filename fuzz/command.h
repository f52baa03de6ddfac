// A whole command, the process it gets, and what must hold after it.
#pragma once
#include <algorithm>
#include <map>

#include "frontend/options.h"
#include "fuzz/fuzz.h"

namespace fuzz {

// Standard streams are named by their digits, "02".
struct Command {
  std::vector<std::string> words = {};
  std::map<std::string, std::string> files = {};  // by name, as they are before it
  std::string terminals = {};                     // these streams are terminals
  std::string closed = {};                        // of input and output, these are closed
  bool full = false;                              // standard output is a device that is full
  int signal = 0;                                 // comes while the run goes on; 0: none
  unsigned looks = 0;                             // so many looks for a signal come before it
};

struct Run {
  Command command = {};
  bool parsed = false;  // whether the words were accepted
  Options options = {};
  std::string err = {};  // what it wrote to standard error
  int gave = 0;          // exit status that the program gave, before a signal
};

// Runs the command on the simulated machine, in a child process that also checks what became of it;
// here nothing changes but what counts as executed. Aborts on a finding.
void run(const Command& command);

// Aborts unless
// - words that are refused send no request;
// - a dump is whole or as it was, and no other file is changed, or left;
// - the card has left its downloader, or was asked to, or the way to it is lost and that is said;
// - the KCS interface is idle, or the BMC holds it, or the next run finds its way.
void check(const Run& run);

// The standard streams as files of the command's folder, and two links to a file; these, and the
// file "dump" unless the command has one, hold OLDER.
inline constexpr const char* STREAMS[] = {"stdin", "stdout", "stderr"};
inline constexpr const char* HARD_LINKS[] = {"hard", "same"};
inline constexpr char OLDER[] = "an older dump\n";

inline bool is_among(auto&& list, const std::string& text) {
  return std::find(std::begin(list), std::end(list), text) != std::end(list);
}

inline bool names(const std::string& streams, int stream) {
  return streams.find(static_cast<char>('0' + stream)) != std::string::npos;
}

}  // namespace fuzz

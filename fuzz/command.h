// A whole command, in a process of its own.
#pragma once
#include <algorithm>
#include <map>

#include "frontend/options.h"
#include "fuzz/fuzz.h"

namespace fuzz {

struct Command {
  std::vector<std::string> words = {};
  std::map<std::string, std::string> files = {};  // by name, as they are before it
  // Standard streams are named by their digits, "02".
  std::string terminals = {};
  std::string closed = {};  // at the start; never standard error
  bool full = false;        // standard output is a device that is full
  unsigned signal = 0;      // comes while the run goes on; 0: none
  unsigned looks = 0;       // so many looks for a signal come before it

  // What became of it.
  bool parsed = false;  // whether the words were accepted
  Options options = {};
  int gave = 0;  // exit status, were it not for a signal
  std::string err = {};
};

// Runs it on the simulated machine, in a child process that also checks it; nothing changes here
// but what counts as executed. Aborts on a finding.
void run(const Command& command);

// Aborts unless
// - words that are refused send no request;
// - a dump is whole or as it was, and no other file is changed, or left;
// - the card has left its downloader, or was asked to, or the way to it is lost and that is said;
// - the KCS interface is idle, or no answer came, and the next run finds its way, unless the BMC
//   holds it;
// - a signal that came ends the run (the process looks at that).
void check(const Command& command);

// What the file "dump" holds before a run, and one that has these two names.
inline constexpr char OLDER[] = "an older dump\n";
inline constexpr const char* HARD_LINKS[] = {"hard", "same"};

template <typename List>
bool is_among(const List& list, const auto& item) {
  return std::find(std::begin(list), std::end(list), item) != std::end(list);
}

}  // namespace fuzz

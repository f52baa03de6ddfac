// What must hold after a whole command, whatever went wrong.
#pragma once
#include <algorithm>
#include <iterator>
#include <map>
#include <string>

#include "frontend/options.h"
#include "fuzz/process.h"

namespace fuzz {

// What the files "dump" and the two hard links hold before a run.
inline constexpr char OLDER[] = "an older dump\n";
inline constexpr char HARD_LINKS[][5] = {"hard", "same"};

// A command that was run in the current folder on the simulated machine, and what became of it.
struct Run {
  Process process;
  std::map<std::string, std::string> files = {};  // by name, as they were before it
  bool parsed = false;                            // whether the words were accepted
  Options options = {};
  Result result = {};
};

// Aborts unless
// - words that are refused send no request;
// - a dump is whole or as it was, and no other file is changed, or left;
// - the card has left its downloader, or was asked to, or the way to it is lost and that is said;
// - the KCS interface is idle, or the BMC holds it, or the next run finds its way.
void check(const Run& run);

template <typename List>
bool is_among(const List& list, const std::string& text) {
  return std::find(std::begin(list), std::end(list), text) != std::end(list);
}

}  // namespace fuzz

// The process around a whole command, in place of platform/process.cpp and base/process_end.cpp:
// its signals and terminals are data, and its end comes back to the fuzz target.
#pragma once
#include <string>
#include <vector>

namespace fuzz {

// Standard streams are named by their digits, "02".
struct Process {
  std::string terminals;  // these are terminals
  std::string closed;     // these are closed at the start; never standard error
  bool full = false;      // standard output is a device that is full
  int signal = 0;         // comes while the run goes on; 0: none
  unsigned looks = 0;     // so many looks for a signal come before it
};

struct Result {
  bool given_up;  // it took too long: nothing else is known
  int gave;       // exit status that the program gave
  int status;     // as a shell sees it, a signal included
  std::string err;
};

// Runs "qarn WORDS..." in the current folder, standard input and output the files INPUT and OUTPUT
// in it. `saving`: it saves a firmware.
Result run(const Process& process, std::vector<std::string> words, bool saving);
inline constexpr char INPUT[] = "stdin";
inline constexpr char OUTPUT[] = "stdout";

}  // namespace fuzz

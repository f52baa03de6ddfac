// The state file: a line "name hex" for each of the BMC's contents.
#include "sim/state_file.h"

#include <cstdio>
#include <fstream>

#include "sim/text.h"

namespace sim {

bool load_state(const std::string& path, Bmc& bmc) {
  std::ifstream file(path);
  if (!file) return false;
  State state;
  std::string line;
  while (std::getline(file, line)) {
    const size_t blank = line.find(' ');
    Bytes bytes;
    if (blank == std::string::npos || !parse_hex(line.substr(blank + 1), bytes)) continue;
    state[line.substr(0, blank)] = bytes;
  }
  restore(bmc, state);
  return true;
}

bool save_state(const std::string& path, const Bmc& bmc) {
  State state;
  store(bmc, state);
  const std::string partial = path + ".new";
  FILE* file = std::fopen(partial.c_str(), "we");
  if (file == nullptr) return false;
  for (const auto& [name, bytes] : state) {
    const std::string line = name + ' ' + hex_text(bytes, "") + '\n';
    std::fwrite(line.data(), 1, line.size(), file);
  }
  const bool sound = std::ferror(file) == 0;
  const bool written = std::fclose(file) == 0 && sound;
  if (written && std::rename(partial.c_str(), path.c_str()) == 0) return true;
  std::remove(partial.c_str());
  return false;
}

}  // namespace sim

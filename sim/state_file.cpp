// The state file: a line "name hex" for each of the BMC's contents.
#include "sim/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "sim/text.h"

namespace sim {

namespace {

bool is_state_line(const std::string& line) {
  const size_t blank = line.find(' ');
  Bytes unused;
  return blank != std::string::npos && parse_hex(line.substr(blank + 1), unused);
}

}  // namespace

bool can_keep_state(const std::string& path) {
  std::error_code failed;
  if (!std::filesystem::exists(path, failed)) return !failed;
  if (!std::filesystem::is_regular_file(path, failed)) return false;
  std::ifstream file(path);
  std::string line;
  return file && (!std::getline(file, line) || is_state_line(line));
}

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
  std::string partial = path + ".XXXXXX";
  const int handle = mkostemp(partial.data(), O_CLOEXEC);  // for its owner only: it holds passwords
  FILE* file = handle < 0 ? nullptr : fdopen(handle, "w");
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

// The state file: a line "name hex" for each of the BMC's contents.
#include <cstdio>
#include <fstream>
#include <string>

#include "sim/machine.h"

namespace sim {

namespace {

constexpr char DIGITS[] = "0123456789ABCDEF";

int digit_value(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

}  // namespace

std::string hex_text(const Bytes& bytes) {
  std::string text;
  text.reserve(bytes.size() * 3);
  for (const uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 0x0F];
  }
  return text;
}

bool parse_hex(const std::string& text, Bytes& bytes) {
  Bytes parsed;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const int high = digit_value(text[i]);
    const int low = digit_value(text[i + 1]);
    if (high < 0 || low < 0) return false;
    parsed.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  if (text.size() % 2 != 0) return false;
  bytes = parsed;
  return true;
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

// Whole or not at all: a reader never sees half a file.
bool save_state(const std::string& path, const Bmc& bmc) {
  State state;
  store(bmc, state);
  const std::string partial = path + ".new";
  FILE* file = std::fopen(partial.c_str(), "we");
  if (file == nullptr) return false;
  std::string line;
  for (const auto& [name, bytes] : state) {
    line = name + ' ';
    for (const uint8_t byte : bytes) {
      line += DIGITS[byte >> 4];
      line += DIGITS[byte & 0x0F];
    }
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), file);
  }
  const bool sound = std::ferror(file) == 0;
  const bool written = std::fclose(file) == 0 && sound;
  if (written && std::rename(partial.c_str(), path.c_str()) == 0) return true;
  std::remove(partial.c_str());
  return false;
}

}  // namespace sim

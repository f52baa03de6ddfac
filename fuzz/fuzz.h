// What the fuzz targets share: taking an input apart, files, a fresh machine, a check.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "platform/platform.h"
#include "sim/machine.h"
#include "transport/transaction.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);

namespace fuzz {

// Makes a fresh machine without a fault, the kernel's device open, and returns the input. Over that
// device a failed transaction returns; over the ports it would end the process.
inline std::string start(const uint8_t* bytes, size_t size) {
  sim::reset(sim::Kind::card);
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
  return {bytes, bytes + size};
}

// The input's first byte, which goes; 0 when there is none.
inline uint8_t take(std::string* input) {
  const char first = input->empty() ? '\0' : input->front();
  input->erase(0, 1);
  return static_cast<uint8_t>(first);
}

// Writes a file in the current folder, which is the target's own; returns its name.
inline const char* file(const char* name, const std::string& content) {
  std::ofstream(name, std::ios::binary) << content;
  return name;
}

inline std::string content_of(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// A condition that does not hold is a finding: the process aborts, and says where.
inline void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: this does not hold\n", file, line);
  std::abort();
}

}  // namespace fuzz

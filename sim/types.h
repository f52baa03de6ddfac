// The types that all parts of the simulated server share: bytes, replies, commands, clock.
#pragma once
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "transport/ipmi.h"

namespace sim {

using Bytes = std::vector<uint8_t>;

// Named contents, as a state file holds them: one line a name, its bytes in hexadecimal. A name has
// no blanks.
using State = std::map<std::string, Bytes>;

struct Reply {
  uint8_t completion = COMPLETED;
  Bytes data = {};
};

struct Bmc;

// One command that the BMC knows: NetFn as the request's byte has it (LUN 0), number, and what it
// answers to the request's data. A command in no table is answered with 0xC1.
struct Command {
  uint8_t netfn;
  uint8_t number;
  Reply (*answer)(Bmc& bmc, const Bytes& data);
};

// What becomes of one request.
struct Answer {
  Bytes bytes = {};  // NetFn/LUN, command, completion code, data
  bool silent = false;
  bool no_dummy = false;
  bool attention = false;
  bool power_cut = false;
  unsigned stall = 0;
  unsigned late_s = 0;
  int read_error = -1;
};

// The server's clock. It moves only in a pause, or when its owner sets it.
struct Clock {
  uint64_t now_us = 0;          // since the start
  uint32_t epoch = 1700000000;  // the start, in seconds since 1970
};

inline constexpr uint64_t SECOND_US = 1000000;

// In seconds since 1970.
inline uint32_t seconds(const Clock& clock) {
  return clock.epoch + static_cast<uint32_t>(clock.now_us / SECOND_US);
}

}  // namespace sim

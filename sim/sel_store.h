// System Event Log of the simulated BMC.
#pragma once
#include <array>

#include "sim/repository.h"

namespace sim {

inline constexpr size_t SEL_MOST = REPOSITORY_MOST;
inline constexpr size_t SEL_RECORD = 16;  // bytes; the first two are the record ID

struct SelStore : Repository {
  std::vector<std::array<uint8_t, SEL_RECORD>> records = {
      // ID, type, time, generator, format, sensor type and number, direction and type, data
      {1, 0, 0x02, 0, 0xF1, 0x53, 0x65, 0x20, 0, 0x04, 0x10, 0x09, 0x6F, 0x42, 0xFF, 0xFF},
      {2, 0, 0x02, 0x2C, 0xF1, 0x53, 0x65, 0x20, 0, 0x04, 0x01, 0x30, 0x01, 0x57, 0x5F, 0x5A},
      {3, 0, 0x02, 0x90, 0xF1, 0x53, 0x65, 0x20, 0, 0x04, 0x08, 0x51, 0x6F, 0x01, 0xFF, 0xFF},
  };
};

std::span<const Command> sel_commands();
void store(const SelStore& from, State& state);
void restore(SelStore& to, const State& state);

}  // namespace sim

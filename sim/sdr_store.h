// Sensor Data Record repository of the simulated BMC.
#pragma once
#include "sim/repository.h"

namespace sim {

inline constexpr size_t SDR_HEADER = 5;  // ID (2), version, type, length of the body

// Records as they are read, header included, by record ID.
using SdrRecords = std::map<uint16_t, Bytes>;

// A dozen records of a server board: every type that a tool prints, and one of an OEM.
SdrRecords sample_sdr_records();

struct SdrStore : Repository {
  SdrRecords records = sample_sdr_records();
  bool partial_add = true;   // false: Partial Add SDR is no command of this BMC
  unsigned erase_polls = 0;  // how often an erase reports that it is still in progress
  size_t longest_read = 64;  // record bytes in one Get SDR answer, 0xCA beyond

  unsigned erase_left = 0;  // of erase_polls
  uint16_t open_id = 0;     // the record that Partial Add is building; 0: none
  Bytes open;
};

std::span<const Command> sdr_commands();
void store(const SdrStore& from, State& state);
void restore(SdrStore& to, const State& state);

}  // namespace sim

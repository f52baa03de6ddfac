// FRU inventory devices of the simulated BMC.
#pragma once
#include "sim/types.h"

namespace sim {

struct FruDevice {
  Bytes contents;              // what reads and writes reach
  int claimed_size = -1;       // what Get FRU Inventory Area Info reports; -1: the real size
  unsigned answer_limit = 0;   // a read returns at most so many bytes; 0: as many as asked
  int protected_from = -1;     // writes that reach this offset are refused with 0x80; -1: none
  bool reads_past_end = true;  // cut at the end; false: refused
  uint8_t refusal = 0;         // completion code of every read and write, e.g. 0x81: busy
};

// The image of a small server: chassis, board, product and one multi-record, 112 bytes.
Bytes example_fru_image();
// A device of `size` bytes that begins with `image`.
FruDevice fru_device(const Bytes& image, size_t size);

struct FruStore {
  std::map<uint8_t, FruDevice> devices = {{uint8_t{0}, fru_device(example_fru_image(), 1024)}};
};

std::span<const Command> fru_commands();
void store(const FruStore& from, State& state);
void restore(FruStore& to, const State& state);

}  // namespace sim

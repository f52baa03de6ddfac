// Numbers on the wire: least significant byte first.
#pragma once
#include <cstdint>

namespace sim {

inline uint16_t word(const uint8_t* bytes) {
  return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

// `at`: an iterator, or std::back_inserter of the bytes to append to.
template <typename Target>
void put(Target at, uint32_t value, unsigned size) {
  for (unsigned i = 0; i < size; i++) *at++ = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace sim

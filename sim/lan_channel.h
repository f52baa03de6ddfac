// The LAN channel of the simulated BMC.
#pragma once
#include "sim/types.h"

namespace sim {

struct LanChannel {
  uint8_t number = 1;
  // Data by parameter selector; a parameter that is not here is not supported.
  std::map<uint8_t, Bytes> parameters = {
      {0, {0}},                                   // set in progress
      {3, {192, 168, 1, 10}},                     // IP address
      {4, {0x01}},                                // its source: static
      {5, {0x00, 0x0E, 0x0C, 0x44, 0x10, 0x01}},  // MAC address
      {6, {255, 255, 255, 0}},                    // subnet mask
      {10, {0x00}},                               // BMC-generated ARPs: none
      {12, {192, 168, 1, 1}},                     // default gateway
  };
  Bytes card_mac = {0x00, 0x0E, 0x0C, 0x44, 0x10, 0x02};  // what the card says of itself
};

std::span<const Command> lan_commands();
void store(const LanChannel& from, State& state);
void restore(LanChannel& to, const State& state);

}  // namespace sim

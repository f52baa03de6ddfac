// One KCS interface of the simulated BMC: data register and command/status register.
#pragma once
#include <cstdint>

#include "sim/bmc.h"

namespace sim {

struct Kcs {
  uint16_t command_port;
  uint16_t data_port;
};

}  // namespace sim

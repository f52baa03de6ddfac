// Sensor Data Record repository of the simulated BMC.
#include "sim/bmc.h"

namespace sim {

std::span<const Command> sdr_commands() {
  return {};
}
void store(const SdrStore&, State&) {
}
void restore(SdrStore&, const State&) {
}

}  // namespace sim

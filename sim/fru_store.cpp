// FRU inventory devices of the simulated BMC.
#include "sim/bmc.h"

namespace sim {

std::span<const Command> fru_commands() {
  return {};
}
void store(const FruStore&, State&) {
}
void restore(FruStore&, const State&) {
}

}  // namespace sim

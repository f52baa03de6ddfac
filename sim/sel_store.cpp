// System Event Log of the simulated BMC.
#include "sim/bmc.h"

namespace sim {

std::span<const Command> sel_commands() {
  return {};
}
void store(const SelStore&, State&) {
}
void restore(SelStore&, const State&) {
}

}  // namespace sim

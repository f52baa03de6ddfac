// Application commands of the simulated BMC: identity, users, resets, messaging.
#include "sim/bmc.h"

namespace sim {

std::span<const Command> app_commands() {
  return {};
}
void store(const App&, State&) {
}
void restore(App&, const State&) {
}

}  // namespace sim

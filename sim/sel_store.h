// System Event Log of the simulated BMC.
#pragma once

namespace sim {

struct SelStore {};

std::span<const Command> sel_commands();
void store(const SelStore& from, State& state);
void restore(SelStore& to, const State& state);

}  // namespace sim

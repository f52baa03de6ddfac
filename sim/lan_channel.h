// LAN channel 1 of the simulated BMC.
#pragma once

namespace sim {

struct LanChannel {};

std::span<const Command> lan_commands();
void store(const LanChannel& from, State& state);
void restore(LanChannel& to, const State& state);

}  // namespace sim

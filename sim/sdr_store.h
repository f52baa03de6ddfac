// Sensor Data Record repository of the simulated BMC.
#pragma once

namespace sim {

struct SdrStore {};

std::span<const Command> sdr_commands();
void store(const SdrStore& from, State& state);
void restore(SdrStore& to, const State& state);

}  // namespace sim

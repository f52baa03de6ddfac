// FRU inventory devices of the simulated BMC.
#pragma once

namespace sim {

struct FruStore {};

std::span<const Command> fru_commands();
void store(const FruStore& from, State& state);
void restore(FruStore& to, const State& state);

}  // namespace sim

// Application commands of the simulated BMC: identity, users, resets, messaging.
#pragma once

namespace sim {

struct App {};

std::span<const Command> app_commands();
void store(const App& from, State& state);
void restore(App& to, const State& state);

}  // namespace sim

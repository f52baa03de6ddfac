// The daughter card's downloader and flash.
#pragma once

namespace sim {

struct Card {};

std::span<const Command> card_commands();
void store(const Card& from, State& state);
void restore(Card& to, const State& state);

}  // namespace sim

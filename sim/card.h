// The daughter card's downloader and flash.
#pragma once

namespace sim {

struct Card {};

std::span<const Command> card_commands();
// Cold Reset: what it does to the card, and how long it stays away (Bmc::back_at_us).
void card_reset(Bmc& bmc);
void store(const Card& from, State& state);
void restore(Card& to, const State& state);

}  // namespace sim

// The daughter card's downloader and flash.
#include "sim/bmc.h"

namespace sim {

std::span<const Command> card_commands() {
  return {};
}
void card_reset(Bmc&) {
}
void store(const Card&, State&) {
}
void restore(Card&, const State&) {
}

}  // namespace sim

// The daughter card's downloader and flash.
#pragma once
#include "sim/types.h"

namespace sim {

struct Card {
  uint32_t flash_base = 0xFFF00000;
  uint32_t flash_size = 0x10000;
  uint32_t update_start = 0xFFF04000;
  uint8_t block_size = 128;
  uint8_t chunk_size = 32;
  std::string access_code = "DOWNLOAD";
  // After a reset: unreachable for so long, then for so long with "update in progress" reported.
  uint64_t away_us = 3000000;
  uint64_t ready_us = 7000000;

  Bytes flash = {};  // read it through card_flash: empty until then

  // State of the downloader.
  bool in_downloader = false;
  uint64_t ready_at_us = 0;  // on the machine's clock
  Bytes block = {};          // the block that arrives, empty when none does
  uint32_t block_address = 0;
  unsigned chunks = 0;  // of that block, so far
};

// The flash as it is now. That of a new card holds random bytes, the same for every card, and is
// erased after them.
Bytes& card_flash(Card& card);

std::span<const Command> card_commands();
// In the downloader only its own requests, resets and Get Device ID are answered.
bool card_answers(const Bmc& bmc, uint8_t netfn, uint8_t command);
// The top bit of the firmware revision: an update or a start is in progress.
bool card_is_updating(const Bmc& bmc);
// Either reset: what it does to the card, and how long it stays away (Bmc::back_at_us).
void card_reset(Bmc& bmc);
// Half of the block that has arrived gets into the flash.
void card_power_cut(Card& card);
void store(const Card& from, State& state);
void restore(Card& to, const State& state);

}  // namespace sim

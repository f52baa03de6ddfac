// The daughter card's downloader and flash.
#include <algorithm>
#include <string>

#include "sim/bmc.h"

namespace sim {

namespace {

constexpr size_t ADDRESS_SIZE = 4;
constexpr size_t CHUNK_HEADER = 5;  // address, flags
constexpr uint8_t FIRST_CHUNK = 0x80;
constexpr uint8_t LAST_CHUNK = 0x40;
constexpr uint8_t BLOCK_PROGRAMMED = 0;
constexpr uint8_t ERASED = 0xFF;
constexpr uint64_t ANSWER_US = 100000;  // time for the answer to a reset to be read
constexpr size_t FIRMWARE_SIZE = 8192;  // of what a new card has from its update start on
constexpr size_t MOST_FLASH = size_t{16} << 20;
constexpr char FLASH_NAME[] = "card.flash";

uint32_t address_of(const Bytes& data) {
  uint32_t address = 0;
  for (size_t i = 0; i < ADDRESS_SIZE; i++) address = address << 8 | data[i];
  return address;
}

void append_number(Bytes& bytes, uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes.push_back(static_cast<uint8_t>(number >> shift));
}

Reply enter_downloader(Bmc& bmc, const Bytes& data) {
  const std::string& code = bmc.card.access_code;
  if (data.size() != code.size()) return {INVALID_LENGTH, {}};
  if (!std::equal(data.begin(), data.end(), code.begin())) return {INVALID_DATA, {}};
  bmc.card.in_downloader = true;
  bmc.card.block.clear();
  return {};
}

// Update start, block size, chunk size, 2 unused bytes, flash size, flash base.
Reply get_update_information(Bmc& bmc, const Bytes&) {
  const Card& card = bmc.card;
  Bytes bytes;
  append_number(bytes, card.update_start);
  bytes.insert(bytes.end(), {card.block_size, card.chunk_size, 0, 0});
  append_number(bytes, card.flash_size);
  append_number(bytes, card.flash_base);
  return {COMPLETED, bytes};
}

// Address, 0, count; answered with the count and the bytes, erased ones beyond the flash.
Reply read_flash(Bmc& bmc, const Bytes& data) {
  constexpr size_t LENGTH = ADDRESS_SIZE + 2;
  if (data.size() != LENGTH) return {INVALID_LENGTH, {}};
  const Bytes& flash = card_flash(bmc.card);
  const uint64_t offset = uint64_t{address_of(data)} - bmc.card.flash_base;
  Bytes bytes = {data[5]};
  for (size_t i = 0; i < data[5]; i++) {
    bytes.push_back(offset + i < flash.size() ? flash[offset + i] : ERASED);
  }
  return {COMPLETED, bytes};
}

// Where a block may begin.
bool begins_block(const Card& card, uint32_t address) {
  const uint64_t end = uint64_t{card.flash_base} + card.flash_size;
  return address >= card.update_start && address < end && card.block_size > 0 &&
         (address - card.update_start) % card.block_size == 0;
}

unsigned chunks_of_block(const Card& card) {
  return card.chunk_size > 0 ? card.block_size / card.chunk_size : 0U;
}

uint8_t expected_flags(const Card& card) {
  if (card.chunks == 0) return FIRST_CHUNK;
  return card.chunks + 1 == chunks_of_block(card) ? LAST_CHUNK : 0;
}

// Address, flags, one chunk. Chunks come in order and side by side; those of an erased block may
// all name the block's address.
Reply write_chunk(Bmc& bmc, const Bytes& data) {
  Card& card = bmc.card;
  if (data.size() != CHUNK_HEADER + card.chunk_size) return {INVALID_LENGTH, {}};
  const uint32_t address = address_of(data);
  if (data[ADDRESS_SIZE] & FIRST_CHUNK) {
    if (!begins_block(card, address)) return {PARAMETER_OUT_OF_RANGE, {}};
    card.block.assign(card.block_size, ERASED);
    card.block_address = address;
    card.chunks = 0;
  }
  if (card.block.empty() || card.chunks >= chunks_of_block(card)) return {WRONG_STATE, {}};
  if (data[ADDRESS_SIZE] != expected_flags(card)) return {INVALID_DATA, {}};
  const auto chunk = data.begin() + CHUNK_HEADER;
  const bool erased = std::all_of(chunk, data.end(), [](uint8_t byte) { return byte == ERASED; });
  const size_t offset = size_t{card.chunks} * card.chunk_size;
  if (address != card.block_address + offset && !(erased && address == card.block_address)) {
    return {PARAMETER_OUT_OF_RANGE, {}};
  }
  std::copy(chunk, data.end(), card.block.begin() + static_cast<std::ptrdiff_t>(offset));
  card.chunks++;
  return {};
}

void program(Card& card, size_t count) {
  Bytes& flash = card_flash(card);
  const uint64_t offset = uint64_t{card.block_address} - card.flash_base;
  for (size_t i = 0; i < std::min(count, card.block.size()); i++) {
    if (offset + i < flash.size()) flash[offset + i] = card.block[i];
  }
}

Reply program_block(Bmc& bmc, const Bytes&) {
  Card& card = bmc.card;
  if (card.block.empty() || card.chunks != chunks_of_block(card)) return {WRONG_STATE, {}};
  program(card, card.block.size());
  card.block.clear();
  return {COMPLETED, {BLOCK_PROGRAMMED}};
}

constexpr Command COMMANDS[] = {
    {NETFN_FIRMWARE, GET_FLASH_INFORMATION, get_update_information},
    {NETFN_FIRMWARE, ENTER_DOWNLOADER, enter_downloader},
    {NETFN_FIRMWARE, READ_FLASH, read_flash},
    {NETFN_FIRMWARE, WRITE_FLASH_CHUNK, write_chunk},
    {NETFN_FIRMWARE, END_FLASH_BLOCK, program_block},
};

}  // namespace

Bytes& card_flash(Card& card) {
  const size_t size = std::min<size_t>(card.flash_size, MOST_FLASH);
  const size_t known = card.flash.size();
  if (known == size) return card.flash;
  card.flash.resize(size);
  const size_t used = size_t{card.update_start - card.flash_base} + FIRMWARE_SIZE;
  uint32_t noise = 0x2545F491;
  for (size_t i = 0; i < size; i++) {
    noise ^= noise << 13;
    noise ^= noise >> 17;
    noise ^= noise << 5;
    if (i >= known) card.flash[i] = i < used ? static_cast<uint8_t>(noise >> 24) : ERASED;
  }
  return card.flash;
}

std::span<const Command> card_commands() {
  return COMMANDS;
}

bool card_answers(const Bmc& bmc, uint8_t netfn, uint8_t command) {
  if (bmc.has_card && bmc.card.in_downloader) {
    return netfn == NETFN_FIRMWARE ||
           (netfn == NETFN_APP &&
            (command == GET_DEVICE_ID || command == COLD_RESET || command == WARM_RESET));
  }
  return netfn != NETFN_FIRMWARE || (bmc.has_card && command == ENTER_DOWNLOADER);
}

bool card_is_updating(const Bmc& bmc) {
  return bmc.has_card && (bmc.card.in_downloader || bmc.clock.now_us < bmc.card.ready_at_us);
}

void card_reset(Bmc& bmc) {
  if (!bmc.has_card) return;
  const uint64_t now = bmc.clock.now_us;
  bmc.card.in_downloader = false;
  bmc.card.block.clear();
  bmc.gone_at_us = now + ANSWER_US;
  bmc.back_at_us = now + bmc.card.away_us;
  bmc.card.ready_at_us = now + bmc.card.ready_us;
}

void card_power_cut(Card& card) {
  program(card, card.block.size() / 2);
}

void store(const Card& from, State& state) {
  if (!from.flash.empty()) state[FLASH_NAME] = from.flash;
}

void restore(Card& to, const State& state) {
  const auto found = state.find(FLASH_NAME);
  if (found == state.end() || found->second.size() > MOST_FLASH) return;
  to.flash = found->second;
}

}  // namespace sim

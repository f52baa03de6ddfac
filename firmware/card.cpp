// The requests that the card's downloader knows.
#include "firmware/card.h"

#include <algorithm>

#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned CODE_SIZE = 8;
static_assert(sizeof QARN_ACCESS_CODE == CODE_SIZE + 1);

// Write flash chunk: address (4), flags, bytes.
constexpr unsigned REQUEST_FLAGS = REQUEST_DATA + 4;
constexpr unsigned REQUEST_CHUNK = REQUEST_DATA + 5;

constexpr unsigned READ_BYTES = 5;  // where they begin in a response, after an unused byte

// Flash update information, from RESPONSE_DATA on.
constexpr unsigned INFORMATION_SIZE = 16;
constexpr unsigned INFORMATION_BLOCK = 4;
constexpr unsigned INFORMATION_CHUNK = 5;
constexpr unsigned INFORMATION_FLASH_SIZE = 8;
constexpr unsigned INFORMATION_FLASH_BASE = 12;

constexpr uint8_t CHUNK_RECEIVED = 1;  // completion code
constexpr uint8_t BLOCK_PROGRAMMED = 0;
constexpr uint8_t BLOCK_AGAIN = 1;

constexpr unsigned REVISION = 6;  // index of the firmware revision; one more unless NetFn is App
constexpr uint8_t UPDATING = 0x80;

uint32_t number_at(std::span<const uint8_t> bytes, unsigned index) {
  return uint32_t{bytes[index]} << 24 | uint32_t{bytes[index + 1]} << 16 |
         uint32_t{bytes[index + 2]} << 8 | bytes[index + 3];
}

void put_address(std::span<uint8_t> request, uint32_t address) {
  for (unsigned i = 0; i < 4; i++) {
    request[REQUEST_DATA + i] = static_cast<uint8_t>(address >> (24 - 8 * i));
  }
}

}  // namespace

bool card_enter() {
  uint8_t request[REQUEST_DATA + CODE_SIZE] = {BMC_ADDRESS, NETFN_FIRMWARE, ENTER_DOWNLOADER};
  std::copy_n(QARN_ACCESS_CODE, CODE_SIZE, request + REQUEST_DATA);
  Response response;
  return exchange(request, &response);
}

bool get_flash_information(Flash_info* info) {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_FIRMWARE, GET_FLASH_INFORMATION};
  Response response;
  const auto answer = ask(request, INFORMATION_SIZE, &response);
  if (answer.empty()) return false;
  info->update_start = number_at(answer, 0);
  info->block_size = answer[INFORMATION_BLOCK];
  info->chunk_size = answer[INFORMATION_CHUNK];
  info->flash_size = number_at(answer, INFORMATION_FLASH_SIZE);
  info->flash_base = number_at(answer, INFORMATION_FLASH_BASE);
  return true;
}

unsigned longest_chunk() {
  return std::min(FLASH_CHUNK_ROOM, request_limit() - REQUEST_CHUNK);
}

Chunk write_chunk(uint32_t address, uint8_t flags, std::span<const uint8_t> bytes) {
  uint8_t request[REQUEST_CHUNK + FLASH_CHUNK_ROOM] = {BMC_ADDRESS, NETFN_FIRMWARE,
                                                       WRITE_FLASH_CHUNK};
  if (bytes.size() > FLASH_CHUNK_ROOM) return Chunk::refused;
  put_address(request, address);
  request[REQUEST_FLAGS] = flags;
  std::ranges::copy(bytes, request + REQUEST_CHUNK);
  Response response;
  if (exchange({request, REQUEST_CHUNK + bytes.size()}, &response)) return Chunk::stored;
  return completion_code(response) == CHUNK_RECEIVED ? Chunk::received : Chunk::refused;
}

Block end_block() {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_FIRMWARE, END_FLASH_BLOCK};
  Response response;
  const auto outcome = ask(request, 1, &response);
  if (outcome.empty()) return Block::refused;
  if (outcome[0] == BLOCK_PROGRAMMED) return Block::programmed;
  return outcome[0] == BLOCK_AGAIN ? Block::again : Block::failed;
}

bool read_flash_bytes(uint32_t address, std::span<uint8_t, FLASH_READ_SIZE> bytes) {
  uint8_t request[] = {BMC_ADDRESS, NETFN_FIRMWARE, READ_FLASH, 0, 0, 0, 0, 0, FLASH_READ_SIZE};
  put_address(request, address);
  Response response;
  exchange(request, &response);
  const auto arrived = response_part(response, READ_BYTES, FLASH_READ_SIZE);
  if (arrived.empty()) return false;
  std::ranges::copy(arrived.first(FLASH_READ_SIZE), bytes.begin());
  return true;
}

bool card_reset() {
  const uint8_t cold_reset[] = {BMC_ADDRESS, NETFN_APP, COLD_RESET};
  const uint8_t warm_reset[] = {BMC_ADDRESS, NETFN_APP, WARM_RESET};
  Response response;
  return exchange(cold_reset, &response) || exchange(warm_reset, &response);
}

bool card_is_normal() {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_APP, GET_DEVICE_ID};
  Response response;
  if (!exchange(request, &response)) return false;
  const bool from_app = response.bytes[1] == (NETFN_APP | RESPONSE_BIT);
  const auto revision = response_part(response, from_app ? REVISION : REVISION + 1, 1);
  return !revision.empty() && (revision[0] & UPDATING) == 0;
}

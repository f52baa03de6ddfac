// The requests that the card's downloader knows, NetFn Firmware (0x08).
//
// | command | name                         | data                        | answer               |
// |---------|------------------------------|-----------------------------|----------------------|
// | 0x01    | Get flash update information | -                           | 16 bytes, Flash_info |
// | 0x02    | Enter downloader             | access code (8)             | -                    |
// | 0x03    | Read flash                   | address (4), -, count       | -, bytes             |
// | 0x04    | Write flash chunk            | address (4), flags, bytes   | -                    |
// | 0x05    | End flash block              | -                           | outcome              |
#pragma once
#include <cstdint>
#include <span>

#include "firmware/flash.h"

inline constexpr unsigned FLASH_READ_SIZE = 16;    // bytes of one Read flash
inline constexpr unsigned FLASH_CHUNK_ROOM = 255;  // the size of a chunk is one byte

// With the build's access code; false when it is refused.
bool card_enter();

// False when not all of the information arrives.
bool get_flash_information(Flash_info* info);

// The most bytes that one Write flash chunk takes on the path in use.
unsigned longest_chunk();

// The flags of a chunk.
inline constexpr uint8_t FIRST_OF_BLOCK = 0x80;
inline constexpr uint8_t LAST_OF_BLOCK = 0x40;

enum class Chunk {
  stored,
  received,  // completion code 1, on a block's last chunk: all of the block is there
  refused,
};

// `bytes` are at most longest_chunk.
Chunk write_chunk(uint32_t address, uint8_t flags, std::span<const uint8_t> bytes);

enum class Block {
  programmed,
  again,    // the card asks for the block once more
  refused,  // no answer, or one without an outcome
  failed,
};

Block end_block();

// The completion code does not count. False when fewer bytes arrive.
bool read_flash_bytes(uint32_t address, std::span<uint8_t, FLASH_READ_SIZE> bytes);

// Resets the card, cold or else warm; false when it refuses both.
bool card_reset();

// Whether the BMC answers Get Device ID and is not updating itself.
bool card_is_normal();

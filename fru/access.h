// The requests that a FRU device knows, for the files of this folder; 16 bytes at most in each.
#pragma once
#include "fru/fru.h"
#include "transport/transaction.h"

inline constexpr unsigned FRU_CHUNK = 16;
// Indexes in a Read FRU Data request.
inline constexpr unsigned READ_OFFSET = 4;
inline constexpr unsigned READ_COUNT = 6;

using Read_request = std::span<uint8_t, FRU_READ_REQUEST>;

// The size of the device, 0 when it does not say; true when it answers with `needed` bytes.
bool ask_size(uint8_t id, unsigned needed, uint32_t* size);
// Builds a Read FRU Data request; set_range sets its offset and count.
void build_read(Read_request request, uint8_t id, size_t offset, size_t count);
void set_range(Read_request request, size_t offset, size_t count);
// The bytes that the device returns, at least `needed`; null when fewer arrive. The completion code
// does not count: the checksum of the area shows whether its bytes are right.
std::span<const uint8_t> read_chunk(Read_request request, size_t needed, Response* response);

// The size of the device; false when it does not say, after a line of the failed step.
bool ask_fru_size(uint8_t id, uint32_t* size);
// Fills `bytes` from `offset` on. False when fewer arrive.
bool read_fru_bytes(uint8_t id, size_t offset, std::span<uint8_t> bytes);
// Writes them; from the first write on an inventory is under way (Unfinished::fru). False when the
// device refuses, after a line of the failed step.
bool write_fru_bytes(uint8_t id, size_t offset, std::span<const uint8_t> bytes);

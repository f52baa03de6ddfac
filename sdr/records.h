// Records in memory: what reading and writing them share.
#pragma once
#include "sdr/sdr.h"

inline constexpr unsigned SDR_LENGTH_BYTE = 4;  // the header byte that counts the body
inline constexpr unsigned SDR_SIZE_LIMIT = SDR_HEADER_SIZE + 0xFF;
inline constexpr uint32_t SDR_COUNT_LIMIT = 0xFFFF;

// Stores the header and a zeroed body behind the entries that record_count counts, which stays as
// it is. Null when there is no memory for the entry; sdr_data is null when there is none for it.
sdr_entry* next_entry(sdr_repository* repository, const uint8_t header[SDR_HEADER_SIZE]);

// Appends a record of `length` bytes, header included, as a file gave it. Null, or the reason why
// the file cannot be loaded.
const char* load_record(sdr_repository* repository, const uint8_t* record, unsigned length);

// Writes header and body to `record`, which holds SDR_SIZE_LIMIT bytes; returns how many they are.
unsigned lay_out_record(const sdr_entry& entry, uint8_t* record);

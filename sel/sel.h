// System Event Log: read whole, written as text.
#pragma once
#include <cstdint>
#include <memory>

inline constexpr unsigned SEL_RECORD_SIZE = 16;

struct SelRecord {
  uint8_t bytes[SEL_RECORD_SIZE];
};

// What Get SEL Info reported (IPMI v2.0 table 31-2; zero what it left out after the entries), and
// the records read.
struct SelList {
  uint32_t version;
  int32_t entries;  // as the BMC claims
  uint32_t freeSpace;
  uint8_t addTimestamp[4];
  uint8_t eraseTimestamp[4];
  uint8_t opSupport;
  std::unique_ptr<SelRecord[]> records;
  int32_t count;  // records that arrived
};

// Reads the log into a zeroed list (Get SEL Entry, table 31-5). 1, or 0 with the reason in
// err_message; the records read before a failure stay.
int get_sel(SelList* list);
// Writes the list as text. 1, or 0 when the file could not be opened or not be written whole.
int SelToFile2(const char* path, const SelList* list);
// Releases the records and zeroes the list. 1.
int destroy_sel(SelList* list);

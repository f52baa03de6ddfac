// FRU devices byte by byte, for --exact: nothing of an area is interpreted that need not be.
#pragma once
#include "fru/layout.h"

// The areas in the order of their offsets in the common header, whose byte i + 1 is that of part i.
enum : unsigned { INTERNAL_PART, CHASSIS_PART, BOARD_PART, PRODUCT_PART, RECORDS_PART, FRU_PARTS };

// The bytes of an area, whole; length 0: there is none.
struct fru_part {
  std::unique_ptr<uint8_t[]> bytes;
  size_t length = 0;
  bool absent = false;  // a file says that the device is to have none
};

struct fru_exact {
  uint8_t id = 0;
  uint8_t header[FRU_HEADER_SIZE] = {};
  bool has_header = false;  // a file gave it
  fru_part parts[FRU_PARTS];
};

struct fru_exact_dev {
  std::unique_ptr<fru_exact[]> records;
  unsigned count = 0;
};

std::span<fru_exact> records_of(const fru_exact_dev& dev);
std::span<uint8_t> bytes_of(const fru_part& part);
// Copies the bytes; false when there is no memory.
bool set_part(fru_part* part, std::span<const uint8_t> bytes);

// The name of a part, "board area".
const char* part_name(unsigned part);
// The layout of a part that is an area with fields, else null.
const fru_layout* layout_of(unsigned part);

// Reads every device that answers. 1, or 0 when one cannot be read, after a line that says why.
int read_fru_exact(fru_exact_dev* dev);

// Writes them as text. 1, or 0 when the file could not be written whole.
int FruToExactFile(const char* path, const fru_exact_dev* dev);

// Reads them from a text file, as FileToFru does; a field whose length does not fit its text is
// refused.
int ExactFileToFru(const char* path, fru_exact_dev* exact);

// Makes a part of the bytes that a section of a file gave: an area gets the length that its fields
// need, if that is not what it says, and its checksum; records get their checksums and end bits.
// Null, or why not.
const char* build_part(unsigned part, std::span<const uint8_t> given, fru_part* built);

// Writes the parts of every device where the common header has them, or after the part before that
// has outgrown its place; then the header. Everything is checked before the first write. 1, or 0
// after a line that says why.
int write_fru_exact(fru_exact_dev* dev);

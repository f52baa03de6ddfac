// Reads a binary file of Sensor Data Records.
//
// | offset | size | content                                                  |
// |--------|------|----------------------------------------------------------|
// | 0      | 16   | file header, not interpreted                             |
// | then, for each record: a block                                            |
// | 0      | 1    | 5A                                                       |
// | 1      | 1    | L, the length of the whole block, at least 8             |
// | 2      | L-2  | record header (5) and body                               |
#include "sdr/loader.h"
#include "sdr/records.h"

namespace {

constexpr unsigned FILE_HEADER_SIZE = 16;
constexpr uint8_t BLOCK_MARKER = 0x5A;
constexpr unsigned MARK_SIZE = 2;
constexpr unsigned SMALLEST_BLOCK = 8;

bool refuse(unsigned long offset, const char* reason) {
  std::printf("offset %lu: %s\n", offset, reason);
  return false;
}

}  // namespace

bool load_binary(FILE* file, sdr_repository* repository) {
  uint8_t bytes[0x100];
  unsigned long offset = std::fread(bytes, 1, FILE_HEADER_SIZE, file);
  // What is no mark of a block is passed over, two bytes at a time.
  while (std::fread(bytes, 1, MARK_SIZE, file) == MARK_SIZE) {
    const unsigned long start = offset;
    offset += MARK_SIZE;
    if (bytes[0] != BLOCK_MARKER || bytes[1] < SMALLEST_BLOCK) continue;
    const unsigned length = bytes[1] - MARK_SIZE;
    if (std::fread(bytes, 1, length, file) != length) {
      return refuse(start, "the block runs past the end of the file");
    }
    const char* reason = load_record(repository, bytes, length);
    if (reason != nullptr) return refuse(start, reason);
    offset += length;
  }
  return true;
}

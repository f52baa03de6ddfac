// Fuzz target: firmware images, programmed into a small card or compared with it. The first bytes
// choose which of the two, the form of the image, and the card's block size, chunk size and update
// start.
#include <cstdio>
#include <cstring>

#include "firmware/flash.h"
#include "fuzz/fuzz.h"

namespace {

enum Choice : uint8_t { RECORDS = 0x01, COMPARE = 0x02 };
constexpr uint32_t FLASH_SIZE = 0x2000;

// What an image says about one address must be there; what it does not reach is not looked at.
void check_byte(const sim::Card& card, uint64_t address, unsigned byte) {
  const uint64_t offset = address - card.flash_base;
  if (address < card.update_start || offset >= card.flash.size()) return;
  fuzz::require(card.flash[offset] == byte);
}

void check_records(const sim::Card& card, const std::string& image) {
  for (size_t at = 0; at < image.size();) {
    const size_t end = std::min(image.find_first_of("\r\n", at), image.size());
    // A NUL ends a line for the reader.
    const std::string line = image.substr(at, end - at).c_str();
    unsigned count = 0;
    unsigned address = 0;
    at = end + 1;
    if (std::sscanf(line.c_str(), "S3%2x%8x", &count, &address) != 2) continue;
    for (unsigned i = 0; i + 5 < count; i++) {
      unsigned byte = 0;
      fuzz::require(std::sscanf(line.c_str() + 12 + 2 * i, "%2x", &byte) == 1);
      check_byte(card, uint64_t{address} + i, byte);
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input(bytes, bytes + size);
  const uint8_t choice = fuzz::take(&input);
  const bool records = (choice & RECORDS) != 0;
  fuzz::start(sim::Kind::card);
  sim::Card& card = sim::machine().bmc.card;
  card.in_downloader = true;
  card.flash_size = FLASH_SIZE;
  card.block_size = fuzz::take(&input);
  card.chunk_size = fuzz::take(&input);
  card.update_start = card.flash_base + fuzz::take(&input) * 0x80U;
  std::strcpy(flashfilename, fuzz::file(records ? "fuzz.mot" : "fuzz.bin", input));

  if ((choice & COMPARE) != 0) {
    verify_firmware();
  } else if (program_firmware() == 1) {
    if (records) check_records(card, input);
    for (size_t i = 0; !records && i < input.size(); i++) {
      check_byte(card, card.flash_base + i, static_cast<uint8_t>(input[i]));
    }
  }
  fuzz::require(fp == nullptr);
  return 0;
}

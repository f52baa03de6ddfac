// Fuzz target: firmware images, programmed into a small card or compared with it. The first bytes
// choose which of the two, the form of the image, and the card's block size, chunk size and update
// start.
#include "firmware/flash.h"
#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input = fuzz::start(bytes, size);
  const uint8_t choice = fuzz::take(&input);
  const bool records = (choice & 1) != 0;
  sim::Card& card = sim::machine().bmc.card;
  card.in_downloader = true;
  card.flash_size = 0x2000;
  card.block_size = fuzz::take(&input);
  card.chunk_size = fuzz::take(&input);
  card.update_start = card.flash_base + fuzz::take(&input) * 0x80U;
  flashfilename = fuzz::file(records ? "fuzz.mot" : "fuzz.bin", input);
  if ((choice & 2) != 0) verify_firmware();
  if ((choice & 2) != 0 || program_firmware() != 1) return 0;
  // Every byte that the image has for the flash must be there.
  for (fuzz::require(init_data(&data) == 1); data.eof == 0;) {
    read_data(&data);
    for (unsigned i = 0; i < PORTION_SIZE; i++) {
      const uint64_t address = uint64_t{data.base} + i + (records ? 0 : card.flash_base);
      const uint64_t offset = address - card.flash_base;
      if (address < card.update_start || offset >= card.flash.size()) continue;
      fuzz::require(data.bytes[i] == 0xFF || data.bytes[i] == card.flash[offset]);
    }
  }
  close_image();
  return 0;
}

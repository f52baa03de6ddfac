// What is done in the card's downloader: in, program, compare or save the flash, and out by a
// reset.
#include <array>
#include <cerrno>
#include <cstring>

#include "base/dump_file.h"
#include "base/error_text.h"
#include "base/notice.h"
#include "base/progress.h"
#include "firmware/card.h"
#include "platform/platform.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/waiting.h"

namespace {

constexpr unsigned ENTER_S = 2;
constexpr unsigned BLOCK_WAIT_US = 2000;
constexpr unsigned BLOCK_WAIT_MORE_US = 10000;
constexpr unsigned AGAIN_S = 1;
constexpr unsigned REFUSED_S = 3;
constexpr unsigned BLOCK_ATTEMPTS = 8;
constexpr unsigned RESET_S = 4;
constexpr unsigned POLL_S = 2;
constexpr unsigned POLLS = 10;

bool find_flash(Flash_info* info) {
  if (get_flash_information(info)) return true;
  flashprintf("cannot get flash update information\n");
  keep_refusal("the flash update information: %s", failure_text());
  return false;
}

bool refuse_flash(const char* why) {
  flashprintf("cannot use the flash update information: %s\n", why);
  keep_refusal("the flash update information: %s", why);
  return false;
}

bool extent_fits(const Flash_info& info) {
  if (flash_end(info) > ADDRESS_SPACE) return refuse_flash("the flash runs past the last address");
  return true;
}

bool start_fits(const Flash_info& info) {
  if (!extent_fits(info)) return false;
  if (info.update_start >= info.flash_base && info.update_start < flash_end(info)) return true;
  return refuse_flash("the update start is outside of the flash");
}

bool sizes_fit(const Flash_info& info) {
  if (info.block_size == 0) return refuse_flash("the block size is 0");
  if (info.chunk_size == 0) return refuse_flash("the chunk size is 0");
  if (info.block_size % info.chunk_size != 0)
    return refuse_flash("a block is not made of whole chunks");
  if (PORTION_SIZE % info.block_size != 0) return refuse_flash("4096 bytes are not whole blocks");
  if (info.chunk_size > longest_chunk()) {
    return refuse_flash("a chunk is too long for the KCS ports; try --open");
  }
  return true;
}

// The last block may run past the end of the flash, but not past the last address: its chunks would
// go to address 0.
bool blocks_fit(const Flash_info& info) {
  const uint64_t past = (flash_end(info) - info.update_start) % info.block_size;
  const uint64_t rest = past > 0 ? info.block_size - past : 0;
  if (flash_end(info) + rest <= ADDRESS_SPACE) return true;
  return refuse_flash("the last block runs past the last address");
}

bool portion_used_up() {
  return data.pos - data.base >= PORTION_SIZE;
}

bool next_portion() {
  read_data(&data);
  const char* fault = image_fault();
  if (fault == nullptr) return true;
  flashprintf("cannot use the image: %s any more\n", fault);
  keep_refusal("%s", fault);
  return false;
}

uint8_t chunk_flags(unsigned index, unsigned count) {
  if (index == 0) return FIRST_OF_BLOCK;
  return index + 1 == count ? LAST_OF_BLOCK : 0;
}

// The next `size` bytes of the image; none when the portion has fewer left.
std::span<const uint8_t> next_bytes(unsigned size) {
  const uint32_t index = data.pos - data.base;
  if (index > PORTION_SIZE - size) return {};
  return std::span<const uint8_t>(data.bytes).subspan(index, size);
}

// Only a block's last chunk may be answered with "received". False after a message.
bool accepted(Chunk outcome, uint32_t address, bool last) {
  if (outcome == Chunk::stored || (outcome == Chunk::received && last)) return true;
  const bool received = outcome == Chunk::received;
  keep_refusal("writing the flash at %08X: %s", address, failure_text());
  progress_end();
  flashprintf(received ? "write data error at %08X\n" : "Cannot write data at %08X\n", address);
  return false;
}

// Sends the chunks of one block: image data, or 0xFF while the next S-record has a higher address;
// the chunks without data all carry the block's address. A raw image always has data: its positions
// are offsets from the flash's base, so that none is above the address it is meant for.
bool send_chunks(uint32_t address, unsigned size, unsigned count) {
  const bool has_data = data.pos <= address;
  std::array<uint8_t, FLASH_CHUNK_ROOM> erased;
  if (size > erased.size()) return false;
  erased.fill(ERASED);
  for (unsigned i = 0; i < count; i++) {
    const auto bytes = has_data ? next_bytes(size) : std::span<const uint8_t>(erased).first(size);
    if (bytes.empty()) return false;
    const Chunk outcome = write_chunk(address, chunk_flags(i, count), bytes);
    if (!accepted(outcome, address, i + 1 == count)) return false;
    if (!has_data) continue;
    address += size;
    data.pos += size;
  }
  return true;
}

int program_blocks(const Flash_info& info) {
  uint64_t address = info.update_start;
  if (!image_seek(info) || !next_portion() || interrupted()) return 0;
  do {
    now_under_way(Unfinished::firmware);
    const uint32_t block = static_cast<uint32_t>(address);
    if (write_line(block, info.block_size, info.chunk_size) != 1) return 0;
    address += info.block_size;
    if (data.eof == 1 && portion_used_up()) break;
  } while (address < flash_end(info));
  return 1;
}

// A longer image is only warned of: its end is left out. False when that ends the run.
bool accept_size(const Flash_info& info) {
  if (!image_overhangs(info)) return true;
  warning("%s: the image goes on after the end of the flash", flashfilename);
  return !warnings_refuse();
}

int program_image() {
  if (interrupted()) return 0;
  flashprintf("Flashing now\n");
  Flash_info info;
  if (!find_flash(&info)) return 0;
  if (!sizes_fit(info) || !start_fits(info) || !blocks_fit(info) || !image_fits(info)) return 0;
  return accept_size(info) ? program_blocks(info) : 0;
}

// Reads PORTION_SIZE bytes of the flash; false after a message, or when the run is to end.
bool read_portion(uint64_t address, std::span<uint8_t, PORTION_SIZE> bytes) {
  for (unsigned i = 0; i < PORTION_SIZE; i += FLASH_READ_SIZE) {
    const uint32_t from = static_cast<uint32_t>(address + i);
    if (interrupted()) return false;
    if (read_flash_bytes(from, bytes.subspan(i).first<FLASH_READ_SIZE>())) continue;
    flashprintf("cannot read the flash at %08X\n", from);
    keep_refusal("reading the flash at %08X: %s", from, failure_text());
    return false;
  }
  return true;
}

int compare_flash(const Flash_info& info) {
  uint8_t bytes[PORTION_SIZE];
  uint64_t address = info.update_start;
  unsigned long wrong = 0;
  if (!image_seek(info)) return 0;
  do {
    if (!next_portion() || !read_portion(address, bytes)) return 0;
    address += PORTION_SIZE;
    for (unsigned j = 0; j < PORTION_SIZE; j++) {
      if (bytes[j] == data.bytes[j]) continue;
      std::printf("data wrong at %X\n", data.base + j);
      wrong++;
    }
  } while (address < flash_end(info));
  if (wrong > 0) keep_refusal("%lu bytes of the flash are not those of the image", wrong);
  return 1;
}

int verify_image() {
  if (interrupted()) return 0;
  flashprintf("Verify now\n");
  Flash_info info;
  if (!find_flash(&info) || !start_fits(info) || !accept_size(info)) return 0;
  return compare_flash(info);
}

// The file may be a FIFO: a signal ends the wait for its reader, here and in the two below.
bool write_portion(std::span<const uint8_t, PORTION_SIZE> bytes) {
  const Signals_let_in while_writing;
  return std::fwrite(bytes.data(), 1, bytes.size(), fp) == bytes.size();
}

FILE* begin_save() {
  const Signals_let_in while_writing;
  return dump_open(flashfilename);
}

bool end_save() {
  const Signals_let_in while_writing;
  return dump_close(fp);
}

// False when the flash could not be read; when the file cannot be written, dump_close returns that.
bool copy_flash(const Flash_info& info) {
  uint8_t bytes[PORTION_SIZE];
  uint64_t address = info.flash_base;
  do {
    if (!read_portion(address, bytes)) return false;
    address += PORTION_SIZE;
    if (!write_portion(bytes)) return true;
    flashprintf(".");
    std::fflush(stdout);
  } while (address < flash_end(info));
  return !interrupted();
}

bool card_comes_back() {
  const Wait wait("the card to start");
  wait_seconds(RESET_S);
  for (unsigned i = 0; i < POLLS; i++) {
    wait_seconds(POLL_S);
    if (card_is_normal()) return true;
  }
  return false;
}

}  // namespace

int enter_downloader() {
  flashprintf("Enter Downloader......");
  std::fflush(stdout);
  if (!card_enter()) {
    flashprintf(" Cannot enter downloader\n");
    step_failed("entering the downloader: %s", failure_text());
    return 0;
  }
  flashprintf("OK\n");
  platform::sleep(ENTER_S);
  return 1;
}

int exit_downloader() {
  flashprintf("Exit Downloader......");
  std::fflush(stdout);
  if (!card_reset()) {
    flashprintf("Cannot exit downloader\n");
    step_failed("leaving the downloader: %s", failure_text());
    return 0;
  }
  if (card_comes_back()) {
    flashprintf("OK\n");
    return 1;
  }
  std::puts("Firmware cannot return normal state");
  step_failed("leaving the downloader: the BMC does not come back");
  return 0;
}

int write_line(uint32_t address, unsigned block_size, unsigned chunk_size) {
  if (portion_used_up() && !next_portion()) return 0;
  if (chunk_size == 0) return 0;
  const uint32_t block_pos = data.pos;
  unsigned wait_us = BLOCK_WAIT_US;
  const Wait wait("the card to take a block");
  for (unsigned left = BLOCK_ATTEMPTS; left > 0; left--) {
    if (!send_chunks(address, chunk_size, block_size / chunk_size)) return 0;
    platform::usleep(wait_us);
    const Block outcome = end_block();
    if (outcome == Block::programmed) return 1;
    if (outcome == Block::failed) {
      progress_end();
      flashprintf("Write Error\n");
      keep_refusal("the card cannot program the block at %08X", address);
      return 0;
    }
    data.pos = block_pos;
    if (left > 1) wait_seconds(outcome == Block::again ? AGAIN_S : REFUSED_S);
    wait_us += BLOCK_WAIT_MORE_US;
  }
  keep_refusal("the card does not take the block at %08X", address);
  return 0;
}

int program_firmware() {
  forget_refusal();
  if (init_data(&data) == 0) return 0;
  const int result = program_image();
  close_image();
  if (result == 1) flashprintf("OK\n");
  return result;
}

int verify_firmware() {
  forget_refusal();
  if (init_data(&data) == 0) return 0;
  const int result = verify_image();
  close_image();
  if (result == 1) flashprintf("OK\n");
  return result;
}

void read_flash() {
  forget_refusal();
  Flash_info info;
  if (interrupted() || !find_flash(&info) || !extent_fits(info)) return;
  fp = begin_save();
  if (fp == nullptr) {
    keep_refusal("%s", dump_error_text(errno));
    flashprintf("cannot open the data file: %s\n", flashfilename);
    return;
  }
  if (!copy_flash(info)) {
    dump_drop(fp);
  } else if (!end_save()) {
    keep_refusal("%s", dump_error_text(errno));
    flashprintf("cannot write the whole flash to %s\n", flashfilename);
  }
  fp = nullptr;
}

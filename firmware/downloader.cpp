// The card's downloader: in, program, compare or save the flash, and out by a reset.
#include <cstring>

#include "base/dump_file.h"
#include "firmware/flash.h"
#include "platform/platform.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned CODE_SIZE = 8;
static_assert(sizeof QARN_ACCESS_CODE == CODE_SIZE + 1);

constexpr unsigned REQUEST_CODE = 3;
constexpr unsigned REQUEST_ADDRESS = 3;
constexpr unsigned REQUEST_FLAGS = 7;
constexpr unsigned REQUEST_CHUNK = 8;
constexpr unsigned LONGEST_CHUNK = 255;
constexpr uint8_t FIRST_CHUNK = 0x80;
constexpr uint8_t LAST_CHUNK = 0x40;

constexpr unsigned READ_SIZE = 16;
constexpr unsigned READ_DATA = 5;  // one byte without use before it

// Flash update information, from RESPONSE_DATA on.
constexpr unsigned INFORMATION_SIZE = 16;
constexpr unsigned INFORMATION_BLOCK = 4;
constexpr unsigned INFORMATION_CHUNK = 5;
constexpr unsigned INFORMATION_FLASH_SIZE = 8;
constexpr unsigned INFORMATION_FLASH_BASE = 12;

constexpr uint8_t CHUNK_RECEIVED = 1;  // completion code, on a block's last chunk
constexpr uint8_t BLOCK_PROGRAMMED = 0;
constexpr uint8_t BLOCK_AGAIN = 1;

constexpr unsigned ENTER_S = 2;
constexpr unsigned BLOCK_WAIT_US = 2000;
constexpr unsigned BLOCK_WAIT_MORE_US = 10000;
constexpr unsigned AGAIN_S = 1;
constexpr unsigned REFUSED_S = 3;
constexpr unsigned BLOCK_ATTEMPTS = 8;
constexpr unsigned RESET_S = 4;
constexpr unsigned POLL_S = 2;
constexpr unsigned POLLS = 10;

constexpr unsigned REVISION = 6;  // of the firmware; one later in an answer that is not App's
constexpr uint8_t UPDATING = 0x80;

uint32_t read_number(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void put_address(uint8_t* request, uint32_t address) {
  for (unsigned i = 0; i < 4; i++) {
    request[REQUEST_ADDRESS + i] = static_cast<uint8_t>(address >> (24 - 8 * i));
  }
}

bool get_flash_information(Flash_info* info) {
  Response response;
  const uint8_t request[] = {BMC_ADDRESS, NETFN_FIRMWARE, GET_FLASH_INFORMATION};
  const auto answer = ask(request, sizeof request, INFORMATION_SIZE, &response);
  if (answer.empty()) {
    flashprintf("cannot get flash update information\n");
    return false;
  }
  const uint8_t* bytes = answer.data();
  info->update_start = read_number(bytes);
  info->block_size = bytes[INFORMATION_BLOCK];
  info->chunk_size = bytes[INFORMATION_CHUNK];
  info->flash_size = read_number(bytes + INFORMATION_FLASH_SIZE);
  info->flash_base = read_number(bytes + INFORMATION_FLASH_BASE);
  return true;
}

bool refuse(const char* why) {
  flashprintf("cannot use the flash update information: %s\n", why);
  return false;
}

bool extent_fits(const Flash_info& info) {
  if (flash_end(info) > ADDRESS_SPACE) return refuse("the flash runs past the last address");
  return true;
}

bool start_fits(const Flash_info& info) {
  if (!extent_fits(info)) return false;
  if (info.update_start >= info.flash_base && info.update_start < flash_end(info)) return true;
  return refuse("the update start is outside of the flash");
}

bool sizes_fit(const Flash_info& info) {
  if (info.block_size == 0) return refuse("the block size is 0");
  if (info.chunk_size == 0) return refuse("the chunk size is 0");
  if (info.block_size % info.chunk_size != 0) return refuse("a block is not made of whole chunks");
  if (PORTION_SIZE % info.block_size != 0) return refuse("4096 bytes are not whole blocks");
  if (REQUEST_CHUNK + info.chunk_size > request_limit()) {
    return refuse("a chunk is too long for the KCS ports; try --open");
  }
  return true;
}

// The last block may run past the end of the flash; past the last address its chunks would go to
// the bottom of the address space.
bool blocks_fit(const Flash_info& info) {
  const uint64_t past = (flash_end(info) - info.update_start) % info.block_size;
  const uint64_t rest = past > 0 ? info.block_size - past : 0;
  if (flash_end(info) + rest <= ADDRESS_SPACE) return true;
  return refuse("the last block runs past the last address");
}

bool portion_used_up() {
  return data.pos - data.base >= PORTION_SIZE;
}

bool next_portion() {
  read_data(&data);
  const char* fault = image_fault();
  if (fault != nullptr) flashprintf("cannot use the image: %s any more\n", fault);
  return fault == nullptr;
}

uint8_t chunk_flags(unsigned index, unsigned count) {
  if (index == 0) return FIRST_CHUNK;
  return index + 1 == count ? LAST_CHUNK : 0;
}

// Sends one chunk: image data, or 0xFF where the image has none yet. False after a message.
bool send_chunk(uint32_t address, uint8_t flags, unsigned size, bool has_data, bool last) {
  uint8_t request[REQUEST_CHUNK + LONGEST_CHUNK] = {BMC_ADDRESS, NETFN_FIRMWARE, WRITE_FLASH_CHUNK};
  const uint32_t index = data.pos - data.base;
  if (size > LONGEST_CHUNK || (has_data && index > PORTION_SIZE - size)) return false;
  put_address(request, address);
  request[REQUEST_FLAGS] = flags;
  if (has_data) {
    std::memcpy(request + REQUEST_CHUNK, data.bytes + index, size);
  } else {
    std::memset(request + REQUEST_CHUNK, ERASED, size);
  }
  Response response;
  if (exchange(request, REQUEST_CHUNK + size, &response)) return true;
  const bool received = completion_code(response) == CHUNK_RECEIVED;
  if (received && last) return true;
  const uint8_t* shown = request + REQUEST_ADDRESS;
  if (received) {
    flashprintf("write data error at %02X%02X%02X%02X\n", shown[0], shown[1], shown[2], shown[3]);
  } else {
    flashprintf("Cannot write data at %02X%02X%02X%02X\n", shown[0], shown[1], shown[2], shown[3]);
  }
  return false;
}

// Sends the chunks of one block. All chunks of a block without data carry the block's address.
bool send_chunks(uint32_t address, unsigned size, unsigned count) {
  for (unsigned i = 0; i < count; i++) {
    const bool has_data = data.pos <= address;
    if (!send_chunk(address, chunk_flags(i, count), size, has_data, i + 1 == count)) return false;
    if (!has_data) continue;
    address += size;
    data.pos += size;
  }
  return true;
}

enum class Block { programmed, again, refused, failed };

Block end_block() {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_FIRMWARE, END_FLASH_BLOCK};
  Response response;
  const auto status = ask(request, sizeof request, 1, &response);
  if (status.empty()) return Block::refused;
  if (status[0] == BLOCK_PROGRAMMED) return Block::programmed;
  return status[0] == BLOCK_AGAIN ? Block::again : Block::failed;
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

int program_image() {
  if (interrupted()) return 0;
  flashprintf("Flashing now\n");
  Flash_info info;
  if (!get_flash_information(&info)) return 0;
  if (!sizes_fit(info) || !start_fits(info) || !blocks_fit(info) || !image_fits(info)) return 0;
  return program_blocks(info);
}

// Reads PORTION_SIZE bytes of the flash. The completion codes do not count, but what did not arrive
// is missing: false after a message.
bool read_portion(uint64_t address, uint8_t* bytes) {
  for (unsigned i = 0; i < PORTION_SIZE; i += READ_SIZE) {
    uint8_t request[] = {BMC_ADDRESS, NETFN_FIRMWARE, READ_FLASH, 0, 0, 0, 0, 0, READ_SIZE};
    const uint32_t from = static_cast<uint32_t>(address + i);
    if (interrupted()) return false;
    put_address(request, from);
    Response response;
    exchange(request, sizeof request, &response);
    const auto part = response_part(response, READ_DATA, READ_SIZE);
    if (part.empty()) {
      flashprintf("cannot read the flash at %08X\n", from);
      return false;
    }
    std::memcpy(bytes + i, part.data(), READ_SIZE);
  }
  return true;
}

int compare_flash(const Flash_info& info) {
  uint8_t bytes[PORTION_SIZE];
  uint64_t address = info.update_start;
  if (!image_seek(info)) return 0;
  do {
    if (!next_portion() || !read_portion(address, bytes)) return 0;
    address += PORTION_SIZE;
    for (unsigned j = 0; j < PORTION_SIZE; j++) {
      if (bytes[j] != data.bytes[j]) std::printf("data wrong at %X\n", data.base + j);
    }
  } while (address < flash_end(info));
  return 1;
}

int verify_image() {
  if (interrupted()) return 0;
  flashprintf("Verify now\n");
  Flash_info info;
  if (!get_flash_information(&info) || !start_fits(info)) return 0;
  return compare_flash(info);
}

// The file may be a FIFO: a signal ends the wait for its reader, here and in the two below.
bool write_portion(const uint8_t bytes[PORTION_SIZE]) {
  const Signals_let_in while_writing;
  return std::fwrite(bytes, 1, PORTION_SIZE, fp) == PORTION_SIZE;
}

FILE* begin_save() {
  const Signals_let_in while_writing;
  return dump_open(flashfilename);
}

bool end_save() {
  const Signals_let_in while_writing;
  return dump_close(fp);
}

// False when the flash could not be read; what cannot be written is seen by dump_close.
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

bool is_normal(const Response& response) {
  const bool from_app = response.bytes[1] == (NETFN_APP | RESPONSE_BIT);
  const auto revision = response_part(response, from_app ? REVISION : REVISION + 1, 1);
  return !revision.empty() && (revision[0] & UPDATING) == 0;
}

}  // namespace

int enter_downloader() {
  flashprintf("Enter Downloader......");
  std::fflush(stdout);
  uint8_t request[REQUEST_CODE + CODE_SIZE] = {BMC_ADDRESS, NETFN_FIRMWARE, ENTER_DOWNLOADER};
  std::memcpy(request + REQUEST_CODE, QARN_ACCESS_CODE, CODE_SIZE);
  Response response;
  if (!exchange(request, sizeof request, &response)) {
    flashprintf(" Cannot enter downloader\n");
    return 0;
  }
  flashprintf("OK\n");
  platform::sleep(ENTER_S);
  return 1;
}

int exit_downloader() {
  flashprintf("Exit Downloader......");
  std::fflush(stdout);
  const uint8_t cold_reset[] = {BMC_ADDRESS, NETFN_APP, COLD_RESET};
  const uint8_t warm_reset[] = {BMC_ADDRESS, NETFN_APP, WARM_RESET};
  const uint8_t identity[] = {BMC_ADDRESS, NETFN_APP, GET_DEVICE_ID};
  Response response;
  if (!exchange(cold_reset, sizeof cold_reset, &response) &&
      !exchange(warm_reset, sizeof warm_reset, &response)) {
    flashprintf("Cannot exit downloader\n");
    return 0;
  }
  platform::sleep(RESET_S);
  for (unsigned i = 0; i < POLLS; i++) {
    platform::sleep(POLL_S);
    if (!exchange(identity, sizeof identity, &response) || !is_normal(response)) continue;
    flashprintf("OK\n");
    return 1;
  }
  std::puts("Firmware cannot return normal state");
  return 0;
}

int write_line(uint32_t address, unsigned block_size, unsigned chunk_size) {
  if (portion_used_up() && !next_portion()) return 0;
  if (chunk_size == 0) return 0;
  const uint32_t block_pos = data.pos;
  unsigned wait_us = BLOCK_WAIT_US;
  for (unsigned left = BLOCK_ATTEMPTS; left > 0; left--) {
    if (!send_chunks(address, chunk_size, block_size / chunk_size)) return 0;
    platform::usleep(wait_us);
    const Block outcome = end_block();
    if (outcome == Block::programmed) return 1;
    if (outcome == Block::failed) {
      flashprintf("Write Error\n");
      return 0;
    }
    data.pos = block_pos;
    if (left > 1) platform::sleep(outcome == Block::again ? AGAIN_S : REFUSED_S);
    wait_us += BLOCK_WAIT_MORE_US;
  }
  return 0;
}

int program_firmware() {
  if (init_data(&data) == 0) return 0;
  const int result = program_image();
  close_image();
  if (result == 1) flashprintf("OK\n");
  return result;
}

int verify_firmware() {
  if (init_data(&data) == 0) return 0;
  const int result = verify_image();
  close_image();
  if (result == 1) flashprintf("OK\n");
  return result;
}

void read_flash() {
  Flash_info info;
  if (interrupted() || !get_flash_information(&info) || !extent_fits(info)) return;
  fp = begin_save();
  if (fp == nullptr) {
    flashprintf("cannot open the data file: %s\n", flashfilename);
    return;
  }
  if (!copy_flash(info)) {
    dump_drop(fp);
  } else if (!end_save()) {
    flashprintf("cannot write the whole flash to %s\n", flashfilename);
  }
  fp = nullptr;
}

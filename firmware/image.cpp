// The firmware image, in portions of 4096 bytes.
#include <cerrno>
#include <cstring>

#include "base/error_text.h"
#include "base/regular_file.h"
#include "firmware/flash.h"
#include "firmware/srecord.h"
#include "textfile/signs.h"

const char* flashfilename = "";
FILE* fp = nullptr;
int (*flashprintf)(const char* format, ...) = std::printf;
int format = FORMAT_RAW;
ImageBuffer data;

namespace {

constexpr char NOT_READABLE[] = "it cannot be read";
constexpr char CHANGED[] = "it is not the file that was checked";

const char* unusable = nullptr;  // why the image is of no use any more
File_state checked;              // the file that was found sound
uint64_t records_end;            // the address after the last byte of its S-records

bool ends_in(const char* name, const char* extension) {
  const char* found = std::strstr(name, extension);
  return found != nullptr && found[std::strlen(extension)] == '\0';
}

int format_of(const char* name) {
  return ends_in(name, ".mot") && !ends_in(name, ".bin") ? FORMAT_SRECORD : FORMAT_RAW;
}

// S, a type, and two digits of a count.
bool begins_like_records(FILE* file) {
  char start[5];
  const bool letter = std::fgets(start, sizeof start, file) != nullptr && start[0] == 'S';
  return letter && start[1] >= '0' && start[1] <= '9' &&
         std::strspn(start + 2, "0123456789abcdefABCDEF") == 2;
}

bool refuse_image(const char* why) {
  keep_refusal("%s", why);
  flashprintf("cannot use the image: %s\n", why);
  return false;
}

void rewind_image() {
  std::rewind(fp);
  srecord_begin(fp);
  unusable = nullptr;
}

bool check_records() {
  unsigned line = 0;
  const char* why = srecord_fault(fp, &line, &records_end);
  if (why == nullptr) return true;
  keep_refusal("line %u: %s", line, why);
  flashprintf("cannot use the image: line %u: %s\n", line, why);
  return false;
}

// Sets eof only when the file ends within the portion, not when it ends with it. Returns whether
// the portion holds data.
bool fill_raw(ImageBuffer* buffer) {
  buffer->base = static_cast<uint32_t>(ftello(fp));
  buffer->pos = buffer->base;
  const size_t count = std::fread(buffer->bytes, 1, PORTION_SIZE, fp);
  // A failed read may have changed bytes that it did not count.
  std::memset(buffer->bytes + count, ERASED, PORTION_SIZE - count);
  if (count < PORTION_SIZE) buffer->eof = 1;
  if (std::ferror(fp) != 0) unusable = NOT_READABLE;
  return count > 0;
}

bool fill_records(ImageBuffer* buffer) {
  if (!srecord_fill(buffer)) unusable = NOT_READABLE;
  return srecord_placed();
}

// Loads the next portion, which is of use only while the file is the one that was checked. Returns
// whether it has a place.
bool fill_portion(ImageBuffer* buffer) {
  buffer->base = 0;
  buffer->pos = 0;
  std::memset(buffer->bytes, ERASED, PORTION_SIZE);
  if (fp == nullptr) unusable = NOT_READABLE;
  if (unusable != nullptr) {
    buffer->eof = 1;
    return false;
  }
  const bool filled = format == FORMAT_RAW ? fill_raw(buffer) : fill_records(buffer);
  if (unusable == nullptr && !file_unchanged(fp, checked)) unusable = CHANGED;
  return filled;
}

// An update advances from `address` in whole blocks: data gets to its own address only if it begins
// a whole number of blocks after it.
bool portion_fits(const ImageBuffer& portion, const Flash_info& info, uint64_t address) {
  if (portion.base < address) {
    keep_refusal("its data at %08X is below the update start", portion.base);
    flashprintf("cannot use the image: data at %08X is below the update start %08X\n", portion.base,
                info.update_start);
    return false;
  }
  if ((portion.base - address) % info.block_size != 0) {
    keep_refusal("its data at %08X does not begin with a block", portion.base);
    flashprintf("cannot use the image: data at %08X does not begin with a block of %u bytes\n",
                portion.base, info.block_size);
    return false;
  }
  return true;
}

}  // namespace

uint64_t flash_end(const Flash_info& info) {
  return uint64_t{info.flash_base} + info.flash_size;
}

int init_data(ImageBuffer* buffer) {
  // Only a regular file can be an image: it has content, an end, and can be read again.
  bool other = false;
  fp = regular_open(flashfilename, &other);
  if (fp == nullptr) {
    keep_refusal("%s", std::strerror(errno));
    flashprintf("cannot open the data file: %s\n", flashfilename);
    if (other) refuse_image("it is not a regular file");
    return 0;
  }
  checked = file_state(fp);
  format = format_of(flashfilename);
  std::memset(buffer, 0, sizeof *buffer);
  if (format == FORMAT_SRECORD && !check_records()) {
    close_image();
    return 0;
  }
  rewind_image();
  return 1;
}

bool image_overhangs(const Flash_info& info) {
  if (format == FORMAT_SRECORD) return records_end > flash_end(info);
  // A saved flash has whole portions.
  const uint64_t portions = (uint64_t{info.flash_size} + PORTION_SIZE - 1) / PORTION_SIZE;
  return static_cast<uint64_t>(checked.size) > portions * PORTION_SIZE;
}

void look_at_image(const char* path) {
  bool other = false;
  FILE* file = regular_open(path, &other);
  if (file == nullptr) return;
  File_signs signs = {};
  if (format_of(path) == FORMAT_SRECORD) {
    note_record_signs(file, &signs);
  } else if (begins_like_records(file)) {
    note_sign(&signs, Sign::raw_records, 1);
  }
  std::fclose(file);
  tell_signs(signs, path);
}

void read_data(ImageBuffer* buffer) {
  fill_portion(buffer);
  flashprintf(".");
  std::fflush(stdout);
}

const char* image_fault() {
  return unusable;
}

bool image_seek(const Flash_info& info) {
  if (format != FORMAT_RAW) return true;
  const bool done = fseeko(fp, info.update_start - info.flash_base, SEEK_SET) == 0;
  return done || refuse_image(NOT_READABLE);
}

bool image_fits(const Flash_info& info) {
  const uint64_t end = flash_end(info);
  uint64_t address = info.update_start;
  bool has_data = false;
  static ImageBuffer portion;
  portion.eof = 0;
  if (!image_seek(info)) return false;
  while (portion.eof == 0 && address < end) {
    const bool filled = fill_portion(&portion);
    if (unusable != nullptr) return refuse_image(unusable);
    if (!filled) continue;
    if (format == FORMAT_SRECORD) {
      if (portion.base >= end) break;
      if (!portion_fits(portion, info, address)) return false;
      address = portion.base;
    }
    has_data = has_data || format == FORMAT_RAW || srecord_has_data();
    address += PORTION_SIZE;
  }
  rewind_image();
  return has_data || refuse_image("it has no data between update start and end of the flash");
}

void close_image() {
  srecord_end();
  if (fp != nullptr) std::fclose(fp);
  fp = nullptr;
}

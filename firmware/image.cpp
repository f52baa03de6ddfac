// The firmware image, in portions of 4096 bytes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "firmware/flash.h"
#include "firmware/srecord.h"

const char* flashfilename = "";
FILE* fp = nullptr;
int (*flashprintf)(const char* format, ...) = std::printf;
int format = FORMAT_RAW;
ImageBuffer data;

namespace {

bool sound = true;

bool ends_in(const char* name, const char* extension) {
  const char* found = std::strstr(name, extension);
  return found != nullptr && found[std::strlen(extension)] == '\0';
}

// A device or FIFO has no end or no way back, a directory no content: no images. Null with `*why`
// set when the file is there but is none; null and no reason when it cannot be opened.
FILE* open_regular(const char* name, const char** why) {
  // Without O_NONBLOCK a FIFO would wait for its writer.
  const int handle = open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (handle < 0) return nullptr;
  struct stat status;
  const bool regular = fstat(handle, &status) == 0 && S_ISREG(status.st_mode);
  FILE* file = regular ? fdopen(handle, "rb") : nullptr;
  if (!regular) *why = "it is not a regular file";
  if (file == nullptr) close(handle);
  return file;
}

bool refuse(const char* why) {
  flashprintf("cannot use the image: %s\n", why);
  return false;
}

void rewind_image() {
  std::rewind(fp);
  srecord_restart();
  sound = true;
}

bool check_records() {
  unsigned line = 0;
  const char* why = srecord_fault(fp, &line);
  if (why == nullptr) return true;
  flashprintf("cannot use the image: line %u: %s\n", line, why);
  return false;
}

// At the end of the file eof is set only once a read has run into it. Returns whether the portion
// holds data.
bool fill_raw(ImageBuffer* buffer) {
  buffer->base = static_cast<uint32_t>(ftello(fp));
  buffer->pos = buffer->base;
  const size_t count = std::fread(buffer->bytes, 1, PORTION_SIZE, fp);
  // A failed read may have touched what it did not count.
  std::memset(buffer->bytes + count, ERASED, PORTION_SIZE - count);
  if (count < PORTION_SIZE) buffer->eof = 1;
  if (std::ferror(fp) != 0) sound = false;
  return count > 0;
}

// Loads the next portion. Returns whether it holds data.
bool fill(ImageBuffer* buffer) {
  buffer->base = 0;
  buffer->pos = 0;
  std::memset(buffer->bytes, ERASED, PORTION_SIZE);
  if (fp == nullptr) sound = false;
  if (!sound) {
    buffer->eof = 1;
    return false;
  }
  if (format == FORMAT_RAW) return fill_raw(buffer);
  sound = srecord_fill(fp, buffer);
  return srecord_placed();
}

// A portion's data is programmed from the block on that the update has come to when it reaches the
// portion: blocks of 0xFF bring it there, in steps of a block.
bool portion_fits(const ImageBuffer& portion, const Flash_info& info, uint64_t address) {
  if (portion.base < address) {
    flashprintf("cannot use the image: data at %08X is below the update start %08X\n", portion.base,
                info.update_start);
    return false;
  }
  if ((portion.base - address) % info.block_size != 0) {
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
  const char* why = nullptr;
  fp = open_regular(flashfilename, &why);
  if (fp == nullptr) {
    flashprintf("cannot open the data file: %s\n", flashfilename);
    if (why != nullptr) refuse(why);
    return 0;
  }
  format = FORMAT_RAW;
  if (ends_in(flashfilename, ".mot")) format = FORMAT_SRECORD;
  if (ends_in(flashfilename, ".bin")) format = FORMAT_RAW;
  std::memset(buffer, 0, sizeof *buffer);
  if (format == FORMAT_SRECORD && !check_records()) {
    close_image();
    return 0;
  }
  rewind_image();
  return 1;
}

void read_data(ImageBuffer* buffer) {
  fill(buffer);
  flashprintf(".");
  std::fflush(stdout);
}

bool image_sound() {
  return sound;
}

bool image_seek(const Flash_info& info) {
  if (format != FORMAT_RAW) return true;
  const bool done = fseeko(fp, info.update_start - info.flash_base, SEEK_SET) == 0;
  return done || refuse("it cannot be read");
}

bool image_fits(const Flash_info& info) {
  const uint64_t end = flash_end(info);
  uint64_t address = info.update_start;
  bool has_data = false;
  static ImageBuffer portion;
  portion.eof = 0;
  if (!image_seek(info)) return false;
  while (portion.eof == 0 && address < end) {
    const bool filled = fill(&portion);
    if (!sound) return refuse("it cannot be read");
    if (!filled) continue;
    if (format == FORMAT_SRECORD) {
      if (portion.base >= end) break;
      if (!portion_fits(portion, info, address)) return false;
      address = portion.base;
    }
    has_data = true;
    address += PORTION_SIZE;
  }
  rewind_image();
  return has_data || refuse("it has no data between update start and end of the flash");
}

void close_image() {
  if (fp != nullptr) std::fclose(fp);
  fp = nullptr;
}

// The daughter card's firmware: the image file and the card's downloader.
#pragma once
#include <cstdint>
#include <cstdio>

inline constexpr unsigned PORTION_SIZE = 4096;
inline constexpr uint8_t ERASED = 0xFF;
inline constexpr uint64_t ADDRESS_SPACE = uint64_t{1} << 32;

extern const char* flashfilename;  // image to read, or file to save to
extern FILE* fp;                   // that file while it is open, else null

// Prints the messages of this subsystem that do not go straight to standard output.
extern int (*flashprintf)(const char* format, ...) __attribute__((format(printf, 1, 2)));

// How the image is read, chosen by the file's name: ".mot" at its end means S-records.
inline constexpr int FORMAT_SRECORD = 0;
inline constexpr int FORMAT_RAW = 1;
extern int format;

// One portion of an image. Bytes that no record and no file byte supplied are 0xFF.
struct ImageBuffer {
  uint8_t bytes[PORTION_SIZE];
  int32_t eof;    // 1 once the image has been read to its end
  uint32_t base;  // S-record: address, raw: file offset, of the first byte
  uint32_t pos;   // the next byte is bytes[pos - base]
};
extern ImageBuffer data;

// The card's flash as it answers Get flash update information.
struct Flash_info {
  uint32_t update_start;  // first address that is programmed and compared
  uint8_t block_size;     // bytes
  uint8_t chunk_size;     // data bytes of one Write flash chunk
  uint32_t flash_size;    // bytes
  uint32_t flash_base;    // address; offset 0 of a raw image
};
// The address after the last one of the flash: 2^32 when it ends at the top of the address space.
uint64_t flash_end(const Flash_info& info);

// Opens the file named by flashfilename into fp and clears the buffer. An S-record file is read
// through once, and refused for a record that cannot be placed. 1, or 0 with nothing open after one
// line that says why.
int init_data(ImageBuffer* buffer);
// Loads the next portion, from the file's position on, and prints one dot.
void read_data(ImageBuffer* buffer);

// Null while the image can be used; else why it cannot: the file could not be read, or it has
// changed since it was opened and checked.
const char* image_fault();
// Reads the open image to its end. True when an update of this flash would place every byte of it
// at its own address; false after one line that says why not. Then the position is at the file's
// start.
bool image_fits(const Flash_info& info);
// True when the open image goes on after the end of the flash.
bool image_overhangs(const Flash_info& info);
// Warns of signs of a mistake in an image of S-records, and prints nothing else.
void look_at_image(const char* path);
// Moves the position in a raw image, which holds the flash from its base on, to the update start.
// False after one line that says why not.
bool image_seek(const Flash_info& info);
// Closes fp.
void close_image();

// What is done in the card's downloader, step by step. Each prints its own messages; of the three
// that take a file, refusal() then says why it was not done, or what the comparison found, else it
// is empty.
int enter_downloader();  // 1 when the card accepted the access code, else 0
int exit_downloader();   // 1 when the BMC is back in normal operation, else 0
int program_firmware();  // 1 when the image was programmed, else 0
int verify_firmware();   // 1 when the comparison came to its end, else 0
void read_flash();       // saves the flash to the file named by flashfilename
// Programs one block from the image buffer, which it loads when it is used up. 1, or 0.
int write_line(uint32_t address, unsigned block_size, unsigned chunk_size);

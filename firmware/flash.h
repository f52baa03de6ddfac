// The daughter card's firmware: the image file and the card's downloader.
#pragma once
#include <cstdint>
#include <cstdio>

inline constexpr unsigned FLASH_NAME_SIZE = 1024;
inline constexpr unsigned PORTION_SIZE = 4096;

extern char flashfilename[FLASH_NAME_SIZE];  // image to read, or file to save to

// One portion of an image. Bytes that no record and no file byte supplied are 0xFF.
struct ImageBuffer {
  uint8_t bytes[PORTION_SIZE];
  int32_t eof;    // 1 once the image has been read to its end
  uint32_t base;  // S-record: address, raw: file offset, of the first byte
  uint32_t pos;   // the next byte is bytes[pos - base]
};

// The actions for -u, --save and --verify. 1 when the BMC is back in normal operation, else 0.
int firmwareUpdate();
int firmwareSave();
int firmwareVerify();

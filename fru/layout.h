// How areas are laid out, for the files of this folder that read or write them.
#pragma once
#include "fru/fru.h"

// Bytes of an area: format, length, chassis type or language, on boards the date, then texts,
// custom fields, the end mark, zeros, checksum.
inline constexpr unsigned FRU_AREA_FORMAT = 0;
inline constexpr unsigned FRU_AREA_LENGTH = 1;
inline constexpr unsigned FRU_AREA_CODE = 2;
inline constexpr unsigned FRU_AREA_DATE = 3;
inline constexpr unsigned FRU_DATE_SIZE = 3;

inline constexpr uint8_t FRU_FORMAT_MASK = 0x0F;
inline constexpr uint8_t FRU_END_MARK = 0xC1;
inline constexpr uint8_t FRU_TEXT_TYPE = 0xC0;    // 8-bit text, in a type/length byte
inline constexpr uint8_t FRU_TEXT_LENGTH = 0x3F;  // in a type/length byte

// Bytes of a multi-record: type, format, length, checksum of the data, checksum of the four bytes
// before it, data.
inline constexpr unsigned FRU_RECORD_FORMAT = 1;
inline constexpr unsigned FRU_RECORD_LENGTH = 2;
inline constexpr unsigned FRU_RECORD_LIMIT = 255;  // of the length: data bytes
inline constexpr unsigned FRU_RECORD_CHECKSUM = 3;
inline constexpr unsigned FRU_RECORD_HEADER_CHECKSUM = 4;
inline constexpr uint8_t FRU_LAST_RECORD = 0x80;  // in its format byte

using fru_text = std::unique_ptr<char[]> fru_info::*;

// One area: where the model keeps its parts, and its place in the image and in the text file.
struct fru_layout {
  const char* name;       // "board area"
  const char* section;    // keyword in the text file
  unsigned header_byte;   // of its offset
  unsigned fixed;         // bytes before the first text
  bool grows_from_empty;  // an area without any text is measured too
  uint8_t fru_info::*format;
  int32_t fru_info::*length;
  uint8_t fru_info::*code;
  uint8_t (fru_info::*date)[FRU_DATE_SIZE];  // null when the area has none
  std::span<const fru_text> texts;
  std::unique_ptr<fru_field> fru_info::*custom;
  int32_t fru_info::*custom_count;
  uint8_t fru_info::*checksum;
};

enum : unsigned { CHASSIS_AREA, BOARD_AREA, PRODUCT_AREA, FRU_AREA_COUNT };
extern const fru_layout FRU_AREAS[FRU_AREA_COUNT];

// The sections of a FRU text file: gathered byte by byte, and handed to the record as areas.
#pragma once
#include "fru/exact.h"
#include "textfile/signs.h"

// The part of a device block that the next lines belong to. A section ends at the keyword of one
// that comes later in this order.
enum Block_state : unsigned {
  HEADER,
  COMMON,
  INTERNAL,
  CHASSIS,
  BOARD,
  PRODUCT,
  MULTIREC,
  STATE_COUNT
};

// The keyword of each; null for HEADER.
extern const char* const FRU_SECTIONS[STATE_COUNT];

inline constexpr unsigned SECTION_LIMIT = 2048;
inline constexpr unsigned EXACT_SECTION_LIMIT = 0x10000;

// The bytes of one section, and for each the number of the line that gave it, and of the quoted
// piece in that line.
struct Section {
  uint8_t bytes[EXACT_SECTION_LIMIT];
  unsigned lines[EXACT_SECTION_LIMIT];
  uint16_t pieces[EXACT_SECTION_LIMIT];
  unsigned count;
};

// Hands the bytes of the section that `state` names, if it has any, to the record; notes signs of a
// mistake in them. 1, or 0 after a line that blames one of theirs.
int hand_over(unsigned state, const Section& section, fru_info* fru, File_signs* signs);

// The same for a record that keeps every byte. A field whose length does not fit its text is
// refused.
int hand_over_exact(unsigned state, const Section& section, fru_exact* fru, File_signs* signs);

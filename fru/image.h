// Parsers of areas and records, for the files of this folder.
#pragma once
#include "fru/layout.h"

// The reason of a fault whose position is a type/length byte.
inline constexpr char FIELD_TOO_LONG[] = "a field is longer than what is left of the section";

// GetChassis, GetBoard and GetProduct, for the area of this layout.
int parse_area(const fru_layout& layout, std::span<const uint8_t> area, size_t end, fru_info* fru,
               fru_fault* fault);

// A list node with a copy of a whole record: header, then as many bytes as it says. Null when out
// of memory.
std::unique_ptr<fru_multirecord> make_multirecord(std::span<const uint8_t> record);

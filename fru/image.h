// Parsers of areas and records, for the files of this folder.
#pragma once
#include "fru/layout.h"

// The reason of a fault whose position is a type/length byte.
inline constexpr char FIELD_TOO_LONG[] = "a field is longer than what is left of the section";

// GetChassis, GetBoard and GetProduct, for the area of this layout.
int parse_area(const fru_layout& layout, std::span<const uint8_t> area, size_t end, fru_info* fru,
               fru_fault* fault);

// The same for a whole area of a device: its fields may end at a C1 among the fixed ones, and the
// others are then absent.
int parse_device_area(const fru_layout& layout, std::span<const uint8_t> area, fru_info* fru);

// The index of the end mark C1 in the first `end` bytes of an area, and how many of the layout's
// texts stand before it: all, or fewer when only a C1 among them ends the fields. `end`: none.
size_t find_end_mark(const fru_layout& layout, std::span<const uint8_t> area, size_t end,
                     size_t* texts);

// A list node with a copy of a whole record: header, then as many bytes as it says. Null when out
// of memory.
std::unique_ptr<fru_multirecord> make_multirecord(std::span<const uint8_t> record);

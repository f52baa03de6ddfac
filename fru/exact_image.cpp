// The bytes of a part, from those that a section of a file gave.
#include <algorithm>

#include "base/memory.h"
#include "fru/exact.h"
#include "fru/image.h"

namespace {

constexpr char NO_MEMORY[] = "out of memory";

using Given = std::span<const uint8_t>;

// How many bytes from the start on must be kept: up to the last one after the end mark that is no
// zero, without the checksum.
size_t size_to_keep(Given given, size_t end) {
  size_t size = std::max(given.size() - 1, end + 1);
  while (size > end + 1 && given[size - 1] == 0) size--;
  return size;
}

// Where the fields of a section end, whose last byte is a checksum or, without one, the end mark. A
// last C1 that follows nothing but the padding of fields that ended early is a checksum.
size_t find_given_end(const fru_layout& layout, Given given) {
  size_t texts = 0;
  const size_t last = given.size() - 1;
  const size_t end = find_end_mark(layout, given, given.size(), &texts);
  if (end != last) return end;
  const size_t early = find_end_mark(layout, given, last, &texts);
  if (early + 1 >= last) return end;
  const auto padding = given.subspan(early + 1, last - early - 1);
  return std::ranges::all_of(padding, [](uint8_t byte) { return byte == 0; }) ? early : end;
}

// The bytes as they are, if they are as many as the area says. Else its fields with their end mark,
// what follows these (without the checksum), and zeros: as long as it says, or as it needs.
const char* build_exact_area(const fru_layout& layout, Given given, fru_part* built) {
  if (given.size() < layout.fixed) return "the section ends before its fields do";
  const size_t said = given[FRU_AREA_LENGTH] * size_t{FRU_UNIT};
  built->absent = said == 0;
  if (said == 0) return nullptr;
  size_t length = said;
  size_t kept = given.size();
  const size_t end = find_given_end(layout, given);
  // Where the checksum would be there may be the end mark, of a section without a checksum.
  const bool whole = given.size() == said && (end != said - 1 || GetChecksum(given) == 0);
  if (!whole) {
    if (end == given.size()) return "the section has no end mark C1";
    kept = size_to_keep(given, end);
    length = std::max(said, (kept + 1 + FRU_UNIT - 1) / FRU_UNIT * FRU_UNIT);
  }
  if (length / FRU_UNIT > FRU_UNITS_LIMIT) return "the area is too long";
  built->bytes = make_owned<uint8_t>(length);
  if (!built->bytes) return NO_MEMORY;
  built->length = length;
  const auto bytes = bytes_of(*built);
  std::ranges::copy(given.first(kept), bytes.begin());
  bytes[FRU_AREA_LENGTH] = static_cast<uint8_t>(length / FRU_UNIT);
  bytes.back() = GetChecksum(bytes.first(length - 1));
  return nullptr;
}

// Zeros, whose checksums hold, are no records.
const char* build_records(Given given, fru_part* built) {
  if (std::ranges::all_of(given, [](uint8_t byte) { return byte == 0; })) return nullptr;
  const auto first = given.first(std::min<size_t>(given.size(), FRU_RECORD_HEADER));
  if (given[0] == 0 && GetChecksum(first) != 0) {
    return "a first record of type 00 needs a right header checksum";
  }
  if (!set_part(built, given)) return NO_MEMORY;
  const auto bytes = bytes_of(*built);
  for (size_t at = 0; at < bytes.size();) {
    if (bytes.size() - at < FRU_RECORD_HEADER) return "a record is not whole";
    const auto header = bytes.subspan(at, FRU_RECORD_HEADER);
    const size_t length = header[FRU_RECORD_LENGTH];
    at += FRU_RECORD_HEADER;
    if (bytes.size() - at < length) return "a record is not whole";
    header[FRU_RECORD_CHECKSUM] = GetChecksum(bytes.subspan(at, length));
    at += length;
    header[FRU_RECORD_FORMAT] &= static_cast<uint8_t>(~FRU_LAST_RECORD);
    if (at == bytes.size()) header[FRU_RECORD_FORMAT] |= FRU_LAST_RECORD;
    header[FRU_RECORD_HEADER_CHECKSUM] = GetChecksum(header.first(FRU_RECORD_HEADER_CHECKSUM));
  }
  return nullptr;
}

}  // namespace

const char* build_part(unsigned part, std::span<const uint8_t> given, fru_part* built) {
  if (part == RECORDS_PART) return build_records(given, built);
  const fru_layout* layout = layout_of(part);
  if (layout != nullptr) {
    return given.size() < 2 ? nullptr : build_exact_area(*layout, given, built);
  }
  // One 00 is the format, which the plain form gives when it has not read the area.
  if (given.size() == 1 && given[0] == 0) return nullptr;
  return set_part(built, given) ? nullptr : NO_MEMORY;
}

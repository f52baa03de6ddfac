// The bytes of a part, from those that a section of a file gave.
#include <algorithm>

#include "base/memory.h"
#include "fru/exact.h"
#include "fru/image.h"

namespace {

constexpr char NO_MEMORY[] = "out of memory";

using Given = std::span<const uint8_t>;

// The bytes as they are, if they are as many as the area says. Else its fields with their end mark,
// what follows these (without the checksum), and zeros: as long as it says, or as it needs.
const char* build_exact_area(const fru_layout& layout, Given given, fru_part* built) {
  const size_t said = given[FRU_AREA_LENGTH] * size_t{FRU_UNIT};
  if (said == 0) return nullptr;
  size_t length = said;
  size_t kept = given.size();
  if (given.size() != said) {
    size_t texts = 0;
    const size_t end = find_end_mark(layout, given, given.size(), &texts);
    if (end == given.size()) return "the section has no end mark C1";
    const size_t needed = (end + 2 + FRU_UNIT - 1) / FRU_UNIT * FRU_UNIT;
    length = std::max(said, needed);
    kept = std::min(std::max(given.size() - 1, end + 1), length - 1);
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

// Zeros pass for records, whose checksums hold.
bool is_list_of_records(Given given) {
  if (given[0] != 0) return true;
  if (given.size() < FRU_RECORD_HEADER) return false;
  const auto header = given.first(FRU_RECORD_HEADER);
  return GetChecksum(header) == 0 && std::ranges::any_of(header, [](uint8_t b) { return b != 0; });
}

const char* build_records(Given given, fru_part* built) {
  if (!is_list_of_records(given)) return nullptr;
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
    return given.size() < layout->fixed ? nullptr : build_exact_area(*layout, given, built);
  }
  // One byte is the format alone, which the plain form gives when it has not read the area.
  if (given.size() < 2) return nullptr;
  return set_part(built, given) ? nullptr : NO_MEMORY;
}

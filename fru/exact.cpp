// FRU devices byte by byte.
#include "fru/exact.h"

#include <algorithm>

#include "base/memory.h"

namespace {

const char* const NAMES[FRU_PARTS] = {"internal use area", "chassis area", "board area",
                                      "product area", "multi-record area"};

}  // namespace

std::span<fru_exact> records_of(const fru_exact_dev& dev) {
  return {dev.records.get(), dev.records ? dev.count : 0};
}

std::span<uint8_t> bytes_of(const fru_part& part) {
  return {part.bytes.get(), part.bytes ? part.length : 0};
}

bool set_part(fru_part* part, std::span<const uint8_t> bytes) {
  part->length = bytes.size();
  part->bytes = make_owned<uint8_t>(bytes.size());
  if (part->bytes) std::ranges::copy(bytes, part->bytes.get());
  return part->bytes != nullptr;
}

const char* part_name(unsigned part) {
  return NAMES[part];
}

const fru_layout* layout_of(unsigned part) {
  const bool area = part >= CHASSIS_PART && part <= PRODUCT_PART;
  return area ? &FRU_AREAS[part - CHASSIS_PART] : nullptr;
}

// What the plain text of an inventory does not bring back.
#include "fru/losses.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/notice.h"
#include "fru/image.h"
#include "fru/section.h"

namespace {

// A field is a bit: eight for each area, the last one for its custom fields.
constexpr unsigned AREA_BITS = 8;
constexpr unsigned CUSTOM = AREA_BITS - 1;

const char* const FIELDS[FRU_AREA_COUNT][AREA_BITS] = {
    {"part number", "serial number", nullptr, nullptr, nullptr, nullptr, nullptr, "custom field"},
    {"manufacturer", "product name", "serial number", "part number", "FRU file ID", nullptr,
     nullptr, "custom field"},
    {"manufacturer", "name", "part number", "version", "serial number", "asset tag", "FRU file ID",
     "custom field"},
};

const struct {
  uint32_t fru_info::*fields;
  const char* loss;
} KINDS[] = {
    {&fru_info::lost_texts, "the text does not read back"},
    {&fru_info::lost_types, "the type of the field is not kept"},
    {&fru_info::lost_singles, "a field of one byte ends the fields"},
};

// Inside quotes; a comment begins there too.
bool text_reads_back(std::span<const uint8_t> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  constexpr std::string_view BREAKS("\0\n'#", 4);
  return text.find_first_of(BREAKS) == text.npos && text.find("//") == text.npos;
}

// A list of names; what does not fit is left out.
struct Names {
  char text[160];
  size_t length;
};

void add_name(Names* names, const char* area, const char* field) {
  char name[40];
  const int letters = static_cast<int>(std::strcspn(area, " "));
  std::snprintf(name, sizeof name, "%s%.*s %s", names->length > 0 ? ", " : "", letters, area,
                field);
  const size_t count = std::strlen(name);
  if (names->length + count >= sizeof names->text) return;
  std::memcpy(names->text + names->length, name, count + 1);
  names->length += count;
}

void tell_fields(const fru_info& fru, uint32_t lost, const char* loss) {
  Names names = {};
  for (unsigned bit = 0; bit < FRU_AREA_COUNT * AREA_BITS; bit++) {
    if ((lost >> bit & 1) == 0) continue;
    add_name(&names, FRU_AREAS[bit / AREA_BITS].name, FIELDS[bit / AREA_BITS][bit % AREA_BITS]);
  }
  if (lost != 0) hint_failed("FRU %u: %s: %s; use --exact", fru.dev_id, names.text, loss);
}

void tell_records(const fru_info& fru) {
  const fru_multirecord* first = fru.multirecords.get();
  if (first != nullptr && first->type_id == 0) {
    hint_failed("FRU %u: multi-record area: its first record is of type 00; use --exact",
                fru.dev_id);
  }
  size_t size = 0;
  for (const auto* record = first; record != nullptr; record = record->next.get()) {
    size += FRU_RECORD_HEADER + static_cast<unsigned>(record->length);
  }
  if (size > SECTION_LIMIT) {
    hint_failed("FRU %u: multi-record area: it is too long to be read back; use --exact",
                fru.dev_id);
  }
}

}  // namespace

void note_losses(const fru_layout& layout, std::span<const uint8_t> area, fru_info* fru) {
  if (area[FRU_AREA_FORMAT] != 1) fru->lost_format_bits = true;
  const unsigned first = static_cast<unsigned>(&layout - FRU_AREAS) * AREA_BITS;
  const size_t last = area.size() - 1;
  size_t texts = 0;
  const size_t end = find_end_mark(layout, area, last, &texts);
  for (size_t i = end + 1; i < last; i++) fru->lost_padding = fru->lost_padding || area[i] != 0;
  size_t index = 0;
  for (size_t at = layout.fixed; at < end && end < last; index++) {
    const size_t length = size_t{area[at]} % (FRU_TEXT_LENGTH + 1);
    const bool custom = index >= layout.texts.size();
    const uint32_t bit = uint32_t{1} << (first + (custom ? CUSTOM : index));
    if (!text_reads_back(area.subspan(at + 1, length))) fru->lost_texts |= bit;
    if (length > 0 && (area[at] & FRU_TEXT_TYPE) != FRU_TEXT_TYPE) fru->lost_types |= bit;
    if (custom && length == 1) fru->lost_singles |= bit;
    at += 1 + length;
  }
}

void tell_losses(const fru_dev& dev) {
  for (unsigned i = 0; i < fru_count(dev); i++) {
    const fru_info& fru = dev.records[i];
    for (const auto& kind : KINDS) tell_fields(fru, fru.*kind.fields, kind.loss);
    if (fru.common_header[FRU_HEADER_INTERNAL] != 0) {
      hint_failed("FRU %u: internal use area: it is not dumped; use --exact", fru.dev_id);
    }
    if (fru.lost_format_bits) {
      hint_failed("FRU %u: the format byte of an area or a record is not kept; use --exact",
                  fru.dev_id);
    }
    if (fru.lost_padding) {
      hint_failed("FRU %u: bytes after an end mark are not kept; use --exact", fru.dev_id);
    }
    tell_records(fru);
  }
}

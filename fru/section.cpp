// The sections of a FRU text file.
#include "fru/section.h"

#include <algorithm>

#include "base/error_text.h"
#include "base/memory.h"
#include "fru/image.h"
#include "textfile/lines.h"

const char* const FRU_SECTIONS[STATE_COUNT] = {
    nullptr,
    "_SEE_COMMON",
    "_SEE_INTERNAL",
    FRU_AREAS[CHASSIS_AREA].section,
    FRU_AREAS[BOARD_AREA].section,
    FRU_AREAS[PRODUCT_AREA].section,
    "_SEE_MULTIREC",
};

namespace {

std::span<const uint8_t> gathered(const Section& section) {
  return std::span<const uint8_t>(section.bytes).first(section.count);
}

// Refuses the file at the line of a byte, or at the last line for a byte after the last one.
int refuse_byte(const Section& section, unsigned position, const char* reason) {
  const unsigned last = section.count - 1;
  blame_line(section.lines[position < last ? position : last], reason);
  return 0;
}

int end_common(const Section& section, fru_info* fru) {
  if (section.count < FRU_HEADER_SIZE) {
    return refuse_byte(section, section.count, "the common section has fewer than 8 bytes");
  }
  std::ranges::copy(gathered(section).first(FRU_HEADER_SIZE), fru->common_header);
  return 1;
}

int end_exact_common(const Section& section, fru_exact* fru) {
  if (section.count < FRU_HEADER_SIZE) {
    return refuse_byte(section, section.count, "the common section has fewer than 8 bytes");
  }
  std::ranges::copy(gathered(section).first(FRU_HEADER_SIZE), fru->header);
  fru->has_header = true;
  return 1;
}

int end_internal(const Section& section, fru_info* fru) {
  if (section.count < 2) return 1;
  const auto data = gathered(section).subspan(1);
  fru->internal_data = make_owned<uint8_t>(data.size());
  if (!fru->internal_data) return refuse_byte(section, 0, "out of memory");
  fru->internal_format = section.bytes[0];
  fru->internal_len = static_cast<int32_t>(data.size());
  std::ranges::copy(data, fru->internal_data.get());
  return 1;
}

// Names the field whose length does not fit: what is kept of the refusal says more than the line
// that was printed.
void keep_long_field(const Section& section, unsigned position) {
  const auto text = gathered(section).subspan(position + 1);
  char shown[FRU_TEXT_LIMIT + 1] = {};
  for (size_t i = 0; i < std::min<size_t>(text.size(), FRU_TEXT_LIMIT); i++) {
    shown[i] = text[i] >= ' ' && text[i] <= '~' ? static_cast<char>(text[i]) : '?';
  }
  keep_refusal("line %u: a field of %d bytes is longer than the %zu that are left: '%s'",
               section.lines[position], section.bytes[position] & FRU_TEXT_LENGTH, text.size(),
               shown);
}

// The type/length byte of the first field whose length does not fit its text: the next one then
// stands in a quoted piece. The count of bytes: there is none.
size_t find_split_field(const fru_layout& layout, const Section& section) {
  size_t texts = 0;
  const size_t end = find_end_mark(layout, gathered(section), section.count, &texts);
  for (size_t at = layout.fixed; at < end;) {
    const size_t next = at + 1 + size_t{section.bytes[at]} % (FRU_TEXT_LENGTH + 1);
    if (next < section.count && section.pieces[next] != 0) return at;
    at = next;
  }
  return section.count;
}

// Whether the field goes on after a line that has quoted text: exact text has one line for each.
bool swallows_lines(const Section& section, size_t at, size_t next) {
  bool quoted = false;
  for (size_t i = at + 1; i < std::min<size_t>(next, section.count); i++) {
    if (quoted && section.lines[i] != section.lines[i - 1]) return true;
    quoted = quoted || section.pieces[i] != 0;
  }
  return false;
}

void note_fields(const fru_layout& layout, const Section& section, File_signs* signs) {
  if (signs == nullptr) return;
  const size_t at = find_split_field(layout, section);
  if (at < section.count) note_sign(signs, Sign::split_field, section.lines[at]);
  size_t texts = 0;
  const size_t end = find_end_mark(layout, gathered(section), section.count, &texts);
  for (size_t i = end; i < section.count; i++) {
    if (section.pieces[i] != 0) note_sign(signs, Sign::text_after_end, section.lines[i]);
  }
}

// The first field of exact text whose length does not fit, or the count of bytes.
size_t find_unfit_field(const fru_layout& layout, const Section& section) {
  const size_t split = find_split_field(layout, section);
  size_t texts = 0;
  const size_t end = find_end_mark(layout, gathered(section), section.count, &texts);
  for (size_t at = layout.fixed; at < end && at < split;) {
    const size_t next = at + 1 + size_t{section.bytes[at]} % (FRU_TEXT_LENGTH + 1);
    if (swallows_lines(section, at, next)) return at;
    at = next;
  }
  return split;
}

int end_area(const fru_layout& layout, const Section& section, fru_info* fru, File_signs* signs) {
  if (section.count < 2) return 1;
  note_fields(layout, section, signs);
  fru_fault fault;
  if (parse_area(layout, gathered(section), section.count, fru, &fault) == 1) return 1;
  refuse_byte(section, fault.position, fault.reason);
  if (fault.reason == FIELD_TOO_LONG) keep_long_field(section, fault.position);
  return 0;
}

int end_multirecord(const Section& section, fru_info* fru, File_signs* signs) {
  const bool zeros = std::ranges::all_of(gathered(section), [](uint8_t byte) { return byte == 0; });
  if (section.bytes[0] == 0 && !zeros) {
    note_sign(signs, Sign::records_of_type_0, section.lines[0]);
  }
  fru_fault fault;
  if (GetMultirecord(gathered(section), fru, &fault) == 1) return 1;
  return refuse_byte(section, fault.position, fault.reason);
}

}  // namespace

int hand_over(unsigned state, const Section& section, fru_info* fru, File_signs* signs) {
  if (section.count == 0) return 1;
  if (state == COMMON) return end_common(section, fru);
  if (state == INTERNAL) return end_internal(section, fru);
  if (state == MULTIREC) return end_multirecord(section, fru, signs);
  return end_area(FRU_AREAS[state - CHASSIS], section, fru, signs);
}

int hand_over_exact(unsigned state, const Section& section, fru_exact* fru, File_signs* signs) {
  if (section.count == 0) return 1;
  if (state == COMMON) return end_exact_common(section, fru);
  const unsigned part = state - INTERNAL;
  const fru_layout* layout = layout_of(part);
  if (layout != nullptr) note_fields(*layout, section, signs);
  const size_t split = layout != nullptr ? find_unfit_field(*layout, section) : section.count;
  if (split < section.count) {
    return refuse_byte(section, static_cast<unsigned>(split),
                       "a field's length does not fit its text");
  }
  const char* reason = build_part(part, gathered(section), &fru->parts[part]);
  return reason == nullptr ? 1 : refuse_byte(section, 0, reason);
}

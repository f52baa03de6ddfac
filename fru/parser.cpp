// Parses the bytes of areas and records into the model.
#include <algorithm>

#include "base/memory.h"
#include "fru/image.h"

namespace {

using Area = std::span<const uint8_t>;

int fault_at(fru_fault* fault, size_t position, const char* reason) {
  fault->position = static_cast<unsigned>(position);
  fault->reason = reason;
  return 0;
}

// Bytes that hold fields, and how far they have been read.
struct Cursor {
  Area bytes;
  size_t position;
};

// The text after the type/length byte at the cursor, and its length.
int take_field(Cursor* cursor, std::unique_ptr<char[]>* text, size_t* length, fru_fault* fault) {
  const size_t at = cursor->position;
  if (at >= cursor->bytes.size()) {
    return fault_at(fault, at, "the section ends before its fields do");
  }
  *length = cursor->bytes[at] & FRU_TEXT_LENGTH;
  const Area left = cursor->bytes.subspan(at + 1);
  if (*length > left.size()) {
    return fault_at(fault, at, FIELD_TOO_LONG);
  }
  *text = make_text(left.data(), *length);
  if (!*text) return fault_at(fault, at, "out of memory");
  cursor->position = at + 1 + *length;
  return 1;
}

int take_custom_fields(const fru_layout& layout, Cursor* cursor, fru_info* fru, fru_fault* fault) {
  std::unique_ptr<fru_field>* tail = &(fru->*layout.custom);
  *tail = nullptr;
  fru->*layout.custom_count = 0;
  while (cursor->position < cursor->bytes.size()) {
    const size_t at = cursor->position;
    if (cursor->bytes[at] == FRU_END_MARK) return 1;
    *tail = make_node<fru_field>();
    if (!*tail) return fault_at(fault, at, "out of memory");
    size_t length = 0;
    if (take_field(cursor, &(*tail)->data, &length, fault) != 1) {
      *tail = nullptr;
      return 0;
    }
    (*tail)->len = static_cast<int32_t>(length);
    (fru->*layout.custom_count)++;
    tail = &(*tail)->next;
  }
  return fault_at(fault, cursor->position, "the section has no end mark C1");
}

// The index after `count` fields from `at` on, or as many as there are before the end.
size_t skip_fields(Area area, size_t at, size_t count) {
  for (; count > 0 && at < area.size(); count--) at += 1 + (area[at] & FRU_TEXT_LENGTH);
  return at;
}

// The texts of the layout after the first `texts` are absent.
int parse_texts(const fru_layout& layout, Area area, size_t end, size_t texts, fru_info* fru,
                fru_fault* fault) {
  if (area.size() > FRU_AREA_LENGTH && area[FRU_AREA_LENGTH] == 0) return 1;
  if (end < layout.fixed) return fault_at(fault, end, "the section ends before its fields do");
  fru->*layout.format = area[FRU_AREA_FORMAT] & FRU_FORMAT_MASK;
  fru->*layout.length = area[FRU_AREA_LENGTH];
  fru->*layout.code = area[FRU_AREA_CODE];
  if (layout.date != nullptr) {
    std::ranges::copy(area.subspan(FRU_AREA_DATE, FRU_DATE_SIZE), fru->*layout.date);
  }
  Cursor cursor{area.first(end), layout.fixed};
  for (const fru_text text : layout.texts) {
    size_t length = 0;
    if (texts == 0) {
      (fru->*text) = nullptr;
      continue;
    }
    texts--;
    if (take_field(&cursor, &(fru->*text), &length, fault) != 1) return 0;
  }
  if (take_custom_fields(layout, &cursor, fru, fault) != 1) return 0;
  const unsigned last = area[FRU_AREA_LENGTH] * FRU_UNIT - 1;
  fru->*layout.checksum = last < area.size() ? area[last] : uint8_t{0};
  return 1;
}

}  // namespace

size_t find_end_mark(const fru_layout& layout, std::span<const uint8_t> area, size_t end,
                     size_t* texts) {
  const Area fields = area.first(end);
  *texts = layout.texts.size();
  size_t at = skip_fields(fields, layout.fixed, *texts);
  while (at < end && area[at] != FRU_END_MARK) at = skip_fields(fields, at, 1);
  if (at < end) return at;
  at = layout.fixed;
  for (*texts = 0; *texts < layout.texts.size() && at < end; ++*texts) {
    if (area[at] == FRU_END_MARK) return at;
    at = skip_fields(fields, at, 1);
  }
  return end;
}

int parse_area(const fru_layout& layout, std::span<const uint8_t> area, size_t end, fru_info* fru,
               fru_fault* fault) {
  return parse_texts(layout, area, end, layout.texts.size(), fru, fault);
}

int parse_device_area(const fru_layout& layout, std::span<const uint8_t> area, fru_info* fru) {
  fru_fault unused;
  const size_t end = area.size() - 1;
  if (parse_area(layout, area, end, fru, &unused) == 1) return 1;
  size_t texts = 0;
  const bool early = find_end_mark(layout, area, end, &texts) < end && texts < layout.texts.size();
  return early ? parse_texts(layout, area, end, texts, fru, &unused) : 0;
}

int GetChassis(std::span<const uint8_t> area, size_t end, fru_info* fru, fru_fault* fault) {
  return parse_area(FRU_AREAS[CHASSIS_AREA], area, end, fru, fault);
}

int GetBoard(std::span<const uint8_t> area, size_t end, fru_info* fru, fru_fault* fault) {
  return parse_area(FRU_AREAS[BOARD_AREA], area, end, fru, fault);
}

int GetProduct(std::span<const uint8_t> area, size_t end, fru_info* fru, fru_fault* fault) {
  return parse_area(FRU_AREAS[PRODUCT_AREA], area, end, fru, fault);
}

std::unique_ptr<fru_multirecord> make_multirecord(std::span<const uint8_t> record) {
  std::unique_ptr<fru_multirecord> node = make_node<fru_multirecord>();
  if (!node) return nullptr;
  const Area data = record.subspan(FRU_RECORD_HEADER, record[FRU_RECORD_LENGTH]);
  node->type_id = record[0];
  node->format = record[FRU_RECORD_FORMAT] & FRU_FORMAT_MASK;
  node->length = record[FRU_RECORD_LENGTH];
  node->record_checksum = record[FRU_RECORD_CHECKSUM];
  node->header_checksum = record[FRU_RECORD_HEADER_CHECKSUM];
  node->data_size = node->length;
  node->data = make_owned<uint8_t>(data.size());
  if (!node->data) return nullptr;
  std::ranges::copy(data, node->data.get());
  return node;
}

int GetMultirecord(std::span<const uint8_t> area, fru_info* fru, fru_fault* fault) {
  if (area.empty() || area[0] == 0) return 1;
  std::unique_ptr<fru_multirecord>* tail = &fru->multirecords;
  fru->multirecord_count = 0;
  for (size_t position = 0; position < area.size();) {
    const Area record = area.subspan(position);
    if (record.size() < FRU_RECORD_HEADER ||
        record.size() - FRU_RECORD_HEADER < record[FRU_RECORD_LENGTH]) {
      return fault_at(fault, position, "a record is longer than what is left of the section");
    }
    *tail = make_multirecord(record);
    if (!*tail) return fault_at(fault, position, "out of memory");
    fru->multirecord_count++;
    if ((record[FRU_RECORD_FORMAT] & FRU_LAST_RECORD) != 0) return 1;
    tail = &(*tail)->next;
    position += FRU_RECORD_HEADER + record[FRU_RECORD_LENGTH];
  }
  return fault_at(fault, area.size(), "no record has the end-of-list bit 80");
}

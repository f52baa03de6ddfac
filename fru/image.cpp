// The bytes of a FRU device: parses areas into the model, and builds an image from it.
#include <algorithm>
#include <cstring>

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

// An image while it is built. What does not fit is not stored, and `sound` becomes false.
struct Image {
  std::span<uint8_t, FRU_IMAGE_ROOM> room;
  size_t length;
  bool sound;
};

void append(Image* image, Area bytes) {
  if (bytes.size() > image->room.size() - image->length) {
    image->sound = false;
    return;
  }
  std::ranges::copy(bytes, image->room.subspan(image->length).begin());
  image->length += bytes.size();
}

void append_byte(Image* image, size_t byte) {
  const uint8_t value[] = {static_cast<uint8_t>(byte)};
  append(image, value);
}

// Puts into the header that an area begins here.
void begin_area(Image* image, unsigned header_byte) {
  const size_t offset = image->length / FRU_UNIT;
  if (offset > FRU_UNITS_LIMIT) image->sound = false;
  image->room[header_byte] = static_cast<uint8_t>(offset);
}

void append_field(Image* image, const char* text, size_t length) {
  if (length > FRU_TEXT_LIMIT || (text == nullptr && length > 0)) {
    image->sound = false;
    return;
  }
  append_byte(image, FRU_TEXT_TYPE | length);
  append(image, {reinterpret_cast<const uint8_t*>(text), length});
}

size_t text_length(const std::unique_ptr<char[]>& text) {
  return text ? std::strlen(text.get()) : 0;
}

// Bytes of the texts and custom fields, without the type/length bytes of the texts.
size_t content_size(const fru_info& fru, const fru_layout& layout) {
  size_t size = 0;
  for (const fru_text text : layout.texts) size += text_length(fru.*text);
  const fru_field* field = (fru.*layout.custom).get();
  for (int32_t i = 0; field != nullptr && i < fru.*layout.custom_count; i++) {
    size += static_cast<uint32_t>(field->len) + size_t{1};
    field = field->next.get();
  }
  return size;
}

// An area without any text keeps its length if that is large enough.
void measure_area(fru_info* fru, const fru_layout& layout) {
  constexpr size_t END_MARK_AND_CHECKSUM = 2;
  const size_t content = content_size(*fru, layout);
  const size_t bytes = content + layout.fixed + layout.texts.size() + END_MARK_AND_CHECKSUM;
  const size_t units = (bytes + FRU_UNIT - 1) / FRU_UNIT;
  const bool measured = content > 0 || layout.grows_from_empty;
  if (measured || fru->*layout.length < static_cast<int32_t>(units)) {
    fru->*layout.length = static_cast<int32_t>(units);
  }
}

void append_fields(Image* image, const fru_info& fru, const fru_layout& layout) {
  for (const fru_text text : layout.texts) {
    append_field(image, (fru.*text).get(), text_length(fru.*text));
  }
  const fru_field* field = (fru.*layout.custom).get();
  for (int32_t i = 0; field != nullptr && i < fru.*layout.custom_count; i++) {
    append_field(image, field->data.get(), static_cast<uint32_t>(field->len));
    field = field->next.get();
  }
}

void append_area(Image* image, fru_info* fru, const fru_layout& layout) {
  image->room[layout.header_byte] = 0;
  if (fru->*layout.length == 0) return;
  measure_area(fru, layout);
  const unsigned units = static_cast<unsigned>(fru->*layout.length);
  if (units > FRU_UNITS_LIMIT) {
    image->sound = false;
    return;
  }
  const size_t start = image->length;
  begin_area(image, layout.header_byte);
  append_byte(image, 1);
  append_byte(image, units);
  append_byte(image, fru->*layout.code);
  if (layout.date != nullptr) append(image, fru->*layout.date);
  append_fields(image, *fru, layout);
  append_byte(image, FRU_END_MARK);
  while (image->sound && image->length < start + units * FRU_UNIT - 1) append_byte(image, 0);
  append_byte(image, GetChecksum(image->room.subspan(start, image->length - start)));
}

void append_internal(Image* image, fru_info* fru) {
  image->room[FRU_HEADER_INTERNAL] = 0;
  if (fru->internal_len == 0) return;
  const bool fits = fru->internal_len > 0 && fru->internal_len < int32_t{FRU_IMAGE_ROOM};
  if (!fits || !fru->internal_data || process_internal(fru) != 1) {
    image->sound = false;
    return;
  }
  begin_area(image, FRU_HEADER_INTERNAL);
  append_byte(image, fru->internal_format);
  append(image, {fru->internal_data.get(), static_cast<uint32_t>(fru->internal_len)});
}

void append_multirecord(Image* image, const fru_multirecord& record) {
  const bool fits = record.length >= 0 && record.length <= int32_t{FRU_RECORD_LIMIT};
  if (!fits || record.data_size < record.length || !record.data) {
    image->sound = false;
    return;
  }
  const Area data(record.data.get(), static_cast<uint32_t>(record.length));
  const unsigned last = record.next ? 0U : FRU_LAST_RECORD;
  uint8_t header[FRU_RECORD_HEADER] = {record.type_id};
  header[FRU_RECORD_FORMAT] = static_cast<uint8_t>((record.format & FRU_FORMAT_MASK) | last);
  header[FRU_RECORD_LENGTH] = static_cast<uint8_t>(data.size());
  header[FRU_RECORD_CHECKSUM] = GetChecksum(data);
  header[FRU_RECORD_HEADER_CHECKSUM] = GetChecksum(Area(header).first(FRU_RECORD_HEADER_CHECKSUM));
  append(image, header);
  append(image, data);
}

void append_multirecords(Image* image, const fru_info& fru) {
  image->room[FRU_HEADER_MULTIRECORD] = 0;
  if (!fru.multirecords) return;
  begin_area(image, FRU_HEADER_MULTIRECORD);
  const fru_multirecord* record = fru.multirecords.get();
  for (; image->sound && record != nullptr; record = record->next.get()) {
    append_multirecord(image, *record);
  }
}

}  // namespace

uint8_t GetChecksum(std::span<const uint8_t> bytes) {
  unsigned sum = 0;
  for (const uint8_t byte : bytes) sum += byte;
  return static_cast<uint8_t>(0 - sum);
}

int parse_area(const fru_layout& layout, std::span<const uint8_t> area, size_t end, fru_info* fru,
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
    if (take_field(&cursor, &(fru->*text), &length, fault) != 1) return 0;
  }
  if (take_custom_fields(layout, &cursor, fru, fault) != 1) return 0;
  const unsigned last = area[FRU_AREA_LENGTH] * FRU_UNIT - 1;
  fru->*layout.checksum = last < area.size() ? area[last] : uint8_t{0};
  return 1;
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

int process_internal(fru_info* fru) {
  if (fru->internal_len <= 0) return 1;
  const unsigned length = static_cast<unsigned>(fru->internal_len);
  const unsigned padded = (length + FRU_UNIT) / FRU_UNIT * FRU_UNIT - 1;
  if (padded == length) return 1;
  std::unique_ptr<uint8_t[]> wider = make_owned<uint8_t>(padded);
  if (!wider) return 0;
  std::memcpy(wider.get(), fru->internal_data.get(), length);
  fru->internal_data = std::move(wider);
  fru->internal_len = static_cast<int32_t>(padded);
  return 1;
}

void process_chassis(fru_info* fru) {
  measure_area(fru, FRU_AREAS[CHASSIS_AREA]);
}

void process_board(fru_info* fru) {
  measure_area(fru, FRU_AREAS[BOARD_AREA]);
}

void process_product(fru_info* fru) {
  measure_area(fru, FRU_AREAS[PRODUCT_AREA]);
}

std::span<const uint8_t> build_fru_image(fru_info* fru, std::span<uint8_t, FRU_IMAGE_ROOM> room) {
  Image image{room, 0, true};
  append(&image, fru->common_header);
  append_internal(&image, fru);
  for (const fru_layout& layout : FRU_AREAS) append_area(&image, fru, layout);
  append_multirecords(&image, *fru);
  room[FRU_HEADER_CHECKSUM] = GetChecksum(room.first(FRU_HEADER_CHECKSUM));
  return image.sound ? Area(room).first(image.length) : Area();
}

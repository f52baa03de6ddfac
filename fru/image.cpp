// Builds the image of a FRU device from the model.
#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "fru/image.h"

namespace {

using Area = std::span<const uint8_t>;

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

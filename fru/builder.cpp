// Builds the image of a FRU device from the model, and writes it.
#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "base/progress.h"
#include "fru/layout.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned CHUNK = 16;  // bytes written at once

// Write FRU Data: 20 28 12, device ID, offset LSB, MSB, bytes.
constexpr unsigned WRITE_HEADER = 6;

constexpr unsigned END_MARK_AND_CHECKSUM = 2;

// An image as far as it is built; what does not fit is not stored and makes it unsound.
struct Image {
  uint8_t* bytes;
  unsigned length;
  bool sound;
};

void put(Image* image, const void* bytes, size_t count) {
  if (count > FRU_IMAGE_ROOM - image->length) {
    image->sound = false;
    return;
  }
  if (count > 0) std::memcpy(image->bytes + image->length, bytes, count);
  image->length += static_cast<unsigned>(count);
}

void put_byte(Image* image, unsigned byte) {
  const uint8_t value = static_cast<uint8_t>(byte);
  put(image, &value, 1);
}

// Notes in the header that an area begins here.
void begin_area(Image* image, unsigned header_byte) {
  const unsigned offset = image->length / FRU_UNIT;
  if (offset > FRU_UNITS_LIMIT) image->sound = false;
  image->bytes[header_byte] = static_cast<uint8_t>(offset);
}

void put_text(Image* image, const char* text, size_t length) {
  if (length > FRU_TEXT_LIMIT || (text == nullptr && length > 0)) {
    image->sound = false;
    return;
  }
  put_byte(image, FRU_TEXT_TYPE | static_cast<unsigned>(length));
  put(image, text, length);
}

size_t text_length(const std::unique_ptr<char[]>& text) {
  return text ? std::strlen(text.get()) : 0;
}

// Bytes of the texts and custom fields, without the type/length bytes of the texts.
size_t content_size(const fru_info& fru, const fru_layout& layout) {
  size_t size = 0;
  for (unsigned i = 0; i < layout.text_count; i++) size += text_length(fru.*layout.texts[i]);
  const fru_field* field = (fru.*layout.custom).get();
  for (int32_t i = 0; field != nullptr && i < fru.*layout.custom_count; i++) {
    size += static_cast<uint32_t>(field->len) + size_t{1};
    field = field->next.get();
  }
  return size;
}

// An area without any content keeps a length that is large enough for it.
void measure_area(fru_info* fru, const fru_layout& layout) {
  const size_t content = content_size(*fru, layout);
  const size_t bytes = content + layout.fixed + layout.text_count + END_MARK_AND_CHECKSUM;
  const size_t units = (bytes + FRU_UNIT - 1) / FRU_UNIT;
  const bool measured = content > 0 || layout.grows_from_empty;
  if (measured || fru->*layout.length < static_cast<int32_t>(units)) {
    fru->*layout.length = static_cast<int32_t>(units);
  }
}

void put_fields(Image* image, const fru_info& fru, const fru_layout& layout) {
  for (unsigned i = 0; i < layout.text_count; i++) {
    const std::unique_ptr<char[]>& text = fru.*layout.texts[i];
    put_text(image, text.get(), text_length(text));
  }
  const fru_field* field = (fru.*layout.custom).get();
  for (int32_t i = 0; field != nullptr && i < fru.*layout.custom_count; i++) {
    put_text(image, field->data.get(), static_cast<uint32_t>(field->len));
    field = field->next.get();
  }
}

void put_area(Image* image, fru_info* fru, const fru_layout& layout, void (*process)(fru_info*)) {
  image->bytes[layout.header_byte] = 0;
  if (fru->*layout.length == 0) return;
  process(fru);
  const unsigned units = static_cast<unsigned>(fru->*layout.length);
  if (units > FRU_UNITS_LIMIT) {
    image->sound = false;
    return;
  }
  const unsigned start = image->length;
  begin_area(image, layout.header_byte);
  put_byte(image, 1);
  put_byte(image, units);
  put_byte(image, fru->*layout.code);
  if (layout.date != nullptr) put(image, fru->*layout.date, FRU_DATE_SIZE);
  put_fields(image, *fru, layout);
  put_byte(image, FRU_END_MARK);
  while (image->sound && image->length < start + units * FRU_UNIT - 1) put_byte(image, 0);
  put_byte(image, GetChecksum(image->bytes + start, image->length - start));
}

void put_internal(Image* image, fru_info* fru) {
  image->bytes[FRU_HEADER_INTERNAL] = 0;
  if (fru->internal_len == 0) return;
  const bool fits = fru->internal_len > 0 && fru->internal_len < int32_t{FRU_IMAGE_ROOM};
  if (!fits || !fru->internal_data || process_internal(fru) != 1) {
    image->sound = false;
    return;
  }
  begin_area(image, FRU_HEADER_INTERNAL);
  put_byte(image, fru->internal_format);
  put(image, fru->internal_data.get(), static_cast<uint32_t>(fru->internal_len));
}

void put_multirecords(Image* image, const fru_info& fru) {
  image->bytes[FRU_HEADER_MULTIRECORD] = 0;
  if (!fru.multirecords) return;
  begin_area(image, FRU_HEADER_MULTIRECORD);
  for (const fru_multirecord* node = fru.multirecords.get(); node; node = node->next.get()) {
    if (node->length < 0 || node->length > 0xFF || node->data_size < node->length || !node->data) {
      image->sound = false;
      return;
    }
    const unsigned length = static_cast<unsigned>(node->length);
    const unsigned last = node->next ? 0U : FRU_LAST_RECORD;
    uint8_t header[FRU_RECORD_HEADER] = {node->type_id};
    header[1] = static_cast<uint8_t>((node->format & FRU_FORMAT_MASK) | last);
    header[2] = static_cast<uint8_t>(length);
    header[3] = GetChecksum(node->data.get(), length);
    header[4] = GetChecksum(header, FRU_RECORD_HEADER - 1);
    put(image, header, sizeof header);
    put(image, node->data.get(), length);
  }
}

// Get FRU Inventory Area Info; false when the device does not tell.
bool device_size(uint8_t id, unsigned* size) {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, GET_FRU_AREA_INFO, id};
  Response response;
  const auto answer = ask(request, sizeof request, 2, &response);
  if (answer.empty()) return false;
  *size = static_cast<unsigned>(answer[0] | answer[1] << 8);
  return true;
}

}  // namespace

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

int build_fru_image(fru_info* fru, uint8_t* image, unsigned* length) {
  Image built{image, 0, true};
  put(&built, fru->common_header, FRU_HEADER_SIZE);
  put_internal(&built, fru);
  put_area(&built, fru, FRU_AREAS[CHASSIS_AREA], process_chassis);
  put_area(&built, fru, FRU_AREAS[BOARD_AREA], process_board);
  put_area(&built, fru, FRU_AREAS[PRODUCT_AREA], process_product);
  put_multirecords(&built, *fru);
  image[FRU_HEADER_CHECKSUM] = GetChecksum(image, FRU_HEADER_CHECKSUM);
  *length = built.length;
  return built.sound ? 1 : 0;
}

int WriteToFRU(const uint8_t* image, unsigned length, uint8_t id) {
  unsigned size = 0;
  if (!device_size(id, &size)) return -1;
  if (length > size) return -2;
  for (unsigned offset = 0; offset < length; offset += CHUNK) {
    const unsigned part = std::min(length - offset, CHUNK);
    uint8_t request[WRITE_HEADER + CHUNK] = {BMC_ADDRESS, NETFN_STORAGE, WRITE_FRU_DATA, id};
    request[4] = static_cast<uint8_t>(offset);
    request[5] = static_cast<uint8_t>(offset >> 8);
    std::memcpy(request + WRITE_HEADER, image + offset, part);
    Response response;
    progress("FRU", offset, length);
    now_under_way(Unfinished::fru);
    if (!exchange(request, WRITE_HEADER + part, &response)) return -1;
  }
  return 1;
}

int write_fru_info(fru_info* fru) {
  uint8_t image[FRU_IMAGE_ROOM];
  unsigned length = 0;
  if (build_fru_image(fru, image, &length) != 1) return 0;
  return WriteToFRU(image, length, fru->dev_id);
}

int write_fru_dev(fru_dev* dev) {
  if (dev == nullptr) return 0;
  if (!dev->records) return 1;
  uint8_t image[FRU_IMAGE_ROOM];
  unsigned length = 0;
  for (unsigned i = 0; i < fru_count(*dev); i++) {
    if (build_fru_image(&dev->records[i], image, &length) != 1) return 0;
  }
  int result = 1;
  for (unsigned i = 0; i < fru_count(*dev) && result == 1; i++) {
    if (write_fru_info(&dev->records[i]) != 1) result = 0;
  }
  progress_end();
  now_under_way(Unfinished::nothing);
  return result;
}

// Writes FRU devices as a text file.
#include <cstdio>
#include <cstring>

#include "base/dump_file.h"
#include "fru/layout.h"

namespace {

constexpr unsigned DATA_IN_LINE = 8;

void print_hex(FILE* file, int32_t byte) {
  std::fprintf(file, "   %02X\n", static_cast<unsigned>(byte));
}

void print_device(FILE* file, const fru_info& fru) {
  std::fprintf(file, "\n_FRU_TITLE '%s'\n", fru.title ? fru.title.get() : "(null)");
  std::fprintf(file, "_DATA_LEN %04d\n", fru.data_len);
  std::fprintf(file, "_DEV_ACCESS_ADDR %02X\n", fru.dev_access_addr);
  std::fprintf(file, "_DEV_SLAVE_ADDR %02X\n", fru.dev_slave_addr);
  std::fprintf(file, "_DEV_ID %02X\n", fru.dev_id);
  std::fprintf(file, "_DEV_ACCESS_LUN %02X\n", fru.access_lun);
  std::fprintf(file, "_BUS_ID %02X\n", fru.bus_id);
  std::fputs("\n_SEE_COMMON\n", file);
  for (const uint8_t byte : fru.common_header) print_hex(file, byte);
}

void print_internal(FILE* file, const fru_info& fru) {
  std::fputs("\n_SEE_INTERNAL\n", file);
  print_hex(file, fru.internal_format);
  const uint8_t* byte = fru.internal_data.get();
  for (int32_t left = fru.internal_len; byte != nullptr && left > 0; left--) {
    print_hex(file, *byte++);
  }
}

void print_text(FILE* file, const std::unique_ptr<char[]>& text) {
  const size_t length = text ? std::strlen(text.get()) : 0;
  print_hex(file, static_cast<int32_t>(length | FRU_TEXT_TYPE));
  if (length > 0) std::fprintf(file, "   '%s'\n", text.get());
}

// A custom field is quoted even when it is empty, and ends at its first NUL.
void print_custom(FILE* file, const fru_field& field) {
  print_hex(file, field.len | FRU_TEXT_TYPE);
  std::fprintf(file, "   '%s'\n", field.data ? field.data.get() : "");
}

void print_area(FILE* file, const fru_info& fru, const fru_layout& layout) {
  std::fprintf(file, "\n%s\n", layout.section);
  print_hex(file, fru.*layout.format);
  print_hex(file, fru.*layout.length);
  print_hex(file, fru.*layout.code);
  if (layout.date != nullptr) {
    const uint8_t* date = fru.*layout.date;
    std::fprintf(file, "   %02X %02X %02X\n", date[0], date[1], date[2]);
  }
  for (const fru_text text : layout.texts) print_text(file, fru.*text);
  const fru_field* field = (fru.*layout.custom).get();
  for (int32_t i = 0; field != nullptr && i < fru.*layout.custom_count; i++) {
    print_custom(file, *field);
    field = field->next.get();
  }
  print_hex(file, FRU_END_MARK);
  print_hex(file, fru.*layout.checksum);
}

// Each record begins on a new line; its last line has no line end yet.
void print_multirecord(FILE* file, const fru_multirecord& record, bool last) {
  std::fputc('\n', file);
  print_hex(file, record.type_id);
  print_hex(file, last ? record.format | FRU_LAST_RECORD : record.format);
  print_hex(file, record.length);
  print_hex(file, record.record_checksum);
  std::fprintf(file, "   %02X     // header checksum\n", record.header_checksum);
  const unsigned length = static_cast<unsigned>(record.data ? record.length : 0);
  for (unsigned i = 0; i < length; i++) {
    std::fprintf(file, i % DATA_IN_LINE == 0 ? "\n   %02X" : " %02X", record.data[i]);
  }
}

void print_multirecords(FILE* file, const fru_info& fru) {
  if (fru.multirecord_count <= 0) return;
  std::fputs("\n_SEE_MULTIREC\n", file);
  const fru_multirecord* record = fru.multirecords.get();
  for (int32_t left = fru.multirecord_count; record != nullptr && left > 0; left--) {
    print_multirecord(file, *record, left == 1);
    record = record->next.get();
  }
}

}  // namespace

int FruToFile(const char* path, const fru_dev* dev) {
  if (dev == nullptr || !dev->records) return 0;
  FILE* file = dump_open(path);
  if (file == nullptr) return 0;
  std::fputs("_FRU\n", file);
  for (unsigned i = 0; i < fru_count(*dev); i++) {
    const fru_info& fru = dev->records[i];
    print_device(file, fru);
    print_internal(file, fru);
    for (const fru_layout& layout : FRU_AREAS) print_area(file, fru, layout);
    print_multirecords(file, fru);
  }
  return dump_close(file) ? 1 : 0;
}

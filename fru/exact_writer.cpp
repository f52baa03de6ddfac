// Writes FRU devices as text that keeps every byte.
#include <algorithm>
#include <cstdio>

#include "base/dump_file.h"
#include "fru/exact.h"
#include "fru/image.h"
#include "fru/section.h"
#include "textfile/quoted.h"

namespace {

constexpr size_t BYTES_IN_LINE = 8;

using Bytes = std::span<const uint8_t>;

void print_bytes(FILE* file, Bytes bytes, size_t in_line) {
  for (size_t i = 0; i < bytes.size(); i++) {
    std::fprintf(file, i % in_line == 0 ? "   %02X" : " %02X", bytes[i]);
    if ((i + 1) % in_line == 0 || i + 1 == bytes.size()) std::fputc('\n', file);
  }
}

// The type/length byte, and the text in a line of its own.
void print_field(FILE* file, Bytes field) {
  print_bytes(file, field.first(1), 1);
  if (field.size() == 1) return;
  char room[quoted_room(FRU_TEXT_LIMIT)];
  const auto text = put_quoted(field.subspan(1), room);
  std::fprintf(file, "   %.*s\n", static_cast<int>(text.size()), text.data());
}

void print_exact_area(FILE* file, const fru_layout& layout, Bytes area) {
  size_t texts = 0;
  const size_t end = find_end_mark(layout, area, area.size() - 1, &texts);
  const bool whole = end < area.size() - 1;
  size_t at = whole ? layout.fixed : 0;
  print_bytes(file, area.first(at), 1);
  while (whole && (at < end)) {
    const size_t size = 1 + size_t{area[at]} % (FRU_TEXT_LENGTH + 1);
    print_field(file, area.subspan(at, size));
    at += size;
  }
  print_bytes(file, area.subspan(at), 1);
}

void print_records(FILE* file, Bytes records) {
  for (size_t at = 0; at < records.size();) {
    const size_t length = records[at + FRU_RECORD_LENGTH];
    print_bytes(file, records.subspan(at, FRU_RECORD_HEADER), 1);
    print_bytes(file, records.subspan(at + FRU_RECORD_HEADER, length), BYTES_IN_LINE);
    at += FRU_RECORD_HEADER + length;
    std::fputc('\n', file);
  }
}

void print_part(FILE* file, unsigned part, Bytes bytes) {
  const fru_layout* layout = layout_of(part);
  std::fprintf(file, "\n%s\n", FRU_SECTIONS[INTERNAL + part]);
  if (layout != nullptr) {
    print_exact_area(file, *layout, bytes);
  } else if (part == RECORDS_PART) {
    print_records(file, bytes);
  } else {
    print_bytes(file, bytes, BYTES_IN_LINE);
  }
}

}  // namespace

int FruToExactFile(const char* path, const fru_exact_dev* dev) {
  FILE* file = dump_open(path);
  if (file == nullptr) return 0;
  std::fputs("_FRU\n", file);
  for (const fru_exact& fru : records_of(*dev)) {
    std::fprintf(file, "\n_FRU_TITLE ''\n_DEV_ID %02X\n\n%s\n", fru.id, FRU_SECTIONS[COMMON]);
    print_bytes(file, fru.header, 1);
    for (unsigned part = 0; part < FRU_PARTS; part++) {
      const auto bytes = bytes_of(fru.parts[part]);
      if (!bytes.empty()) print_part(file, part, bytes);
    }
  }
  return dump_close(file) ? 1 : 0;
}

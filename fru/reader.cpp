// Reads a FRU text file: its device blocks, and in each the sections that hold the areas' bytes.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/memory.h"
#include "fru/image.h"
#include "textfile/lines.h"
#include "textfile/tokenizer.h"
#include "transport/interrupt.h"

namespace {

constexpr int FRU_LINE_SIZE = 256;  // 255 characters and a NUL; a longer line is read as several
constexpr unsigned DEVICE_LIMIT = 256;  // device IDs have one byte
constexpr unsigned SECTION_LIMIT = 2048;
constexpr unsigned PIECES_LIMIT = 256;  // of the file, between two looks for a signal
constexpr unsigned COMMON_LIMIT = 256;

// The part of a device block that the next lines belong to. A section ends at the keyword of one
// that comes later in this order.
enum Block_state : unsigned {
  HEADER,
  COMMON,
  INTERNAL,
  CHASSIS,
  BOARD,
  PRODUCT,
  MULTIREC,
  STATE_COUNT
};

const char* const SECTIONS[STATE_COUNT] = {
    nullptr,
    "_SEE_COMMON",
    "_SEE_INTERNAL",
    FRU_AREAS[CHASSIS_AREA].section,
    FRU_AREAS[BOARD_AREA].section,
    FRU_AREAS[PRODUCT_AREA].section,
    "_SEE_MULTIREC",
};

const char TITLE[] = "_FRU_TITLE";
const char DEVICE_ID[] = "_DEV_ID";

// A header line's keyword and the one-byte field it sets. TITLE is matched before: "_FRU" is its
// beginning.
struct Header_keyword {
  const char* keyword;
  uint8_t fru_info::*field;
};
const Header_keyword HEADER_KEYWORDS[] = {
    {"_FRU", nullptr},
    {"_DATA_LEN", nullptr},
    {"_DEV_ACCESS_ADDR", &fru_info::dev_access_addr},
    {"_DEV_SLAVE_ADDR", &fru_info::dev_slave_addr},
    {DEVICE_ID, &fru_info::dev_id},
    {"_ACCESS_LUN", &fru_info::access_lun},
    {"_BUS_ID", &fru_info::bus_id},
};

// The bytes of one section, and for each the number of the line that gave it.
struct Section {
  uint8_t bytes[SECTION_LIMIT];
  unsigned lines[SECTION_LIMIT];
  unsigned count;
};

std::span<const uint8_t> gathered(const Section& section) {
  return std::span<const uint8_t>(section.bytes).first(section.count);
}

struct Reader {
  Lines lines;
  char cleaned[FRU_LINE_SIZE];
  Section section;
  fru_dev* dev;
  unsigned current;
  unsigned state;
  unsigned pieces;
};

// Reads the next line that is not empty; false at the end of the file.
bool next_cleaned(Reader* reader) {
  while (next_line(&reader->lines)) {
    if (++reader->pieces % PIECES_LIMIT == 0) interrupt_point();
    process_string(reader->lines.text, reader->cleaned);
    if (reader->cleaned[0] != '\0') return true;
  }
  return false;
}

int refuse_at(unsigned line, const char* reason) {
  blame_line(line, reason);
  return 0;
}

// Refuses the file at the line of a byte, or at the last line for a byte after the last one.
int refuse_byte(const Section& section, unsigned position, const char* reason) {
  const unsigned last = section.count - 1;
  return refuse_at(section.lines[position < last ? position : last], reason);
}

int end_common(const Section& section, fru_info* fru) {
  if (section.count < FRU_HEADER_SIZE) {
    return refuse_byte(section, section.count, "the common section has fewer than 8 bytes");
  }
  std::ranges::copy(gathered(section).first(FRU_HEADER_SIZE), fru->common_header);
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

int end_area(const fru_layout& layout, const Section& section, fru_info* fru) {
  if (section.count < 2) return 1;
  fru_fault fault;
  if (parse_area(layout, gathered(section), section.count, fru, &fault) == 1) return 1;
  return refuse_byte(section, fault.position, fault.reason);
}

int end_multirecord(const Section& section, fru_info* fru) {
  fru_fault fault;
  if (GetMultirecord(gathered(section), fru, &fault) == 1) return 1;
  return refuse_byte(section, fault.position, fault.reason);
}

// Hands the bytes of the section that `state` names, if it has any, to the record.
int hand_over(unsigned state, const Section& section, fru_info* fru) {
  if (section.count == 0) return 1;
  if (state == COMMON) return end_common(section, fru);
  if (state == INTERNAL) return end_internal(section, fru);
  if (state == MULTIREC) return end_multirecord(section, fru);
  return end_area(FRU_AREAS[state - CHASSIS], section, fru);
}

// Hands the gathered bytes to the current record. 1, or 0 when they are refused.
int end_section(Reader* reader) {
  fru_info* fru = &reader->dev->records[reader->current];
  const int result = hand_over(reader->state, reader->section, fru);
  reader->section.count = 0;
  return result;
}

int set_title(Reader* reader) {
  fru_info* fru = &reader->dev->records[reader->current];
  uint8_t content[CONTENT_SIZE];
  const unsigned count = get_content(reader->cleaned + std::strlen(TITLE), content);
  fru->title = make_text(content, count);
  return fru->title ? 1 : refuse_at(reader->lines.number, "out of memory");
}

// Most significant byte first, up to the first 00.
int32_t data_length(std::span<const uint8_t> content) {
  uint32_t value = 0;
  for (const uint8_t byte : content) {
    if (byte == 0) break;
    value = value << 8 | byte;
  }
  return static_cast<int32_t>(value);
}

int header_line(Reader* reader) {
  const char* text = reader->cleaned;
  fru_info* fru = &reader->dev->records[reader->current];
  if (start_with(text, TITLE) == 1) return set_title(reader);
  for (const Header_keyword& header : HEADER_KEYWORDS) {
    if (start_with(text, header.keyword) != 1) continue;
    uint8_t content[CONTENT_SIZE];
    const unsigned count = get_content(text + std::strlen(header.keyword), content);
    if (header.field != nullptr) {
      fru->*header.field = content[0];
    } else if (start_with(text, "_DATA_LEN") == 1) {
      fru->data_len = data_length(std::span<const uint8_t>(content).first(count));
    }
    return 1;
  }
  for (unsigned section = COMMON; section < STATE_COUNT; section++) {
    if (start_with(text, SECTIONS[section]) != 1) continue;
    reader->state = section;
    break;
  }
  return 1;
}

int begin_block(Reader* reader) {
  if (end_section(reader) != 1) return 0;
  if (reader->current + 1 >= fru_count(*reader->dev)) {
    return refuse_at(reader->lines.number, "more device blocks than _DEV_ID lines");
  }
  reader->current++;
  reader->state = HEADER;
  return set_title(reader);
}

int value_line(Reader* reader) {
  uint8_t content[CONTENT_SIZE];
  Section* section = &reader->section;
  const unsigned count = get_content(reader->cleaned, content);
  const unsigned limit = reader->state == COMMON ? COMMON_LIMIT : SECTION_LIMIT;
  if (count > limit - section->count) {
    return refuse_at(reader->lines.number, "the section has too many bytes");
  }
  for (unsigned i = 0; i < count; i++) {
    section->bytes[section->count] = content[i];
    section->lines[section->count] = reader->lines.number;
    section->count++;
  }
  return 1;
}

int section_line(Reader* reader) {
  const char* text = reader->cleaned;
  for (unsigned section = reader->state + 1; section < STATE_COUNT; section++) {
    if (start_with(text, SECTIONS[section]) != 1) continue;
    const int result = end_section(reader);
    reader->state = section;
    return result;
  }
  return start_with(text, TITLE) == 1 ? begin_block(reader) : value_line(reader);
}

int count_devices(Reader* reader, unsigned* count) {
  for (*count = 0; next_cleaned(reader);) {
    if (start_with(reader->cleaned, DEVICE_ID) != 1) continue;
    if (*count >= DEVICE_LIMIT) return refuse_at(reader->lines.number, "more than 256 devices");
    (*count)++;
  }
  return *count > 0 && !reader->lines.too_long && restart_lines(&reader->lines) ? 1 : 0;
}

int read_blocks(Reader* reader) {
  while (next_cleaned(reader)) {
    const int result = reader->state == HEADER ? header_line(reader) : section_line(reader);
    if (result != 1) return 0;
  }
  if (reader->lines.too_long || std::ferror(reader->lines.file) != 0) return 0;
  if (end_section(reader) != 1) return 0;
  // A record without a block would be written as an empty inventory over that of its device.
  if (reader->current + 1 < fru_count(*reader->dev)) {
    return refuse_at(reader->lines.number, "fewer device blocks than _DEV_ID lines");
  }
  return 1;
}

int read_file(FILE* file, fru_dev* dev) {
  Reader reader;
  reader.lines.file = file;
  reader.lines.room = FRU_LINE_SIZE;
  reader.section.count = 0;
  reader.dev = dev;
  reader.current = 0;
  reader.pieces = 0;
  reader.state = HEADER;
  unsigned count = 0;
  if (!restart_lines(&reader.lines) || count_devices(&reader, &count) != 1) return 0;
  dev->records = make_owned<fru_info>(count);
  if (!dev->records) return 0;
  dev->count = static_cast<int32_t>(count);
  for (unsigned i = 0; i < count; i++) init_fru_info(&dev->records[i]);
  return read_blocks(&reader);
}

}  // namespace

int FileToFru(const char* path, fru_dev* dev) {
  init_fru_dev(dev);
  FILE* file = std::fopen(path, "re");
  if (file == nullptr) return 0;
  const int result = read_file(file, dev);
  std::fclose(file);
  if (result != 1) destroy_fru_dev(dev);
  return result;
}

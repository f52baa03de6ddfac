// Reads a FRU text file: its device blocks, and in each the sections that hold the areas' bytes.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/error_text.h"
#include "base/memory.h"
#include "base/regular_file.h"
#include "fru/section.h"
#include "textfile/lines.h"
#include "textfile/quoted.h"
#include "textfile/signs.h"
#include "textfile/tokenizer.h"
#include "transport/interrupt.h"

namespace {

constexpr int FRU_LINE_SIZE = 256;  // 255 characters and a NUL; a longer line is read as several
constexpr unsigned DEVICE_LIMIT = 256;  // device IDs have one byte
constexpr unsigned PIECES_LIMIT = 256;  // of the file, between two looks for a signal
constexpr unsigned COMMON_LIMIT = 256;

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

struct Reader {
  Lines lines;
  char cleaned[FRU_LINE_SIZE];
  Section* section;
  fru_dev* dev;
  fru_exact_dev* exact;  // null: the plain records are filled
  unsigned current;
  unsigned state;
  unsigned pieces;
  File_signs* signs;  // null: they are not noted
  bool opened;        // there was an opening line
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

// Hands the gathered bytes to the current record. 1, or 0 when they are refused.
int end_section(Reader* reader) {
  fru_info* fru = &reader->dev->records[reader->current];
  const Section& section = *reader->section;
  const int result = reader->exact != nullptr
                         ? hand_over_exact(reader->state, section,
                                           &reader->exact->records[reader->current], reader->signs)
                         : hand_over(reader->state, section, fru, reader->signs);
  reader->section->count = 0;
  return result;
}

// Notes what is wrong with the bytes of the present line.
void note_content(Reader* reader, const char* bytes) {
  note_line(reader->signs, reader->lines.text, reader->lines.number);
  note_bytes(reader->signs, bytes, reader->lines.number);
}

int set_title(Reader* reader) {
  note_content(reader, reader->cleaned + std::strlen(TITLE));
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
    if (&header == HEADER_KEYWORDS) reader->opened = true;
    uint8_t content[CONTENT_SIZE];
    const char* value = text + std::strlen(header.keyword);
    const unsigned count = get_content(value, content);
    if (&header != HEADER_KEYWORDS) note_content(reader, value);
    if (header.field != nullptr) {
      fru->*header.field = content[0];
    } else if (start_with(text, "_DATA_LEN") == 1) {
      fru->data_len = data_length(std::span<const uint8_t>(content).first(count));
    }
    return 1;
  }
  for (unsigned section = COMMON; section < STATE_COUNT; section++) {
    if (start_with(text, FRU_SECTIONS[section]) != 1) continue;
    reader->state = section;
    return 1;
  }
  // The writer's own line has this name, which the reader does not know.
  if (start_with(text, "_DEV_ACCESS_LUN") != 1) {
    note_stray(reader->signs, text, reader->lines.number);
  }
  return 1;
}

// A plain file may say where an internal use area is, without its bytes.
int end_block(Reader* reader) {
  if (end_section(reader) != 1) return 0;
  const fru_info& fru = reader->dev->records[reader->current];
  if (reader->exact == nullptr && fru.common_header[FRU_HEADER_INTERNAL] != 0 &&
      fru.internal_len == 0) {
    note_sign(reader->signs, Sign::no_internal, 0);
  }
  return 1;
}

int begin_block(Reader* reader) {
  if (end_block(reader) != 1) return 0;
  if (reader->current + 1 >= fru_count(*reader->dev)) {
    return refuse_at(reader->lines.number, "more device blocks than _DEV_ID lines");
  }
  reader->current++;
  reader->state = HEADER;
  return set_title(reader);
}

int value_line(Reader* reader) {
  uint8_t content[CONTENT_SIZE];
  Section* section = reader->section;
  uint16_t pieces[CONTENT_SIZE];
  const unsigned count = get_content(reader->cleaned, content);
  const bool pieces_count = reader->signs != nullptr || reader->exact != nullptr;
  if (pieces_count) get_pieces(reader->cleaned, pieces);
  note_content(reader, reader->cleaned);
  if (reader->lines.cut) note_sign(reader->signs, Sign::long_line, reader->lines.number);
  const unsigned most = reader->exact != nullptr ? EXACT_SECTION_LIMIT : SECTION_LIMIT;
  const unsigned limit = reader->state == COMMON ? COMMON_LIMIT : most;
  if (count > limit - section->count) {
    return refuse_at(reader->lines.number, "the section has too many bytes");
  }
  for (unsigned i = 0; i < count; i++) {
    section->bytes[section->count] = content[i];
    section->lines[section->count] = reader->lines.number;
    section->pieces[section->count] = pieces_count ? pieces[i] : uint16_t{0};
    section->count++;
  }
  return 1;
}

int section_line(Reader* reader) {
  const char* text = reader->cleaned;
  for (unsigned section = reader->state + 1; section < STATE_COUNT; section++) {
    if (start_with(text, FRU_SECTIONS[section]) != 1) continue;
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
  if (end_block(reader) != 1) return 0;
  // A record without a block would be written as an empty inventory over that of its device.
  if (reader->current + 1 < fru_count(*reader->dev)) {
    return refuse_at(reader->lines.number, "fewer device blocks than _DEV_ID lines");
  }
  return 1;
}

bool make_exact_records(fru_exact_dev* exact, unsigned count) {
  exact->records = make_owned<fru_exact>(count);
  exact->count = exact->records ? count : 0;
  return exact->records != nullptr;
}

int read_file(FILE* file, fru_dev* dev, fru_exact_dev* exact, File_signs* signs) {
  static Section section;  // memory that no section reaches is never touched
  Reader reader;
  reader.section = &section;
  reader.exact = exact;
  reader.lines.file = file;
  reader.lines.room = FRU_LINE_SIZE;
  section.count = 0;
  reader.dev = dev;
  reader.current = 0;
  reader.pieces = 0;
  reader.state = HEADER;
  reader.signs = signs;
  reader.opened = false;
  unsigned count = 0;
  if (!restart_lines(&reader.lines) || count_devices(&reader, &count) != 1) return 0;
  dev->records = make_owned<fru_info>(count);
  if (!dev->records) return 0;
  dev->count = static_cast<int32_t>(count);
  for (unsigned i = 0; i < count; i++) init_fru_info(&dev->records[i]);
  if (exact != nullptr && !make_exact_records(exact, count)) return 0;
  const int result = read_blocks(&reader);
  if (!reader.opened) note_sign(reader.signs, Sign::no_opening, 0);
  return result;
}

// Why a file was not read, when no line is to blame.
const char* unreadable(FILE* file) {
  if (std::ferror(file) != 0) return std::strerror(errno);
  if (!is_regular(file)) return "it cannot be read twice";
  return "it has no _DEV_ID line";
}

int load_file(const char* path, fru_dev* dev, fru_exact_dev* exact) {
  init_fru_dev(dev);
  forget_refusal();
  FILE* file = std::fopen(path, "re");
  if (file == nullptr) {
    keep_refusal("%s", std::strerror(errno));
    return 0;
  }
  const int result = read_file(file, dev, exact, nullptr);
  if (result != 1 && refusal()[0] == '\0') keep_refusal("%s", unreadable(file));
  std::fclose(file);
  if (result != 1) destroy_fru_dev(dev);
  return result;
}

}  // namespace

int FileToFru(const char* path, fru_dev* dev) {
  return load_file(path, dev, nullptr);
}

int ExactFileToFru(const char* path, fru_exact_dev* exact) {
  fru_dev dev;
  const int result = load_file(path, &dev, exact);
  for (unsigned i = 0; result == 1 && i < exact->count; i++) {
    exact->records[i].id = dev.records[i].dev_id;
  }
  destroy_fru_dev(&dev);
  return result;
}

void look_at_fru_file(const char* path) {
  bool other = false;
  FILE* file = regular_open(path, &other);
  if (file == nullptr) return;
  fru_dev unused;
  init_fru_dev(&unused);
  fru_exact_dev exact;
  File_signs signs = {};
  blameFlag = 0;
  read_file(file, &unused, exactFlag != 0 ? &exact : nullptr, &signs);
  blameFlag = 1;
  std::fclose(file);
  destroy_fru_dev(&unused);
  tell_signs(signs, path);
}

// Writes Sensor Data Records as text: a byte a line, comments in one column.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/dump_file.h"
#include "sdr/comments.h"
#include "sdr/records.h"

namespace {

constexpr unsigned COMMENT_COLUMN = 40;
constexpr unsigned COMMENT_LIMIT = 1026;  // "// " and a line of util.dat
constexpr uint8_t ID_LENGTH_MASK = 0x1F;

const char* const HEADER_COMMENTS[SDR_HEADER_SIZE] = {
    "// Record ID LSB", "// Record ID MSB", "// SDR Version", "// Record Type", "// Record Length",
};

// What comes before the ID string in a record's body. Its last byte is the ID string's type and
// length.
constexpr unsigned LOCATOR_COMMENTS = 4;
struct Fixed_part {
  uint8_t record_type;
  unsigned size;
  const char* comments[LOCATOR_COMMENTS];
};
const Fixed_part FIXED_PARTS[] = {
    {FULL_SENSOR, FULL_SENSOR_FIELDS, {}},
    {COMPACT_SENSOR, COMPACT_SENSOR_FIELDS, {}},
    {0x03, 12, {}},
    {0x10, 11, {"// Device Access Address", "// Device Slave Address", "// Access LUN/Bus ID"}},
    {0x11,
     11,
     {"// Device Access Address", "// FRU Device ID", "// Logical-Phsyical/Address/LUN/Bus ID",
      "// Channel Number"}},
    {0x12, 11, {"// Device Slave Address", "// Channel Number"}},
};

// A line under way.
struct Line {
  unsigned length;
  char text[COMMENT_COLUMN + COMMENT_LIMIT + 1];
};

void add(Line* line, const void* bytes, size_t count) {
  const size_t room = sizeof line->text - line->length;
  const size_t taken = std::min(count, room);
  std::memcpy(line->text + line->length, bytes, taken);
  line->length += static_cast<unsigned>(taken);
}

void add_comment(Line* line, const char* comment) {
  static const char BLANKS[] = "                                        ";
  static_assert(sizeof BLANKS == COMMENT_COLUMN + 1);
  if (line->length < COMMENT_COLUMN) add(line, BLANKS, COMMENT_COLUMN - line->length);
  add(line, comment, std::strlen(comment));
}

void put_byte(FILE* file, uint8_t byte, const char* comment) {
  static const char DIGITS[] = "0123456789ABCDEF";
  const char start[] = {' ', ' ', ' ', DIGITS[byte >> 4], DIGITS[byte & 0x0F]};
  Line line;
  line.length = 0;
  add(&line, start, sizeof start);
  if (comment != nullptr) add_comment(&line, comment);
  add(&line, "\n", 1);
  std::fwrite(line.text, 1, line.length, file);
}

void put_id_string(FILE* file, const uint8_t* id, unsigned length) {
  Line line;
  line.length = 0;
  add(&line, "   '", 4);
  add(&line, id, length);
  add(&line, "'", 1);
  // The last quote belongs to the comment: readers drop both.
  add_comment(&line, "// Sensor ID String'\n");
  std::fwrite(line.text, 1, line.length, file);
}

void put_header(FILE* file, const sdr_entry& entry) {
  std::fprintf(file, "\n_SDR_TYPE    %02X\n", entry.record_type);
  std::fprintf(file, "_REC_LEN     %02X\n\n", entry.record_length + SDR_HEADER_SIZE);
  const uint8_t header[SDR_HEADER_SIZE] = {entry.record_id_ls, entry.record_id_ms,
                                           entry.sdr_version, entry.record_type,
                                           entry.record_length};
  for (unsigned i = 0; i < SDR_HEADER_SIZE; i++) put_byte(file, header[i], HEADER_COMMENTS[i]);
  std::fputc('\n', file);
}

const Fixed_part* fixed_part_of(uint8_t record_type) {
  for (const Fixed_part& part : FIXED_PARTS) {
    if (part.record_type == record_type) return &part;
  }
  return nullptr;
}

const char* comment_of(const Fixed_part& part, const sdr_comments& comments, unsigned index) {
  if (index < LOCATOR_COMMENTS && part.comments[index] != nullptr) return part.comments[index];
  return field_comment(comments, part.record_type, index);
}

void put_body(FILE* file, const sdr_entry& entry, const sdr_comments& comments) {
  const unsigned size = entry.sdr_data ? entry.record_length : 0;
  const Fixed_part* part = fixed_part_of(entry.record_type);
  const unsigned fixed = part != nullptr ? std::min(part->size, size) : size;
  for (unsigned i = 0; i < fixed; i++) {
    const char* comment = part != nullptr ? comment_of(*part, comments, i) : nullptr;
    put_byte(file, entry.sdr_data[i], comment);
  }
  if (size == fixed) return;
  const unsigned length = entry.sdr_data[fixed - 1] & ID_LENGTH_MASK;
  put_id_string(file, &entry.sdr_data[fixed], std::min(length, size - fixed));
}

}  // namespace

int SdrToFile(const char* path, const sdr_repository* repository) {
  sdr_comments comments;
  read_comments(&comments);
  FILE* file = dump_open(path);
  if (file == nullptr) return 0;
  std::fputs("_SDR (\n", file);
  for (uint32_t i = 0; i < repository->record_count; i++) {
    put_header(file, repository->psdr_entry[i]);
    put_body(file, repository->psdr_entry[i], comments);
  }
  std::fputs("\n\n)\n", file);
  return dump_close(file, path) ? 1 : 0;
}

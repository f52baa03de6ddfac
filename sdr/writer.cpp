// Writes Sensor Data Records as text: a byte a line, comments in one column.
#include <algorithm>
#include <cstdio>
#include <string_view>

#include "base/dump_file.h"
#include "base/notice.h"
#include "sdr/losses.h"
#include "sdr/text.h"
#include "textfile/quoted.h"

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

// A line under way; what does not fit is cut.
struct Text_line {
  size_t length = 0;
  std::array<char, COMMENT_COLUMN + COMMENT_LIMIT + 1> text;
};

void add(Text_line* line, std::string_view text) {
  const auto room = std::span(line->text).subspan(line->length);
  const std::string_view taken = text.substr(0, room.size());
  std::ranges::copy(taken, room.begin());
  line->length += taken.size();
}

void add_comment(Text_line* line, std::string_view comment) {
  constexpr std::string_view BLANKS = "                                        ";
  static_assert(BLANKS.size() == COMMENT_COLUMN);
  if (line->length < COMMENT_COLUMN) add(line, BLANKS.substr(line->length));
  add(line, comment);
}

void put_line(FILE* file, const Text_line& line) {
  std::fwrite(line.text.data(), 1, line.length, file);
}

void put_byte_line(FILE* file, uint8_t byte, const char* comment) {
  static const char DIGITS[] = "0123456789ABCDEF";
  const char start[] = {' ', ' ', ' ', DIGITS[byte >> 4], DIGITS[byte & 0x0F]};
  Text_line line;
  add(&line, {start, sizeof start});
  if (comment != nullptr) add_comment(&line, comment);
  add(&line, "\n");
  put_line(file, line);
}

void put_id_string(FILE* file, std::span<const uint8_t> id) {
  Text_line line;
  add(&line, "   '");
  for (const uint8_t byte : id) {
    const char c = static_cast<char>(byte);
    add(&line, {&c, 1});
  }
  add(&line, "'");
  // The last quote belongs to the comment: readers drop both.
  add_comment(&line, "// Sensor ID String'\n");
  put_line(file, line);
}

void put_exact_id_string(FILE* file, std::span<const uint8_t> id) {
  char room[quoted_room(ID_LENGTH_MASK)];
  Text_line line;
  add(&line, "   ");
  add(&line, put_quoted(id, room));
  add_comment(&line, "// Sensor ID String\n");
  put_line(file, line);
}

void put_record_header(FILE* file, const sdr_entry& entry) {
  std::fprintf(file, "\n_SDR_TYPE    %02X\n", entry.record_type);
  const unsigned length = entry.record_length + SDR_HEADER_SIZE;
  const bool two_bytes = exactFlag != 0 && length > 0xFF;
  std::fprintf(file, "_REC_LEN     %0*X\n\n", two_bytes ? 4 : 2, length);
  const auto header = header_of(entry);
  for (unsigned i = 0; i < SDR_HEADER_SIZE; i++) {
    put_byte_line(file, header[i], HEADER_COMMENTS[i]);
  }
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

// How many bytes of the body come before the ID string; all of a type that has none.
size_t fixed_size(const sdr_entry& entry) {
  const Fixed_part* part = fixed_part_of(entry.record_type);
  const size_t size = body_of(entry).size();
  return part != nullptr ? std::min<size_t>(part->size, size) : size;
}

void put_body(FILE* file, const sdr_entry& entry, const sdr_comments& comments) {
  const auto body = body_of(entry);
  const Fixed_part* part = fixed_part_of(entry.record_type);
  const size_t fixed = fixed_size(entry);
  for (unsigned i = 0; i < fixed; i++) {
    put_byte_line(file, body[i], part != nullptr ? comment_of(*part, comments, i) : nullptr);
  }
  if (body.size() == fixed) return;
  const auto id = id_string_of(entry);
  if (exactFlag == 0) return put_id_string(file, id);
  if (!id.empty()) put_exact_id_string(file, id);
  for (const uint8_t byte : body.subspan(fixed + id.size())) put_byte_line(file, byte, nullptr);
}

}  // namespace

std::span<const uint8_t> id_string_of(const sdr_entry& entry) {
  const auto body = body_of(entry);
  const size_t fixed = fixed_size(entry);
  const auto rest = body.subspan(fixed);
  if (rest.empty()) return rest;
  const size_t length = body[fixed - 1] & ID_LENGTH_MASK;
  return rest.first(std::min(length, rest.size()));
}

void put_sdr_text(FILE* file, std::span<const sdr_entry> entries, const sdr_comments& comments) {
  std::fputs("_SDR (\n", file);
  for (const sdr_entry& entry : entries) {
    put_record_header(file, entry);
    put_body(file, entry, comments);
  }
  std::fputs("\n\n)\n", file);
}

int SdrToFile(const char* path, const sdr_repository* repository) {
  sdr_comments comments;
  read_comments(&comments);
  FILE* file = dump_open(path);
  if (file == nullptr) return 0;
  put_sdr_text(file, entries_of(*repository), comments);
  if (!dump_close(file)) return 0;
  if (exactFlag == 0 && warnings_wanted()) tell_sdr_losses(path, *repository);
  return 1;
}

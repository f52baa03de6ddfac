// Motorola S-records.
//
// | characters | content                                                       |
// |------------|---------------------------------------------------------------|
// | 0..1       | "S3"                                                          |
// | 2..3       | byte count: all that follow, at most 255                      |
// | 4..11      | address, most significant byte first                          |
// | 12..       | data: count - 5 bytes, then one checksum byte, which is not   |
// |            | looked at                                                     |
#include "firmware/srecord.h"

#include <array>
#include <cstring>

namespace {

constexpr unsigned COUNT_DIGITS = 2;  // index of the byte count
constexpr unsigned ADDRESS_DIGITS = 4;
constexpr unsigned DATA_DIGITS = 12;
constexpr unsigned OVERHEAD = 5;  // address and checksum, in bytes
constexpr unsigned LONGEST_RECORD = ADDRESS_DIGITS + 2 * 255;
// One more shows that a line is longer than any record.
constexpr unsigned LINE_ROOM = LONGEST_RECORD + 1;
constexpr unsigned NOT_HEX = 0x100;

constexpr char NOT_A_DIGIT[] = "a character is not a hexadecimal digit";
constexpr char COUNT_TOO_SMALL[] = "the byte count is below 5";
constexpr char LINE_TOO_SHORT[] = "the line is shorter than its byte count";
constexpr char LINE_TOO_LONG[] = "the line is longer than its byte count";
constexpr char OUT_OF_ORDER[] = "the data is out of ascending order";
constexpr char OUT_OF_SPACE[] = "the data runs past the last address";
constexpr char NOT_READABLE[] = "the file cannot be read";

struct Data_record {
  uint32_t address;
  unsigned count;      // data bytes
  const char* digits;  // of the data
};

// How far the file has been read. It begins with srecord_restart and carries a line that crosses
// the end of a portion over into the next one.
struct Reading {
  int readFlag;             // 1 while buf holds a line that is not wholly placed
  char buf[LINE_ROOM + 1];  // NUL-terminated
  unsigned split;           // data bytes of buf that went into the portion before
  bool placed;              // the portion holds data
  const char* fault;        // of a record that could not be placed
};
Reading reading;

// 16 values, the rest NOT_HEX.
constexpr std::array<uint16_t, 256> digit_values() {
  std::array<uint16_t, 256> values{};
  values.fill(NOT_HEX);
  for (unsigned i = 0; i < 10; i++) values['0' + i] = static_cast<uint16_t>(i);
  for (unsigned i = 0; i < 6; i++) {
    values['A' + i] = static_cast<uint16_t>(10 + i);
    values['a' + i] = static_cast<uint16_t>(10 + i);
  }
  return values;
}
constexpr std::array<uint16_t, 256> DIGITS = digit_values();

// Reads one line without its end: CR LF, CR, LF or the end of the file. What does not fit is
// dropped. False when there is none, not even an empty one.
bool read_line(FILE* file, char* line) {
  unsigned length = 0;
  int c = getc_unlocked(file);
  if (c == EOF) return false;
  for (; c != EOF && c != '\r' && c != '\n'; c = getc_unlocked(file)) {
    if (length < LINE_ROOM) line[length++] = static_cast<char>(c);
  }
  line[length] = '\0';
  if (c != '\r') return true;
  c = getc_unlocked(file);
  if (c != EOF && c != '\n') std::ungetc(c, file);
  return true;
}

bool is_data_record(const char* line) {
  return line[0] == 'S' && line[1] == '3';
}

bool all_hex(const char* digits, size_t count) {
  unsigned seen = 0;
  for (size_t i = 0; i < count; i++) seen |= DIGITS[static_cast<uint8_t>(digits[i])];
  return seen < NOT_HEX;
}

// Takes a line apart that is_data_record. Null, or why it is no sound record.
const char* parse_record(const char* line, Data_record* record) {
  const size_t length = std::strlen(line);
  if (length < ADDRESS_DIGITS) return LINE_TOO_SHORT;
  const unsigned count = convert(line[COUNT_DIGITS], line[COUNT_DIGITS + 1]);
  if (count >= NOT_HEX) return NOT_A_DIGIT;
  if (count < OVERHEAD) return COUNT_TOO_SMALL;
  const size_t end = ADDRESS_DIGITS + 2 * size_t{count};
  if (!all_hex(line + ADDRESS_DIGITS, length < end ? length - ADDRESS_DIGITS : 2 * count)) {
    return NOT_A_DIGIT;
  }
  if (length < end) return LINE_TOO_SHORT;
  if (line[end + std::strspn(line + end, " \t")] != '\0') return LINE_TOO_LONG;
  record->address = 0;
  for (unsigned i = ADDRESS_DIGITS; i < DATA_DIGITS; i += 2) {
    record->address = record->address << 8 | convert(line[i], line[i + 1]);
  }
  record->count = count - OVERHEAD;
  record->digits = line + DATA_DIGITS;
  return nullptr;
}

// Null when the record may follow data that ended before `*next`, which moves on.
const char* check_order(const Data_record& record, uint64_t* next) {
  if (record.count == 0) return nullptr;
  if (record.address < *next) return OUT_OF_ORDER;
  *next = uint64_t{record.address} + record.count;
  return *next > ADDRESS_SPACE ? OUT_OF_SPACE : nullptr;
}

}  // namespace

unsigned convert(char c1, char c2) {
  const unsigned high = DIGITS[static_cast<uint8_t>(c1)];
  const unsigned low = DIGITS[static_cast<uint8_t>(c2)];
  return high << 4 | low;
}

const char* srecord_fault(FILE* file, unsigned* line_number) {
  char line[LINE_ROOM + 1];
  uint64_t next = 0;
  *line_number = 1;
  for (; read_line(file, line); ++*line_number) {
    Data_record record;
    if (!is_data_record(line)) continue;
    const char* reason = parse_record(line, &record);
    if (reason == nullptr) reason = check_order(record, &next);
    if (reason != nullptr) return reason;
  }
  return std::ferror(file) != 0 ? NOT_READABLE : nullptr;
}

void srecord_restart() {
  reading = {};
}

// A record that runs past the portion's end stays in the line: its rest opens the next portion.
void interpret_data(ImageBuffer* buffer, const char* line) {
  Data_record record;
  reading.readFlag = 0;
  const unsigned used = reading.split;
  reading.split = 0;
  if (!is_data_record(line)) return;
  reading.fault = parse_record(line, &record);
  if (reading.fault != nullptr || used >= record.count) return;
  const uint32_t address = record.address + used;
  if (!reading.placed) buffer->base = address;
  buffer->pos = address;
  reading.placed = true;
  unsigned i = used;
  for (; i < record.count && buffer->pos - buffer->base < PORTION_SIZE; i++) {
    const unsigned byte = convert(record.digits[2 * i], record.digits[2 * i + 1]);
    buffer->bytes[buffer->pos - buffer->base] = static_cast<uint8_t>(byte);
    buffer->pos++;
  }
  if (i == record.count) return;
  reading.readFlag = 1;
  reading.split = i;
}

bool srecord_fill(FILE* file, ImageBuffer* buffer) {
  reading.placed = false;
  while (reading.fault == nullptr && (reading.readFlag != 0 || std::feof(file) == 0)) {
    if (reading.readFlag == 0 && !read_line(file, reading.buf)) break;
    interpret_data(buffer, reading.buf);
    if (buffer->pos - buffer->base >= PORTION_SIZE) break;
  }
  buffer->pos = buffer->base;
  // A line that waits is data still to come.
  if (reading.readFlag == 0 && (std::feof(file) != 0 || std::ferror(file) != 0)) buffer->eof = 1;
  return reading.fault == nullptr && std::ferror(file) == 0;
}

bool srecord_placed() {
  return reading.placed;
}

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

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "textfile/signs.h"
#include "transport/interrupt.h"

namespace {

constexpr unsigned COUNT_DIGITS = 2;  // index of the byte count
constexpr unsigned ADDRESS_DIGITS = 4;
constexpr unsigned DATA_DIGITS = 12;
constexpr unsigned OVERHEAD = 5;  // address and checksum, in bytes
constexpr unsigned LONGEST_RECORD = ADDRESS_DIGITS + 2 * 255;
// One more shows that a line is longer than any record.
constexpr unsigned RECORD_ROOM = LONGEST_RECORD + 1;
constexpr unsigned NOT_HEX = 0x100;
constexpr unsigned LINES_UNSEEN = 4096;  // checked between two looks for a signal

constexpr char NOT_A_DIGIT[] = "a character is not a hexadecimal digit";
constexpr char COUNT_TOO_SMALL[] = "the byte count is below 5";
constexpr char LINE_TOO_SHORT[] = "the line is shorter than its byte count";
constexpr char LINE_TOO_LONG[] = "the line is longer than its byte count";
constexpr char BELOW_PORTION[] = "the record lies below the portion that is being filled";
constexpr char OUT_OF_SPACE[] = "the data runs past the last address";
constexpr char INTERRUPTED[] = "a signal ended the check";
constexpr char FILE_NOT_READABLE[] = "the file cannot be read";

struct Data_record {
  uint32_t address;
  std::string_view digits;  // of the data, two a byte
};

// One reading of a file, from srecord_begin to srecord_end: what it keeps from one portion to the
// next.
struct Reading {
  FILE* file;
  int readFlag;               // 1 while buf holds a line that is not wholly placed
  char buf[RECORD_ROOM + 1];  // NUL-terminated
  unsigned split;             // data bytes of buf that went into the portion before
  bool placed;                // the portion has its base
  bool has_data;              // the portion holds data
  const char* fault;          // of a record that could not be placed
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
bool read_line(FILE* file, std::span<char, RECORD_ROOM + 1> line) {
  unsigned length = 0;
  int c = getc_unlocked(file);
  if (c == EOF) return false;
  for (; c != EOF && c != '\r' && c != '\n'; c = getc_unlocked(file)) {
    if (length < RECORD_ROOM) line[length++] = static_cast<char>(c);
  }
  line[length] = '\0';
  if (c != '\r') return true;
  c = getc_unlocked(file);
  if (c != EOF && c != '\n') std::ungetc(c, file);
  return true;
}

constexpr char END_RECORD[] = "S7";
constexpr char COUNT_RECORD[] = "S5";

bool is_data_record(std::string_view line) {
  return line.starts_with("S3");
}

bool all_hex(std::string_view digits) {
  unsigned seen = 0;
  for (const char digit : digits) seen |= DIGITS[static_cast<uint8_t>(digit)];
  return seen < NOT_HEX;
}

// Takes a line apart that is_data_record. Null, or why it is no sound record.
const char* parse_record(std::string_view line, Data_record* record) {
  if (line.size() < ADDRESS_DIGITS) return LINE_TOO_SHORT;
  const unsigned count = convert(line[COUNT_DIGITS], line[COUNT_DIGITS + 1]);
  if (count >= NOT_HEX) return NOT_A_DIGIT;
  if (count < OVERHEAD) return COUNT_TOO_SMALL;
  const size_t end = ADDRESS_DIGITS + 2 * size_t{count};
  if (!all_hex(line.substr(ADDRESS_DIGITS, end - ADDRESS_DIGITS))) return NOT_A_DIGIT;
  if (line.size() < end) return LINE_TOO_SHORT;
  if (line.find_first_not_of(" \t", end) != line.npos) return LINE_TOO_LONG;
  record->address = 0;
  for (unsigned i = ADDRESS_DIGITS; i < DATA_DIGITS; i += 2) {
    record->address = record->address << 8 | convert(line[i], line[i + 1]);
  }
  record->digits = line.substr(DATA_DIGITS, 2 * size_t{count - OVERHEAD});
  return nullptr;
}

// The bytes of a sound record, its count and its checksum included, sum up to FF.
bool checksum_holds(std::string_view line) {
  const unsigned count = convert(line[COUNT_DIGITS], line[COUNT_DIGITS + 1]);
  unsigned sum = count;
  for (size_t i = 0; i < count; i++) {
    sum += convert(line[ADDRESS_DIGITS + 2 * i], line[ADDRESS_DIGITS + 2 * i + 1]);
  }
  return (sum & 0xFF) == 0xFF;
}

// A line of blanks, or with the end-of-file sign of old systems, is none.
bool is_empty(std::string_view line) {
  return line.find_first_not_of(" \t\x1A") == line.npos;
}

// Whether the line is long enough for its count, and all digits; of any kind of record.
bool is_whole_record(std::string_view line) {
  if (line.size() < ADDRESS_DIGITS) return false;
  const unsigned count = convert(line[COUNT_DIGITS], line[COUNT_DIGITS + 1]);
  const size_t end = ADDRESS_DIGITS + 2 * size_t{count};
  return count < NOT_HEX && line.size() >= end &&
         all_hex(line.substr(COUNT_DIGITS, end - COUNT_DIGITS));
}

// `records` counts the data records so far, which S5 repeats in its last four digits.
void note_record(std::string_view line, unsigned number, unsigned* records, File_signs* signs) {
  if (is_empty(line)) return;
  const bool record = line[0] == 'S' && line.size() > 1 && line[1] >= '0' && line[1] <= '9';
  if (!record) return note_sign(signs, Sign::other_line, number);
  if (line[1] == '1' || line[1] == '2') note_sign(signs, Sign::left_out_record, number);
  if (is_data_record(line)) ++*records;
  if (!is_whole_record(line)) return;
  if (!checksum_holds(line)) note_sign(signs, Sign::wrong_checksum, number);
  if (line.starts_with(COUNT_RECORD) && line.size() >= DATA_DIGITS - ADDRESS_DIGITS) {
    const unsigned counted = convert(line[4], line[5]) << 8 | convert(line[6], line[7]);
    if (counted != (*records & 0xFFFF)) note_sign(signs, Sign::wrong_count, number);
  }
}

unsigned data_bytes(const Data_record& record) {
  return static_cast<unsigned>(record.digits.size() / 2);
}

// Where a record may lie: in the portion that is being filled, or after it.
struct Extent {
  uint64_t base;  // of the portion, or the end of the one before
  bool open;      // a record has set the base
};

// Null when the record can be placed. One that reaches the portion's end closes it, and its rest
// opens the next one.
const char* check_place(const Data_record& record, Extent* portion) {
  const uint64_t end = uint64_t{record.address} + data_bytes(record);
  if (record.address < portion->base) return BELOW_PORTION;
  if (end > ADDRESS_SPACE) return OUT_OF_SPACE;
  const bool inside = portion->open && record.address - portion->base < PORTION_SIZE;
  if (!inside) portion->base = record.address;
  portion->open = true;
  if (end - portion->base < PORTION_SIZE) return nullptr;
  portion->base += PORTION_SIZE;
  portion->open = end > portion->base;
  return nullptr;
}

// Null when the line holds no data, or a record that can be placed; `*end` is moved after its data.
const char* check_line(std::string_view line, Extent* portion, uint64_t* end) {
  Data_record record;
  if (!is_data_record(line)) return nullptr;
  const char* reason = parse_record(line, &record);
  if (reason == nullptr) reason = check_place(record, portion);
  if (reason != nullptr || record.digits.empty()) return reason;
  *end = std::max(*end, uint64_t{record.address} + data_bytes(record));
  return nullptr;
}

}  // namespace

unsigned convert(char c1, char c2) {
  const unsigned high = DIGITS[static_cast<uint8_t>(c1)];
  const unsigned low = DIGITS[static_cast<uint8_t>(c2)];
  return high << 4 | low;
}

const char* srecord_fault(FILE* file, unsigned* line_number, uint64_t* end) {
  char line[RECORD_ROOM + 1];
  Extent portion = {};
  *end = 0;
  *line_number = 1;
  for (; read_line(file, line); ++*line_number) {
    if (*line_number % LINES_UNSEEN == 0 && interrupted()) return INTERRUPTED;
    const char* reason = check_line(line, &portion, end);
    if (reason != nullptr) return reason;
  }
  return std::ferror(file) != 0 ? FILE_NOT_READABLE : nullptr;
}

void note_record_signs(FILE* file, File_signs* signs) {
  char line[RECORD_ROOM + 1];
  bool ended = false;
  unsigned records = 0;
  for (unsigned number = 1; read_line(file, line); number++) {
    if (number % LINES_UNSEEN == 0) interrupt_point();
    ended = ended || std::string_view(line).starts_with(END_RECORD);
    note_record(line, number, &records, signs);
  }
  if (!ended) note_sign(signs, Sign::no_end_record, 0);
}

void srecord_begin(FILE* file) {
  reading = {};
  reading.file = file;
}

void srecord_end() {
  reading = {};
}

// A record that begins after the portion, or runs past its end, stays in the line: it, or its rest,
// opens the next portion.
void interpret_data(ImageBuffer* buffer, const char* line) {
  Data_record record;
  reading.readFlag = 0;
  const unsigned used = reading.split;
  reading.split = 0;
  if (!is_data_record(line)) return;
  reading.fault = parse_record(line, &record);
  if (reading.fault != nullptr) return;
  const uint32_t address = record.address + used;
  if (!reading.placed) buffer->base = address;
  if (address < buffer->base) reading.fault = BELOW_PORTION;
  if (reading.fault != nullptr) return;
  reading.placed = true;
  buffer->pos = address;
  unsigned i = used;
  for (; i < data_bytes(record) && buffer->pos - buffer->base < PORTION_SIZE; i++) {
    const unsigned byte = convert(record.digits[2 * i], record.digits[2 * i + 1]);
    buffer->bytes[buffer->pos - buffer->base] = static_cast<uint8_t>(byte);
    buffer->pos++;
  }
  reading.has_data = reading.has_data || i > used;
  if (i == data_bytes(record) && address - buffer->base < PORTION_SIZE) return;
  reading.readFlag = 1;
  reading.split = i;
}

bool srecord_fill(ImageBuffer* buffer) {
  FILE* const file = reading.file;
  reading.placed = false;
  reading.has_data = false;
  while (reading.fault == nullptr && (reading.readFlag != 0 || std::feof(file) == 0)) {
    if (reading.readFlag == 0 && !read_line(file, reading.buf)) break;
    interpret_data(buffer, reading.buf);
    if (buffer->pos - buffer->base >= PORTION_SIZE) break;
  }
  buffer->pos = buffer->base;
  // A line that is not wholly placed is data for another portion.
  if (reading.readFlag == 0 && (std::feof(file) != 0 || std::ferror(file) != 0)) buffer->eof = 1;
  return reading.fault == nullptr && std::ferror(file) == 0;
}

bool srecord_placed() {
  return reading.placed;
}

bool srecord_has_data() {
  return reading.has_data;
}

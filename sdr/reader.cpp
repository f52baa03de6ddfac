// Reads a file of Sensor Data Records, in its text or its binary form.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/error_text.h"
#include "base/notice.h"
#include "base/regular_file.h"
#include "sdr/text.h"
#include "textfile/lines.h"
#include "textfile/quoted.h"
#include "textfile/tokenizer.h"
#include "transport/interrupt.h"

namespace {

constexpr unsigned LENGTH_LIMIT = SDR_HEADER_SIZE + 0xFF;
constexpr uint32_t COUNT_LIMIT = 0xFFFF;

const char OPENING[] = "_SDR";
const char TYPE[] = "_SDR_TYPE";
const char LENGTH[] = "_REC_LEN";
const char CLOSING[] = ")";
const char BINARY_ENDING[] = ".dat";

// A binary file. Where no block begins, bytes are skipped two at a time.
//
// | offset | size | content                                                  |
// |--------|------|----------------------------------------------------------|
// | 0      | 16   | file header, not interpreted                             |
// | then, for each record: a block                                            |
// | 0      | 1    | 5A                                                       |
// | 1      | 1    | L, the length of the whole block, at least 8             |
// | 2      | L-2  | record header (5) and body                               |
constexpr unsigned FILE_HEADER_SIZE = 16;
constexpr uint8_t BLOCK_MARKER = 0x5A;
constexpr unsigned MARK_SIZE = 2;
constexpr unsigned SMALLEST_BLOCK = 8;

constexpr unsigned PIECES_UNSEEN = 256;  // of a text file, between two looks for a signal

// What the next line of a text file may be.
enum Text_state { BEFORE_OPENING, BEFORE_TYPE, BEFORE_LENGTH, IN_DATA };

struct Text_reader {
  sdr_repository* repository;
  Text_state state;
  Lines lines;
  std::array<uint8_t, LENGTH_LIMIT> record;  // the one that is being read; zero after `count`
  unsigned length;                           // of the record, header included
  unsigned count;                            // bytes of the record so far
  unsigned culprit;  // the line to blame when the record's length byte is wrong
  bool closed;       // there was a closing line
  File_signs* signs;
};

bool refuse_line(unsigned line, const char* reason) {
  blame_line(line, reason);
  return false;
}

bool refuse_block(unsigned long offset, const char* reason) {
  keep_refusal("offset %lu: %s", offset, reason);
  if (blameFlag != 0) std::puts(refusal());
  return false;
}

// Appends a record as the file gave it. Null, or the reason why the file cannot be loaded.
const char* append_from_file(sdr_repository* repository, std::span<const uint8_t> record) {
  if (record.size() != SDR_HEADER_SIZE + size_t{record[SDR_LENGTH_BYTE]}) {
    return "the record's fifth byte is not the number of bytes after it";
  }
  if (repository->record_count >= COUNT_LIMIT) return "more than 65535 records";
  const sdr_entry* entry = append_record(repository, record);
  if (entry == nullptr) return "out of memory";
  if (!entry->sdr_data) set_err_message("psdr_entry.sdr_data error");
  return nullptr;
}

// The value after the keyword and one separator, most significant byte first; a value that is too
// large for a length is returned as some other one that is too large.
unsigned length_value(const char* text) {
  if (std::strlen(text) < sizeof LENGTH) return 0;
  uint8_t content[CONTENT_SIZE];
  const auto bytes = std::span(content).first(get_content(text + sizeof LENGTH, content));
  unsigned value = 0;
  for (const uint8_t byte : bytes) value = std::min(value, LENGTH_LIMIT + 1) << 8 | byte;
  return value;
}

// Notes what is wrong with the bytes of the present line.
void note_data(const Text_reader& reader, const char* bytes) {
  if (reader.lines.cut) note_sign(reader.signs, Sign::long_line, reader.lines.number);
  note_line(reader.signs, reader.lines.text, reader.lines.number);
  note_bytes(reader.signs, bytes, reader.lines.number);
}

bool begin_record(Text_reader* reader, const char* text) {
  note_data(*reader, text + std::min(std::strlen(text), sizeof LENGTH - 1));
  reader->length = length_value(text);
  if (reader->length < SDR_HEADER_SIZE)
    return refuse_line(reader->lines.number, "record length under 05");
  if (reader->length > LENGTH_LIMIT)
    return refuse_line(reader->lines.number, "record length over 0104");
  reader->record.fill(0);
  reader->count = 0;
  reader->culprit = reader->lines.number;
  reader->state = IN_DATA;
  return true;
}

bool end_record(Text_reader* reader, Text_state next) {
  if (reader->count < reader->length) {
    note_sign(reader->signs, Sign::closed_early, reader->lines.number);
  }
  const auto record = std::span(reader->record).first(reader->length);
  const char* reason = append_from_file(reader->repository, record);
  reader->state = next;
  return reason == nullptr || refuse_line(reader->culprit, reason);
}

bool data_line(Text_reader* reader, const char* text) {
  note_data(*reader, text);
  uint8_t content[CONTENT_SIZE];
  const unsigned given = get_content(text, content);
  const unsigned used = std::min(given, reader->length - reader->count);
  if (given > used) note_sign(reader->signs, Sign::extra_bytes, reader->lines.number);
  std::ranges::copy(std::span(content).first(used),
                    std::span(reader->record).subspan(reader->count, used).begin());
  if (reader->count <= SDR_LENGTH_BYTE) reader->culprit = reader->lines.number;
  reader->count += used;
  return reader->count < reader->length || end_record(reader, BEFORE_TYPE);
}

// A type line passes for the opening line, and its record is lost.
bool opening_line(Text_reader* reader, const char* text) {
  if (start_with(text, OPENING) != 1) return true;
  if (start_with(text, TYPE) == 1) {
    note_sign(reader->signs, Sign::no_opening, reader->lines.number);
  }
  reader->state = BEFORE_TYPE;
  return true;
}

// What stands after the closing line may be a remark. True: it is not read.
bool stray_line(Text_reader* reader, const char* text) {
  if (!reader->closed) note_stray(reader->signs, text, reader->lines.number);
  return true;
}

bool read_text_line(Text_reader* reader, const char* text) {
  switch (reader->state) {
    case BEFORE_OPENING:
      return opening_line(reader, text);
    case BEFORE_TYPE:
      if (start_with(text, TYPE) != 1) return stray_line(reader, text);
      reader->state = BEFORE_LENGTH;
      return true;
    case BEFORE_LENGTH:
      return start_with(text, LENGTH) == 1 ? begin_record(reader, text) : stray_line(reader, text);
    case IN_DATA:
      if (start_with(text, TYPE) == 1 || start_with(text, CLOSING) == 1) {
        return end_record(reader, BEFORE_LENGTH);
      }
      return data_line(reader, text);
  }
  return true;
}

// Whatever becomes of the last record.
void note_ends(const Text_reader& reader) {
  if (reader.state == BEFORE_OPENING) note_sign(reader.signs, Sign::no_opening, 0);
  if (!reader.closed) note_sign(reader.signs, Sign::no_closing, 0);
}

bool load_binary(FILE* file, sdr_repository* repository) {
  uint8_t bytes[0x100];
  unsigned long offset = std::fread(bytes, 1, FILE_HEADER_SIZE, file);
  while (std::fread(bytes, 1, MARK_SIZE, file) == MARK_SIZE) {
    const unsigned long start = offset;
    offset += MARK_SIZE;
    if (offset > file_limit) return refuse_block(start, FILE_TOO_LONG);
    if (bytes[0] != BLOCK_MARKER || bytes[1] < SMALLEST_BLOCK) continue;
    const auto record = std::span(bytes).first(bytes[1] - MARK_SIZE);
    if (std::fread(record.data(), 1, record.size(), file) != record.size()) {
      return refuse_block(start, "the block runs past the end of the file");
    }
    const char* reason = append_from_file(repository, record);
    if (reason != nullptr) return refuse_block(start, reason);
    offset += record.size();
  }
  return true;
}

// With --exact a dump comes back under any name.
bool is_exact_dump(FILE* file) {
  if (exactFlag == 0 || !is_regular(file)) return false;
  char start[8];
  const bool dump =
      std::fgets(start, sizeof start, file) != nullptr && start_with(start, "_SDR (") == 1;
  std::rewind(file);
  return dump;
}

// With --exact, text without a record may be the dump of an empty repository.
void note_empty(File_signs* signs) {
  if (signs == nullptr) return;
  const auto seen = [&](Sign sign) { return signs->lines[static_cast<unsigned>(sign)] > 0; };
  if (exactFlag == 0 || seen(Sign::no_opening) || seen(Sign::no_closing)) {
    note_sign(signs, Sign::no_record, 0);
  }
}

// False when the file is refused, or cannot be read; the repository is then empty.
bool load(FILE* file, const char* path, sdr_repository* repository, File_signs* signs) {
  freespace(repository);
  const bool is_exact_text = is_exact_dump(file);
  const bool loaded = is_binary_sdr(path) && !is_exact_text
                          ? load_binary(file, repository)
                          : load_sdr_text(file, repository, signs);
  const bool sound = loaded && std::ferror(file) == 0;
  if (loaded && !sound) keep_refusal("%s", std::strerror(errno));
  const bool text = !is_binary_sdr(path) || is_exact_text;
  if (sound && !text && exactFlag != 0 && repository->record_count == 0) {
    keep_refusal("a name for binary files, but no record of one");
    return false;
  }
  if (sound && repository->record_count == 0) note_empty(signs);
  if (!sound) freespace(repository);
  return sound;
}

}  // namespace

bool load_sdr_text(FILE* file, sdr_repository* repository, File_signs* signs) {
  Text_reader reader = {};
  reader.repository = repository;
  reader.signs = signs;
  reader.lines.file = file;
  reader.lines.room = LINE_ROOM;
  for (unsigned pieces = 1; next_line(&reader.lines); pieces++) {
    if (pieces % PIECES_UNSEEN == 0) interrupt_point();
    char cleaned[LINE_ROOM];
    process_string(reader.lines.text, cleaned);
    // At the file's very end the closing line has one character, which is no line to the tokenizer.
    const char* start = reader.lines.text + std::strspn(reader.lines.text, " \t");
    if (reader.state != BEFORE_OPENING && start_with(start, CLOSING) == 1) reader.closed = true;
    if (cleaned[0] != '\0' && !read_text_line(&reader, cleaned)) return false;
  }
  if (reader.lines.too_long) return false;
  if (std::ferror(file) == 0) note_ends(reader);
  // The end of the file closes what the closing line would close.
  return reader.state != IN_DATA || std::ferror(file) != 0 || end_record(&reader, BEFORE_LENGTH);
}

bool is_binary_sdr(const char* path) {
  const size_t length = std::strlen(path);
  const size_t tail = sizeof BINARY_ENDING - 1;
  return length > tail && start_with(path + length - tail, BINARY_ENDING) == 1;
}

int FileToSdr(const char* path, sdr_repository* repository) {
  forget_refusal();
  FILE* file = std::fopen(path, "re");
  if (file == nullptr) {
    keep_refusal("%s", std::strerror(errno));
    return 0;
  }
  File_signs signs = {};
  // A regular file was looked at before.
  const bool told = warnings_wanted() && !is_regular(file);
  const bool sound = load(file, path, repository, told ? &signs : nullptr);
  std::fclose(file);
  tell_signs(signs, path);
  return sound ? 1 : 0;
}

void look_at_sdr_file(const char* path) {
  bool other = false;
  FILE* file = regular_open(path, &other);
  if (file == nullptr) return;
  sdr_repository unused{};
  File_signs signs = {};
  blameFlag = 0;
  load(file, path, &unused, &signs);
  blameFlag = 1;
  std::fclose(file);
  tell_signs(signs, path);
}

// Reads a file of Sensor Data Records: the choice of its form, and the text form.
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "sdr/loader.h"
#include "sdr/records.h"
#include "textfile/lines.h"
#include "textfile/tokenizer.h"

namespace {

constexpr unsigned LENGTH_LIMIT = 0xFF;  // the length line's value is one byte

const char OPENING[] = "_SDR";
const char TYPE[] = "_SDR_TYPE";
const char LENGTH[] = "_REC_LEN";
const char CLOSING[] = ")";
const char BINARY_ENDING[] = ".dat";

// What the next line may be.
enum State { BEFORE_OPENING, BEFORE_TYPE, BEFORE_LENGTH, IN_DATA };

struct Reader {
  sdr_repository* repository;
  State state;
  Lines lines;
  unsigned length;   // of the record being read, header included
  unsigned count;    // bytes of it so far; the others are zero
  unsigned culprit;  // the line to blame when the record's length byte is wrong
  uint8_t record[LENGTH_LIMIT];
};

bool refuse(unsigned line, const char* reason) {
  blame_line(line, reason);
  return false;
}

// The value behind the keyword and one separator, most significant byte first; what is too large
// for a length stays too large.
unsigned length_value(const char* text) {
  if (std::strlen(text) < sizeof LENGTH) return 0;
  uint8_t content[CONTENT_SIZE];
  const unsigned bytes = get_content(text + sizeof LENGTH, content);
  unsigned value = 0;
  for (unsigned i = 0; i < bytes; i++) value = std::min(value, LENGTH_LIMIT + 1) << 8 | content[i];
  return value;
}

bool begin_record(Reader* reader, const char* text) {
  reader->length = length_value(text);
  if (reader->length < SDR_HEADER_SIZE)
    return refuse(reader->lines.number, "record length under 05");
  if (reader->length > LENGTH_LIMIT) return refuse(reader->lines.number, "record length over FF");
  std::memset(reader->record, 0, sizeof reader->record);
  reader->count = 0;
  reader->culprit = reader->lines.number;
  reader->state = IN_DATA;
  return true;
}

bool end_record(Reader* reader, State next) {
  const char* reason = load_record(reader->repository, reader->record, reader->length);
  reader->state = next;
  return reason == nullptr || refuse(reader->culprit, reason);
}

bool data_line(Reader* reader, const char* text) {
  uint8_t content[CONTENT_SIZE];
  const unsigned given = get_content(text, content);
  const unsigned used = std::min(given, reader->length - reader->count);
  std::memcpy(reader->record + reader->count, content, used);
  if (reader->count <= SDR_LENGTH_BYTE) reader->culprit = reader->lines.number;
  reader->count += used;
  return reader->count < reader->length || end_record(reader, BEFORE_TYPE);
}

bool take_line(Reader* reader, const char* text) {
  switch (reader->state) {
    case BEFORE_OPENING:
      if (start_with(text, OPENING) == 1) reader->state = BEFORE_TYPE;
      return true;
    case BEFORE_TYPE:
      if (start_with(text, TYPE) == 1) reader->state = BEFORE_LENGTH;
      return true;
    case BEFORE_LENGTH:
      return start_with(text, LENGTH) != 1 || begin_record(reader, text);
    case IN_DATA:
      if (start_with(text, TYPE) == 1 || start_with(text, CLOSING) == 1) {
        return end_record(reader, BEFORE_LENGTH);
      }
      return data_line(reader, text);
  }
  return true;
}

bool ends_in(const char* path, const char* ending) {
  const size_t length = std::strlen(path);
  const size_t tail = std::strlen(ending);
  return length > tail && strcasecmp(path + length - tail, ending) == 0;
}

}  // namespace

bool load_text(FILE* file, sdr_repository* repository) {
  Reader reader = {};
  reader.repository = repository;
  reader.lines.file = file;
  reader.lines.room = LINE_ROOM;
  while (next_line(&reader.lines)) {
    char cleaned[LINE_ROOM];
    process_string(reader.lines.text, cleaned, sizeof cleaned);
    if (cleaned[0] != '\0' && !take_line(&reader, cleaned)) return false;
  }
  // The end of the file closes what the closing line would close.
  return reader.state != IN_DATA || std::ferror(file) != 0 || end_record(&reader, BEFORE_LENGTH);
}

int FileToSdr(const char* path, sdr_repository* repository) {
  FILE* file = std::fopen(path, "re");
  if (file == nullptr) return 0;
  freespace(repository);
  const bool binary = ends_in(path, BINARY_ENDING);
  const bool loaded = binary ? load_binary(file, repository) : load_text(file, repository);
  const bool sound = loaded && std::ferror(file) == 0;
  std::fclose(file);
  if (!sound) freespace(repository);
  return sound ? 1 : 0;
}

// The comments of util.dat.
#include "sdr/comments.h"

#include <cstdio>
#include <cstring>

#include "base/memory.h"
#include "base/regular_file.h"
#include "textfile/tokenizer.h"

namespace {

constexpr int COMMENT_LINE_SIZE = 1024;
const char LEAD[] = "// ";

struct Section_lines {
  const char* opening;
  const char* closing;
};
const Section_lines SECTION_LINES[] = {
    {"<SDR_COMMENT_TYPE1>\n", "</SDR_COMMENT_TYPE1>\n"},
    {"<SDR_COMMENT_TYPE2>\n", "</SDR_COMMENT_TYPE2>\n"},
};
constexpr int OUTSIDE = -1;

int opened_by(const char* line) {
  for (int i = 0; i < 2; i++) {
    if (start_with(line, SECTION_LINES[i].opening) == 1) return i;
  }
  return OUTSIDE;
}

// An empty line leaves its field without a comment.
void add_field_comment(comment_section* section, const char* line) {
  std::unique_ptr<char[]>& comment = section->comments[section->taken++];
  const size_t length = std::strlen(line);
  if (length <= 1) return;
  comment = make_owned<char>(sizeof LEAD + length - 1);
  if (!comment) return;
  std::memcpy(comment.get(), LEAD, sizeof LEAD - 1);
  std::memcpy(comment.get() + sizeof LEAD - 1, line, length - 1);
}

}  // namespace

void read_comments(sdr_comments* comments) {
  *comments = {
      {{FULL_SENSOR, FULL_SENSOR_FIELDS, 0, {}}, {COMPACT_SENSOR, COMPACT_SENSOR_FIELDS, 0, {}}}};
  bool other = false;  // not used: a FIFO or a device is treated like no file
  FILE* file = regular_open("util.dat", &other);
  if (file == nullptr) return;
  char line[COMMENT_LINE_SIZE];
  int current = OUTSIDE;
  while (std::fgets(line, sizeof line, file) != nullptr) {
    if (current == OUTSIDE) {
      current = opened_by(line);
    } else if (start_with(line, SECTION_LINES[current].closing) == 1) {
      current = OUTSIDE;
    } else if (comment_section* section = &comments->sections[current];
               section->taken < section->fields) {
      add_field_comment(section, line);
      // Lines that are left are outside; in a full section that occurs again they are passed over.
      if (section->taken == section->fields) current = OUTSIDE;
    }
  }
  std::fclose(file);
}

const char* field_comment(const sdr_comments& comments, uint8_t record_type, unsigned index) {
  for (const comment_section& section : comments.sections) {
    if (section.record_type != record_type) continue;
    return index < section.fields ? section.comments[index].get() : nullptr;
  }
  return nullptr;
}

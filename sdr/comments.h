// The comments of util.dat on the fields of sensor records.
#pragma once
#include <array>
#include <cstdint>
#include <memory>

inline constexpr unsigned FULL_SENSOR_FIELDS = 43;
inline constexpr unsigned COMPACT_SENSOR_FIELDS = 27;
inline constexpr uint8_t FULL_SENSOR = 0x01;
inline constexpr uint8_t COMPACT_SENSOR = 0x02;

// One section of the file: the comments on the body bytes of one record type.
struct comment_section {
  uint8_t record_type;
  unsigned fields;
  unsigned taken;  // lines read into `comments` so far
  // With their "// "; null: none.
  std::array<std::unique_ptr<char[]>, FULL_SENSOR_FIELDS> comments;
};

struct sdr_comments {
  comment_section sections[2];
};

// Empties the sections and fills them from "util.dat" in the current directory, if there is one.
void read_comments(sdr_comments* comments);

// The comment on body byte `index` of this type of record, or null.
const char* field_comment(const sdr_comments& comments, uint8_t record_type, unsigned index);

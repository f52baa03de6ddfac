// Signs that a definition file is not what it was meant to be.
#include "textfile/signs.h"

#include <cstring>

#include "base/notice.h"
#include "textfile/tokenizer.h"

namespace {

const char* const TEXTS[SIGNS] = {
    "it has no opening line",
    "it has no closing line",
    "it has no record or request",
    "a record is closed before it is complete",
    "a character is no hexadecimal digit",
    "a comment begins inside quotes",
    "a quote is not closed",
    "a field ends in the middle of a quoted piece: its length does not fit its text",
    "the checksum of a record is wrong",
    "it has no end record (S7)",
    "a line has more bytes than are left of its record",
    "there is text after the end mark C1",
    "records that begin with type 00 are not written; use --exact",
    "the internal use area of the common section is not given; use --exact",
    "a line belongs to no record and no section",
    "a byte of one digit takes the next one's first digit",
    "a request has fewer than 3 bytes",
    "a line is no S-record",
    "a data record of type S1 or S2 is left out",
    "the count of data records (S5) is wrong",
    "a line is too long and is read as several",
    "it looks like S-records, but is taken as it is, because its name does not end in .mot",
};

}  // namespace

void note_sign(File_signs* signs, Sign sign, unsigned line) {
  if (signs == nullptr) return;
  const unsigned kind = static_cast<unsigned>(sign);
  if (signs->lines[kind] > 0 && signs->first[kind] == line) return;
  if (signs->lines[kind]++ == 0) signs->first[kind] = line;
}

void note_stray(File_signs* signs, const char* text, unsigned line) {
  if (text[std::strspn(text, " \t\r\n")] != '\0') note_sign(signs, Sign::stray_line, line);
}

void note_line(File_signs* signs, const char* text, unsigned line) {
  if (signs == nullptr || !has_quoted_comment(text)) return;
  note_sign(signs, Sign::quoted_comment, line);
  signs->cut_line = line;
}

void note_bytes(File_signs* signs, const char* text, unsigned line) {
  if (signs == nullptr) return;
  if (has_other_digit(text)) note_sign(signs, Sign::other_digit, line);
  if (has_split_byte(text)) note_sign(signs, Sign::split_byte, line);
  if (has_open_quote(text) && signs->cut_line != line) note_sign(signs, Sign::open_quote, line);
}

void tell_signs(const File_signs& signs, const char* path) {
  for (unsigned kind = 0; kind < SIGNS; kind++) {
    if (signs.lines[kind] == 0) continue;
    if (signs.first[kind] == 0) {
      warning("%s: %s", path, TEXTS[kind]);
    } else if (signs.lines[kind] == 1) {
      warning("%s: line %u: %s", path, signs.first[kind], TEXTS[kind]);
    } else {
      warning("%s: line %u and %u more: %s", path, signs.first[kind], signs.lines[kind] - 1,
              TEXTS[kind]);
    }
  }
}

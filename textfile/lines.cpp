// The lines of a definition file, as far as a reader's buffer holds them.
#include "textfile/lines.h"

#include <cstring>

#include "base/error_text.h"

uint64_t file_limit = uint64_t{1} << 30;
int blameFlag = 1;

namespace {

bool has_comment(const char* text) {
  return std::strchr(text, '#') != nullptr || std::strstr(text, "//") != nullptr;
}

// The next character, or EOF at the end of the file or of what may be read of it.
int take(Lines* lines) {
  const int c = getc_unlocked(lines->file);
  if (c == EOF) return EOF;
  if (lines->taken < file_limit) {
    lines->taken++;
    return c;
  }
  lines->too_long = true;
  return EOF;
}

// Puts the last character of take back, so that it comes again.
bool give_back(Lines* lines, int c) {
  if (std::ungetc(c, lines->file) != c) return false;
  lines->taken--;
  return true;
}

// As much of the line as there is room for, and a terminator. Returns the count of characters, 0 at
// the end of the file.
int read_piece(Lines* lines) {
  int count = 0;
  for (int c = 0; count < lines->room - 1 && c != '\n'; count++) {
    c = take(lines);
    if (c == EOF) break;
    lines->text[count] = static_cast<char>(c);
  }
  lines->text[count] = '\0';
  return lines->too_long || std::ferror(lines->file) != 0 ? 0 : count;
}

// After a piece without a line end: skips the rest of the line if a comment has begun, else notes
// that the line goes on.
void look_ahead(Lines* lines) {
  char& last = lines->text[lines->room - 2];
  int next = take(lines);
  const bool seen = has_comment(lines->text);
  // The last character may begin a comment whose second slash is the next one: the tokenizer, which
  // sees only this piece, could not tell.
  const bool begins = next != EOF && (last == '#' || (!seen && last == '/' && next == '/'));
  if (begins) last = '\0';
  if (begins || seen) {
    while (next != EOF && next != '\n') next = take(lines);
    return;
  }
  lines->cut = next != EOF && give_back(lines, next);
}

}  // namespace

bool next_line(Lines* lines) {
  const bool continued = lines->cut;
  if (lines->too_long) return false;
  lines->cut = false;
  const int count = read_piece(lines);
  if ((count > 0 || lines->too_long) && !continued) lines->number++;
  if (count == lines->room - 1 && lines->text[count - 1] != '\n') look_ahead(lines);
  if (lines->too_long) blame_line(lines->number, FILE_TOO_LONG);
  return count > 0 && !lines->too_long;
}

bool restart_lines(Lines* lines) {
  lines->number = 0;
  lines->cut = false;
  lines->too_long = false;
  lines->taken = 0;
  return std::ferror(lines->file) == 0 && fseeko(lines->file, 0, SEEK_SET) == 0;
}

void blame_line(unsigned number, const char* reason) {
  keep_refusal("line %u: %s", number, reason);
  if (blameFlag != 0) std::puts(refusal());
}

// The lines of a definition file, as far as a reader's buffer holds them.
#include "textfile/lines.h"

#include <cstring>

namespace {

bool has_comment(const char* text) {
  return std::strchr(text, '#') != nullptr || std::strstr(text, "//") != nullptr;
}

// Reads to the end of the line. False when the file ends here.
bool drop_rest(FILE* file) {
  int c = std::getc(file);
  const bool more = c != EOF;
  while (c != EOF && c != '\n') c = std::getc(file);
  return more;
}

}  // namespace

bool next_line(Lines* lines) {
  char& last = lines->text[lines->room - 2];
  char& end = lines->text[lines->room - 1];
  const bool continued = lines->cut;
  lines->cut = false;
  end = '\n';  // the terminator comes here only when the room is full
  if (std::fgets(lines->text, lines->room, lines->file) == nullptr) return false;
  if (!continued) lines->number++;
  if (end != '\0' || last == '\n') return true;
  if (has_comment(lines->text)) {
    // With something after it a number sign begins a comment, but the tokenizer cannot see that.
    if (drop_rest(lines->file) && last == '#') last = '\0';
    return true;
  }
  lines->cut = true;
  // The next character may make a comment of a slash: the two are read together.
  if (last == '/' && std::ungetc(last, lines->file) == '/') last = '\0';
  return true;
}

void blame_line(unsigned number, const char* reason) {
  std::printf("line %u: %s\n", number, reason);
}

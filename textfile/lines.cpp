// The lines of a definition file, as far as a reader's buffer holds them.
#include "textfile/lines.h"

#include <cstring>

namespace {

bool has_comment(const char* text) {
  return std::strchr(text, '#') != nullptr || std::strstr(text, "//") != nullptr;
}

}  // namespace

bool next_line(Lines* lines) {
  char& last = lines->text[lines->room - 2];
  char& end = lines->text[lines->room - 1];
  const bool continued = lines->cut;
  lines->in_comment = continued && (lines->in_comment || has_comment(lines->text));
  lines->cut = false;
  end = '\n';  // the terminator comes here only when the room is full
  if (std::fgets(lines->text, lines->room, lines->file) == nullptr) return false;
  if (!continued) lines->number++;
  lines->cut = end == '\0' && last != '\n';
  // The next character may make a comment of a slash: the two are read together.
  if (lines->cut && last == '/' && std::ungetc(last, lines->file) == '/') last = '\0';
  return true;
}

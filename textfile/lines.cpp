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
  lines->cut = false;
  end = '\n';  // the terminator comes here only when the room is full
  if (std::fgets(lines->text, lines->room, lines->file) == nullptr) return false;
  if (!continued) lines->number++;
  if (end != '\0' || last == '\n') return true;
  int next = std::getc(lines->file);
  const bool seen = has_comment(lines->text);
  // With the character after it the last one may begin a comment, which the tokenizer cannot see.
  const bool begins = next != EOF && (last == '#' || (!seen && last == '/' && next == '/'));
  if (begins) last = '\0';
  if (begins || seen) {
    while (next != EOF && next != '\n') next = std::getc(lines->file);
    return true;
  }
  lines->cut = next != EOF && std::ungetc(next, lines->file) == next;
  return true;
}

void blame_line(unsigned number, const char* reason) {
  std::printf("line %u: %s\n", number, reason);
}

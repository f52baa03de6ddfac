// The lines of a definition file, as far as a reader's buffer holds them.
#include "textfile/lines.h"

bool next_line(Lines* lines) {
  // The last place is written only when the buffer is full.
  char& last = lines->text[lines->room - 2];
  last = '\0';
  lines->continued = lines->cut;
  if (std::fgets(lines->text, lines->room, lines->file) == nullptr) return false;
  if (!lines->continued) lines->number++;
  lines->cut = last != '\0' && last != '\n';
  return true;
}

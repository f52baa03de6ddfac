// One line on a terminal's standard error that shows how far a long walk has come.
#include "base/progress.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

int progressFlag = 0;

namespace {

// A line is renewed when this part of the walk is done, however many steps the walk has.
constexpr uint64_t PARTS = 1000;

bool shown = false;
uint64_t shown_part = 0;

// In the background the terminal belongs to somebody who may be typing.
bool in_background() {
  const pid_t front = tcgetpgrp(STDERR_FILENO);
  return front != -1 && front != getpgrp();
}

}  // namespace

void progress(const char* what, unsigned done, unsigned total) {
  if (progressFlag == 0) return;
  const uint64_t part = total > 0 ? done * PARTS / total : done;
  if ((shown && part == shown_part) || in_background()) return;
  // Leaves the cursor at the start, so that a message of the transport begins there.
  std::fprintf(stderr, "\033[K%s %u/%u\r", what, done, total);
  shown = true;
  shown_part = part;
}

void progress_wait(const char* what, unsigned seconds) {
  if (in_background()) return;
  // The cursor is kept and brought back; a text that is too long for the line does not begin a new
  // one.
  std::fprintf(stderr, "\0337\033[?7l\033[Kwaiting for %s: %u s\033[?7h\0338", what, seconds);
  shown = true;
  shown_part = UINT64_MAX;
}

void progress_end() {
  if (!shown) return;
  shown = false;
  if (!in_background()) std::fputs("\033[K", stderr);
}

void progress_puts(const char* text) {
  progress_end();
  std::puts(text);
}

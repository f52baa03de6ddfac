// One line on a terminal's standard error that tells how far a long walk has come.
#include "base/progress.h"

#include <cstdio>

int progressFlag = 0;

namespace {
bool shown = false;
}

void progress(const char* what, unsigned done, unsigned total) {
  if (progressFlag == 0) return;
  std::fprintf(stderr, "\r\033[K%s %u/%u", what, done, total);
  shown = true;
}

void progress_end() {
  if (!shown) return;
  std::fputs("\r\033[K", stderr);
  shown = false;
}

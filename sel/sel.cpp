// System Event Log.
#include "sel/sel.h"

#include <cstdio>

int dumpSel(const char*) {
  std::puts("not built yet");
  return 0;
}

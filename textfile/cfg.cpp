// Script.
#include "textfile/cfg.h"

#include <cstdio>

void process_cfg(const char*) {
  std::puts("not built yet");
}

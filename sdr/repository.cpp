// SDR repository.
#include "sdr/sdr.h"

#include <cstdio>

int resetFlag = 1;
void sdrUpdate(const char*) {
  std::puts("not built yet");
}
void sdrDump(const char*) {
  std::puts("not built yet");
}

// FRU
#include "fru/fru.h"

#include <cstdio>

void fruUpdate(const char*) {
  std::puts("not built yet");
}
void fruDump(const char*) {
  std::puts("not built yet");
}

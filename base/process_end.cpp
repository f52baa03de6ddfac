// The end of the process other than by main's return or a signal.
#include "base/process_end.h"

#include <cstdlib>

void at_process_end(void (*last)()) {
  std::atexit(last);
}

void end_process(int status) {
  std::exit(status);
}

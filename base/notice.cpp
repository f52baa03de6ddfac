// Lines on standard error.
#include "base/notice.h"

#include <cstdarg>
#include <cstdio>

#include "base/progress.h"

int hintFlag = 0;

namespace {

void print_line(const char* format, va_list arguments) {
  progress_end();
  std::fflush(stdout);  // earlier output must stand before it
  std::fputs("qarn: ", stderr);
  std::vfprintf(stderr, format, arguments);
  std::fputc('\n', stderr);
}

}  // namespace

void notice(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print_line(format, arguments);
  va_end(arguments);
}

void hint(const char* format, ...) {
  if (hintFlag == 0) return;
  va_list arguments;
  va_start(arguments, format);
  print_line(format, arguments);
  va_end(arguments);
}

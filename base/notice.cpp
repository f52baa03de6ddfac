// Lines on standard error.
#include "base/notice.h"

#include <cstdarg>
#include <cstdio>

#include "base/progress.h"

int hintFlag = 0;
int strictFlag = 0;

namespace {

bool warned = false;
bool failed = false;

void print_line(const char* prefix, const char* format, va_list arguments) {
  progress_end();
  std::fflush(stdout);  // earlier output must stand before it
  std::fputs(prefix, stderr);
  std::vfprintf(stderr, format, arguments);
  std::fputc('\n', stderr);
}

}  // namespace

void notice(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print_line("qarn: ", format, arguments);
  va_end(arguments);
}

void remark(const char* format, ...) {
  if (!warnings_wanted()) return;
  va_list arguments;
  va_start(arguments, format);
  print_line("qarn: ", format, arguments);
  va_end(arguments);
}

void warning(const char* format, ...) {
  warned = true;
  if (!warnings_wanted()) return;
  va_list arguments;
  va_start(arguments, format);
  print_line("qarn: warning: ", format, arguments);
  va_end(arguments);
}

bool warnings_wanted() {
  return hintFlag != 0 || strictFlag != 0;
}

bool warnings_refuse() {
  return warned && strictFlag != 0;
}

void step_failed(const char* format, ...) {
  failed = true;
  if (strictFlag == 0) return;
  va_list arguments;
  va_start(arguments, format);
  print_line("qarn: ", format, arguments);
  va_end(arguments);
}

void hint_failed(const char* format, ...) {
  failed = true;
  if (!warnings_wanted()) return;
  va_list arguments;
  va_start(arguments, format);
  print_line("qarn: ", format, arguments);
  va_end(arguments);
}

bool any_step_failed() {
  return failed;
}

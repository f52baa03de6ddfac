// The last-error text.
#include "base/error_text.h"

#include <cstdarg>
#include <cstdio>

char err_message[ERR_MESSAGE_SIZE];

void set_err_message(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(err_message, sizeof err_message, format, arguments);
  va_end(arguments);
}

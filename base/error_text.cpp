// The last-error text.
#include "base/error_text.h"

#include <cstdarg>
#include <cstdio>

char err_message[ERR_MESSAGE_SIZE];

namespace {

char kept_refusal[160];

}  // namespace

void set_err_message(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(err_message, sizeof err_message, format, arguments);
  va_end(arguments);
}

const char* refusal() {
  return kept_refusal;
}

void keep_refusal(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(kept_refusal, sizeof kept_refusal, format, arguments);
  va_end(arguments);
}

void forget_refusal() {
  kept_refusal[0] = '\0';
}

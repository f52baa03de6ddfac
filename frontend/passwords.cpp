// Passwords that are asked for.
#include "frontend/passwords.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/notice.h"
#include "frontend/options.h"
#include "platform/platform.h"
#include "transport/interrupt.h"

namespace {

// A password and one character more, which shows that it is too long; a line end; a terminator.
constexpr unsigned TYPED_SIZE = PASSWORD_LIMIT + 3;

// Takes a carriage return off the end of a line. False when a NUL would end the password early.
bool end_typed(char* typed, unsigned length) {
  const bool whole = std::memchr(typed, 0, length) == nullptr;
  if (length > 0 && typed[length - 1] == '\r') typed[length - 1] = '\0';
  return whole;
}

// Reads one line, byte by byte, so that what follows it can be read by others. False when there is
// no line. A character beyond the room is dropped.
bool read_typed(char typed[TYPED_SIZE]) {
  std::memset(typed, 0, TYPED_SIZE);
  const Signals_let_in while_waiting;
  for (unsigned length = 0;;) {
    char c = 0;
    const ssize_t count = read(STDIN_FILENO, &c, 1);
    if (count < 0) return false;
    if (count == 0 || c == '\n') return end_typed(typed, length) && (count > 0 || length > 0);
    if (length + 1 < TYPED_SIZE) typed[length++] = c;
  }
}

// Asks on the terminal, which does not show what is typed by then. False when nothing was typed, or
// it would be seen.
bool read_unseen(const char* prompt, char typed[TYPED_SIZE]) {
  if (platform::terminal_echo(false) != 0) {
    notice("the terminal would show the password");
    return false;
  }
  std::fputs(prompt, stderr);
  const bool read = read_typed(typed);
  if (platform::terminal_echo(true) != 0)
    notice("the terminal does not show what is typed: stty echo");
  std::fputc('\n', stderr);
  return read;
}

bool read_twice(unsigned user, char typed[TYPED_SIZE]) {
  char again[TYPED_SIZE] = {};
  char prompt[40];
  std::snprintf(prompt, sizeof prompt, "New password of user ID %u: ", user);
  if (!read_unseen(prompt, typed)) return false;
  const bool given = read_unseen("Once more: ", again);
  const bool same = given && std::strcmp(typed, again) == 0;
  explicit_bzero(again, sizeof again);
  if (given && !same) std::puts("the two passwords differ");
  return same;
}

bool ask_password(unsigned slot, char password[PASSWORD_LIMIT + 1]) {
  char typed[TYPED_SIZE] = {};
  const bool terminal = isatty(STDIN_FILENO) != 0;
  const bool read = terminal ? read_twice(slot + 1, typed) : read_typed(typed);
  const bool typed_one = read && typed[0] != '\0';
  const bool fits = std::strlen(typed) <= PASSWORD_LIMIT;
  if (typed_one && fits) std::memcpy(password, typed, PASSWORD_LIMIT);
  explicit_bzero(typed, sizeof typed);
  interrupt_point();
  if (!typed_one) std::printf("--sp%u: no password was given\n", slot);
  if (typed_one && !fits) std::puts("the password mustn't more than 16 bytes");
  return typed_one && fits;
}

}  // namespace

bool ask_passwords(Options* options) {
  for (unsigned slot = 0; slot < USERS; slot++) {
    if (options->set_password[slot] == 0 || options->password_given[slot] != 0) continue;
    if (!ask_password(slot, options->password[slot])) return false;
  }
  return true;
}

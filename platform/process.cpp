// What a process has on every machine, real or simulated: signals and a terminal.
#include <termios.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>

#include "platform/platform.h"

namespace platform {

namespace {

constexpr int ENDING_SIGNALS[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT};
constexpr int FILE_SIGNALS[] = {SIGPIPE, SIGXFSZ};  // the call fails; that is enough
constexpr unsigned REMINDER_S = 1;

sigset_t held;  // the ending signals that were not ignored, and a stop
volatile sig_atomic_t noted = 0;

// A call that begins to block just after the signal came would not see it: SIGALRM reminds it.
void note(int number) {
  noted = number;
  ::alarm(REMINDER_S);
}

void remind(int) {
  ::alarm(REMINDER_S);
}

void set_handler(int number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigfillset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

bool is_ignored(int number) {
  struct sigaction action {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void let_in_one(int number) {
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, number);
  sigprocmask(SIG_UNBLOCK, &one, nullptr);
  sigprocmask(SIG_BLOCK, &one, nullptr);
}

}  // namespace

void signals_hold() {
  sigemptyset(&held);
  for (const int number : FILE_SIGNALS) set_handler(number, SIG_IGN);
  for (const int number : ENDING_SIGNALS) {
    if (is_ignored(number)) continue;
    set_handler(number, note);
    sigaddset(&held, number);
  }
  set_handler(SIGALRM, remind);
  if (!is_ignored(SIGTSTP)) sigaddset(&held, SIGTSTP);
  sigprocmask(SIG_BLOCK, &held, nullptr);
}

int signals_pending() {
  if (noted != 0) return noted;
  sigset_t waiting;
  if (sigpending(&waiting) != 0) return 0;
  for (const int number : ENDING_SIGNALS) {
    if (sigismember(&held, number) == 1 && sigismember(&waiting, number) == 1) noted = number;
  }
  return noted;
}

void signals_stop_here() {
  sigset_t waiting;
  const bool stop = sigpending(&waiting) == 0 && sigismember(&waiting, SIGTSTP) == 1 &&
                    sigismember(&held, SIGTSTP) == 1;
  if (stop) let_in_one(SIGTSTP);
}

void signals_let_in(bool in) {
  if (!in) ::alarm(0);
  sigprocmask(in ? SIG_UNBLOCK : SIG_BLOCK, &held, nullptr);
}

int terminal_echo(bool on) {
  termios settings{};
  if (tcgetattr(STDIN_FILENO, &settings) != 0) return -1;
  settings.c_lflag = on ? settings.c_lflag | ECHO : settings.c_lflag & ~static_cast<tcflag_t>(ECHO);
  return tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings);
}

void raise_default(int number) {
  set_handler(number, SIG_DFL);
  ::raise(number);
  let_in_one(number);
  std::abort();  // not reached: each of these signals ends a process
}

}  // namespace platform

// What a process has on every machine, real or simulated: signals and a terminal.
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <ctime>

#include "platform/platform.h"

namespace platform {

namespace {

// All signals that would end a process and are no fault of the program; those for real-time use,
// which have no names, come on top.
constexpr int ENDING_SIGNALS[] = {SIGHUP,  SIGINT,  SIGTERM,   SIGQUIT, SIGALRM, SIGUSR1,  SIGUSR2,
                                  SIGXCPU, SIGPROF, SIGVTALRM, SIGPWR,  SIGIO,   SIGSTKFLT};
constexpr int FILE_SIGNALS[] = {SIGPIPE, SIGXFSZ};  // the call fails; that is enough
constexpr time_t REMINDER_S = 1;
constexpr int SHELL_STATUS = 128;  // with the number of a signal: what a shell tells of its end

sigset_t held;        // the ending signals, the reminder, and a stop
bool caught = false;  // they have handlers
volatile sig_atomic_t noted = 0;
timer_t reminder;
bool has_reminder = false;
bool awake = false;
termios shown;  // the terminal's settings before the echo was switched off

int reminder_signal() {
  return SIGRTMAX;
}

void set_reminder(time_t seconds) {
  const itimerspec times = {{seconds, 0}, {seconds, 0}};
  if (has_reminder) timer_settime(reminder, 0, &times, nullptr);
}

// The signal does not end a call that begins to block just after it; the reminder, which then comes
// every second, does.
void note(int number) {
  if (noted == 0) noted = number;  // the first one is said, and ends the process
  set_reminder(REMINDER_S);
}

void remind(int) {
}

void create_reminder() {
  sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = reminder_signal();
  has_reminder = timer_create(CLOCK_MONOTONIC, &event, &reminder) == 0;
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

// The held signals that have come. False when none has, as at nearly every look. (sigisemptyset
// overlooks those for real-time use.)
bool any_waiting(sigset_t* waiting) {
  static const sigset_t none{};
  *waiting = none;
  return sigpending(waiting) == 0 && std::memcmp(waiting, &none, sizeof none) != 0;
}

// One that is ignored waits, too, while it is held.
bool is_waiting(const sigset_t& waiting, int number) {
  return sigismember(&waiting, number) == 1 && !is_ignored(number);
}

void install_handler(int number, void (*handler)(int)) {
  if (!is_ignored(number)) set_handler(number, handler);
}

// Most runs let no signal in, and need no handlers.
void install_handlers() {
  if (caught) return;
  caught = true;
  for (const int number : ENDING_SIGNALS) install_handler(number, note);
  for (int number = SIGRTMIN; number < reminder_signal(); number++) install_handler(number, note);
  install_handler(reminder_signal(), remind);
  create_reminder();
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
  for (const int number : ENDING_SIGNALS) sigaddset(&held, number);
  for (int number = SIGRTMIN; number <= reminder_signal(); number++) sigaddset(&held, number);
  sigaddset(&held, SIGTSTP);
  sigprocmask(SIG_BLOCK, &held, nullptr);
}

int signals_pending() {
  if (noted != 0) return noted;
  sigset_t waiting;
  if (!any_waiting(&waiting)) return 0;
  for (const int number : ENDING_SIGNALS) {
    if (is_waiting(waiting, number)) noted = number;
  }
  for (int number = SIGRTMIN; number < reminder_signal(); number++) {
    if (is_waiting(waiting, number)) noted = number;
  }
  return noted;
}

bool signals_stop_wanted() {
  sigset_t waiting;
  return any_waiting(&waiting) && is_waiting(waiting, SIGTSTP);
}

void signals_stop_here() {
  let_in_one(SIGTSTP);
}

void signals_let_in(bool in) {
  if (in) install_handlers();
  if (in && noted != 0) set_reminder(REMINDER_S);
  sigset_t moved = held;
  if (awake) sigdelset(&moved, SIGTSTP);
  sigprocmask(in ? SIG_UNBLOCK : SIG_BLOCK, &moved, nullptr);
  if (!in && noted != 0) set_reminder(0);
}

void wake_every_second(bool on) {
  if (on == awake) return;
  awake = on;
  install_handlers();
  set_reminder(on ? REMINDER_S : 0);
}

int terminal_echo(bool on) {
  if (on) return tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
  if (tcgetattr(STDIN_FILENO, &shown) != 0) return -1;
  termios settings = shown;
  settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  // A shell that takes over after a stop would show what is typed afterwards.
  settings.c_cc[VSUSP] = _POSIX_VDISABLE;
  return tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings);
}

int core_off() {
  const rlimit none = {0, 0};
  return setrlimit(RLIMIT_CORE, &none);
}

void raise_default(int number) {
  set_handler(number, SIG_DFL);
  ::raise(number);
  let_in_one(number);
  _exit(SHELL_STATUS + number);  // for process 1 of a container such a signal does nothing
}

}  // namespace platform

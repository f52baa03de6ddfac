// First process of the test guest: runs the steps of /steps, measures each, reports on the second
// serial port.
#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

// /steps holds each argument with its NUL; an empty argument ends a step.
constexpr size_t kStepsRoom = 65536;
constexpr int kMostArguments = 64;
constexpr int kStepSeconds = 150;
constexpr const char* kOutput = "/.out";
constexpr const char* kErrors = "/.err";

char steps[kStepsRoom];
int results;

void send_all(const char* bytes, ssize_t count) {
  while (count > 0) {
    ssize_t sent = write(results, bytes, static_cast<size_t>(count));
    if (sent <= 0) return;
    bytes += sent;
    count -= sent;
  }
}

long file_size(const char* path) {
  struct stat about {};
  return stat(path, &about) == 0 ? static_cast<long>(about.st_size) : 0;
}

void send_file(const char* path) {
  static char block[4096];
  int file = open(path, O_RDONLY);
  ssize_t got = 0;
  while (file >= 0 && (got = read(file, block, sizeof block)) > 0) send_all(block, got);
  if (file >= 0) close(file);
}

long long microseconds(const timeval& time) {
  return time.tv_sec * 1000000LL + time.tv_usec;
}

long long now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * 1000000LL + time.tv_nsec / 1000;
}

// Shares memory with the child until it runs the step's program, so that no copying counts as the
// step's work.
pid_t start_step(char** arguments) {
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, 1, kOutput, flags, 0600);
  posix_spawn_file_actions_addopen(&files, 2, kErrors, flags, 0600);
  posix_spawnattr_t how;
  posix_spawnattr_init(&how);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&how, &none);
  posix_spawnattr_setflags(&how, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  pid_t child = -1;
  return posix_spawnp(&child, arguments[0], &files, &how, arguments, environ) == 0 ? child : -1;
}

// One line "status cpu-us max-rss-kb wall-us output-length error-length", then output and errors.
void run_step(char** arguments) {
  const long long start = now();
  const pid_t child = start_step(arguments);
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  int status = 0;
  rusage use{};
  bool killed = false;
  while (child > 0 && wait4(child, &status, WNOHANG, &use) == 0) {
    const timespec left{kStepSeconds - static_cast<time_t>((now() - start) / 1000000), 0};
    if (left.tv_sec > 0) {
      sigtimedwait(&ended, nullptr, &left);
      continue;
    }
    killed = true;
    kill(-child, SIGKILL);
    wait4(child, &status, 0, &use);
    break;
  }
  const int code = child < 0 || killed ? -1
                   : WIFEXITED(status) ? WEXITSTATUS(status)
                                       : 128 + WTERMSIG(status);
  char line[160];
  const int length = snprintf(line, sizeof line, "%d %lld %ld %lld %ld %ld\n", code,
                              microseconds(use.ru_utime) + microseconds(use.ru_stime),
                              use.ru_maxrss, now() - start, file_size(kOutput), file_size(kErrors));
  send_all(line, length);
  send_file(kOutput);
  send_file(kErrors);
}

void run_steps() {
  int file = open("/steps", O_RDONLY);
  const ssize_t size = file < 0 ? 0 : read(file, steps, sizeof steps - 1);
  char* arguments[kMostArguments + 1];
  int count = 0;
  for (char* next = steps; next < steps + size; next += strlen(next) + 1) {
    if (*next != '\0') {
      if (count < kMostArguments) arguments[count++] = next;
      continue;
    }
    arguments[count] = nullptr;
    if (count > 0) run_step(arguments);
    count = 0;
  }
}

}  // namespace

int main() {
  mount("proc", "/proc", "proc", 0, nullptr);
  mount("sysfs", "/sys", "sysfs", 0, nullptr);
  mount("devtmpfs", "/dev", "devtmpfs", 0, nullptr);
  setenv("PATH", "/bin:/sbin:/usr/bin:/usr/sbin", 1);
  setenv("HOME", "/", 1);
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  sigprocmask(SIG_BLOCK, &ended, nullptr);
  results = open("/dev/ttyS1", O_WRONLY | O_NOCTTY | O_CLOEXEC);
  termios raw{};
  tcgetattr(results, &raw);
  cfmakeraw(&raw);
  tcsetattr(results, TCSANOW, &raw);
  if (chdir("/work") == 0) run_steps();
  send_all("end\n", 4);
  tcdrain(results);
  reboot(RB_AUTOBOOT);  // the virtual machine is started with -no-reboot
}

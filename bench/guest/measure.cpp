// Runs a command, then prints what it cost on a line of its own: processor time in microseconds,
// peak memory in kilobytes, wall time in microseconds. With --marks before the command it writes to
// a port before and after, for a trace of port accesses: only in the guest of the comparison.
#include <spawn.h>
#include <sys/io.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned short MARK_PORT = 0xE9;

long long microseconds(const timeval& time) {
  return time.tv_sec * 1000000LL + time.tv_usec;
}

}  // namespace

int main(int, char** arguments) {
  char** command = arguments + 1;
  const bool marks = *command != nullptr && std::strcmp(*command, "--marks") == 0;
  if (marks) command++;
  if (*command == nullptr || (marks && ioperm(MARK_PORT, 1, 1) != 0)) return 1;
  const auto start = std::chrono::steady_clock::now();
  if (marks) outb('B', MARK_PORT);
  // Shares memory with the child until that runs the command, so that no copying counts as its
  // work.
  pid_t child = -1;
  if (posix_spawnp(&child, *command, nullptr, nullptr, command, environ) != 0) return 1;
  int status = 0;
  rusage use{};
  wait4(child, &status, 0, &use);
  if (marks) outb('E', MARK_PORT);
  const std::chrono::duration<double, std::micro> wall = std::chrono::steady_clock::now() - start;
  std::printf("\n%lld %ld %.0f\n", microseconds(use.ru_utime) + microseconds(use.ru_stime),
              use.ru_maxrss, wall.count());
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

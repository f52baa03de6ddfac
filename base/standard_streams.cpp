// Standard input, output and error.
#include "base/standard_streams.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/notice.h"
#include "base/process_end.h"

namespace {

// An open file gets the lowest free number: that of the closed stream, if those below are in use.
void open_null(int stream) {
  const int mode = stream == STDIN_FILENO ? O_RDONLY : O_WRONLY;
  if (open("/dev/null", mode | O_NOCTTY) >= 0) return;
  // Without /dev the root folder takes the number, so that no other file gets it.
  if (open("/", O_RDONLY | O_DIRECTORY) < 0) std::abort();
}

// The write that failed was long ago, and errno has changed since: the reason, if it still holds.
int reason_of_failure() {
  errno = 0;
  if (write(STDOUT_FILENO, "", 0) < 0) return errno;
  struct statvfs room;
  const bool full = fstatvfs(STDOUT_FILENO, &room) == 0 && room.f_blocks > 0 && room.f_bavail == 0;
  return full ? ENOSPC : 0;
}

void tell_of_failure() {
  const bool flushed = std::fflush(stdout) == 0;
  int reason = flushed ? 0 : errno;
  if (flushed && std::ferror(stdout) == 0) return;
  if (strictFlag == 0 && isatty(STDERR_FILENO) == 0) return;
  if (reason == 0) reason = reason_of_failure();
  if (reason == 0) {
    notice("standard output could not be written");
  } else {
    notice("standard output could not be written: %s", std::strerror(reason));
  }
}

}  // namespace

void prepare_standard_streams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; stream++) {
    if (fcntl(stream, F_GETFD) < 0 && errno == EBADF) open_null(stream);
  }
  at_process_end(tell_of_failure);
}

bool output_lost() {
  return std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
}

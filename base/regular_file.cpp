// A regular file to read.
#include "base/regular_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool same_time(const timespec& one, const timespec& other) {
  return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

FILE* regular_open(const char* path, bool* other) {
  *other = false;
  struct stat there;
  // Not even opened: that would wake the writer of a FIFO, who finds no reader then.
  if (fstatat(AT_FDCWD, path, &there, 0) == 0 && !S_ISREG(there.st_mode)) {
    *other = true;
    errno = EINVAL;
    return nullptr;
  }
  // Without O_NONBLOCK a FIFO would wait for its writer.
  const int handle = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (handle < 0) return nullptr;
  struct stat status;
  const bool regular = fstat(handle, &status) == 0 && S_ISREG(status.st_mode);
  FILE* file = regular ? fdopen(handle, "rb") : nullptr;
  if (file != nullptr) return file;
  *other = !regular;
  close(handle);
  if (!regular) errno = EINVAL;
  return nullptr;
}

bool is_regular(FILE* file) {
  struct stat status;
  return fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode);
}

File_state file_state(FILE* file) {
  struct stat status;
  if (fstat(fileno(file), &status) != 0) return {};
  return {true, status.st_size, status.st_mtim, status.st_ctim, status.st_nlink};
}

bool file_unchanged(FILE* file, const File_state& before) {
  const File_state now = file_state(file);
  return now.known && before.known && now.size == before.size &&
         same_time(now.changed, before.changed) && same_time(now.touched, before.touched) &&
         (now.names > 0 || before.names == 0);
}

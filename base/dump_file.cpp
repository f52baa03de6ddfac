// A dump file: written whole, or removed.
#include "base/dump_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace {

FILE* open_file = nullptr;
const char* open_path = nullptr;

// The file itself goes, not a link that led to it.
void remove_regular(const char* path, const struct stat& written) {
  char real[PATH_MAX];
  if (realpath(path, real) == nullptr) return;
  struct stat now;
  const bool same = lstat(real, &now) == 0 && now.st_dev == written.st_dev &&
                    now.st_ino == written.st_ino && S_ISREG(now.st_mode);
  if (same) unlink(real);
}

}  // namespace

FILE* dump_open(const char* path) {
  const int handle = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0600);
  if (handle < 0) return nullptr;
  FILE* file = fdopen(handle, "w");
  if (file == nullptr) close(handle);
  open_file = file;
  open_path = path;
  return file;
}

bool dump_close(FILE* file, const char* path) {
  open_file = nullptr;
  struct stat written;
  const bool known = fstat(fileno(file), &written) == 0;
  const bool sound = std::ferror(file) == 0;
  const bool flushed = std::fflush(file) == 0;
  const bool closed = std::fclose(file) == 0;
  if (sound && flushed && closed) return true;
  if (known && S_ISREG(written.st_mode)) remove_regular(path, written);
  return false;
}

void dump_drop(FILE* file, const char* path) {
  open_file = nullptr;
  struct stat written;
  const bool known = fstat(fileno(file), &written) == 0;
  std::fclose(file);
  if (known && S_ISREG(written.st_mode)) remove_regular(path, written);
}

void dump_abandon() {
  if (open_file != nullptr) dump_drop(open_file, open_path);
}

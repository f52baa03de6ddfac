// A dump file: whole, or as it was before.
#include "base/dump_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/dump_target.h"

namespace {

constexpr char TEMPORARY_NAME[] = ".qarn-XXXXXX";
constexpr unsigned TEMPORARY_SIZE = sizeof TEMPORARY_NAME;
constexpr unsigned NAME_ATTEMPTS = 100;
constexpr int WRITING = O_WRONLY | O_CLOEXEC | O_NOCTTY;
constexpr mode_t MODE_BITS = 07777;
constexpr mode_t SET_ID_BITS = 06000;
constexpr mode_t OTHERS_BITS = 07;
constexpr unsigned GROUP_SHIFT = 3;
constexpr char ACCESS_LIST[] = "system.posix_acl_access";
constexpr size_t ACCESS_LIST_SIZE = 8192;  // some thousand users and groups

enum class Way { none, standard_output, direct, beside };

struct Dump {
  Way way;
  FILE* file;
  Dump_target target;
  char temporary[TEMPORARY_SIZE];  // its name, in the target's folder
};
Dump dump;

bool same_file(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool is_standard_output(const char* path) {
  struct stat there;
  struct stat output;
  return fstatat(AT_FDCWD, path, &there, 0) == 0 && fstat(STDOUT_FILENO, &output) == 0 &&
         same_file(there, output);
}

// Something else may stand there since it was looked at: only what was looked at is opened.
int open_direct(const Dump_target& target) {
  const int flags = target.open_file ? WRITING | O_TRUNC : WRITING | O_NOFOLLOW;
  const int handle = openat(target.folder, target.name, flags);
  if (handle < 0) return -1;
  struct stat opened;
  if (fstat(handle, &opened) == 0 && same_file(opened, target.status)) return handle;
  close(handle);
  errno = ELOOP;
  return -1;
}

void new_name(char name[TEMPORARY_SIZE], unsigned attempt) {
  static const char LETTERS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  constexpr uint32_t COUNT = sizeof LETTERS - 1;
  uint32_t number = 0;
  // Without random bytes the number of the process will do: only a name that is free is used.
  if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
    number = static_cast<uint32_t>(getpid()) + attempt;
  }
  std::memcpy(name, TEMPORARY_NAME, TEMPORARY_SIZE);
  for (char* letter = std::strchr(name, 'X'); *letter != '\0'; letter++) {
    *letter = LETTERS[number % COUNT];
    number /= COUNT;
  }
}

int create_temporary() {
  for (unsigned left = NAME_ATTEMPTS; left > 0; left--) {
    new_name(dump.temporary, left);
    const int handle = openat(dump.target.folder, dump.temporary,
                              WRITING | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (handle >= 0 || errno != EEXIST) return handle;
  }
  return -1;
}

// With an access list, the group's bits of the mode are no more than its limit. False when there is
// one that cannot be taken over, or none can be looked for.
bool take_over_access_list(int handle) {
  const int old = openat(dump.target.folder, dump.target.name,
                         O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK);
  if (old < 0) return false;
  char list[ACCESS_LIST_SIZE];
  const ssize_t size = fgetxattr(old, ACCESS_LIST, list, sizeof list);
  const bool none = size < 0 && (errno == ENODATA || errno == EOPNOTSUPP);
  close(old);
  return none ||
         (size >= 0 && fsetxattr(handle, ACCESS_LIST, list, static_cast<size_t>(size), 0) == 0);
}

// The new file is as open to others as the old one, never more.
bool take_over_rights(int handle, const struct stat& old) {
  mode_t mode = old.st_mode & MODE_BITS;
  const bool owner_kept = fchown(handle, old.st_uid, old.st_gid) == 0;
  if (!owner_kept) mode &= ~SET_ID_BITS;
  if (!owner_kept && fchown(handle, static_cast<uid_t>(-1), old.st_gid) != 0) {
    mode = (mode & ~(OTHERS_BITS << GROUP_SHIFT)) | (mode & OTHERS_BITS) << GROUP_SHIFT;
  }
  if (fchmod(handle, mode) != 0) return false;
  return take_over_access_list(handle) || fchmod(handle, mode & ~(OTHERS_BITS << GROUP_SHIFT)) == 0;
}

void remove_temporary() {
  const int reason = errno;
  unlinkat(dump.target.folder, dump.temporary, 0);
  errno = reason;
}

int open_beside(const Dump_target& target) {
  // A file that may not be written is not replaced either.
  if (target.there && faccessat(target.folder, target.name, W_OK, AT_EACCESS) != 0) return -1;
  const int handle = create_temporary();
  if (handle < 0) return -1;
  if (!target.there || take_over_rights(handle, target.status)) return handle;
  remove_temporary();
  const int reason = errno;
  close(handle);
  errno = reason;
  return -1;
}

FILE* begin(Way way, FILE* file) {
  dump.way = way;
  dump.file = file;
  return file;
}

// Forgets the dump; errno is not changed.
void end_dump() {
  const int reason = errno;
  forget_target(&dump.target);
  dump.way = Way::none;
  dump.file = nullptr;
  errno = reason;
}

FILE* open_target() {
  const Dump_target& target = dump.target;
  const bool replaced = !target.open_file && (!target.there || S_ISREG(target.status.st_mode));
  const int handle = replaced ? open_beside(target) : open_direct(target);
  if (handle < 0) return nullptr;
  FILE* file = fdopen(handle, "w");
  if (file != nullptr) return begin(replaced ? Way::beside : Way::direct, file);
  if (replaced) remove_temporary();
  const int reason = errno;
  close(handle);
  errno = reason;
  return nullptr;
}

bool flush(FILE* file) {
  if (std::ferror(file) == 0) return std::fflush(file) == 0;
  if (errno == 0) errno = EIO;
  return false;
}

// Bytes that are not on the disk are lost at a power failure. A file system without a disk refuses
// the call, which is no failure.
bool sync(FILE* file) {
  if (fsync(fileno(file)) == 0) return true;
  return errno == EINVAL || errno == EROFS || errno == ENOSYS || errno == EOPNOTSUPP;
}

bool same_change(const struct stat& one, const struct stat& other) {
  return one.st_ctim.tv_sec == other.st_ctim.tv_sec && one.st_ctim.tv_nsec == other.st_ctim.tv_nsec;
}

// Never over a file that came there, or was changed, while the dump was written.
bool put_in_place() {
  const int folder = dump.target.folder;
  const char* name = dump.target.name;
  struct stat now;
  if (dump.target.there && fstatat(folder, name, &now, AT_SYMLINK_NOFOLLOW) == 0) {
    if (same_file(now, dump.target.status) && same_change(now, dump.target.status)) {
      return renameat(folder, dump.temporary, folder, name) == 0;
    }
    errno = EEXIST;
    return false;
  }
  if (renameat2(folder, dump.temporary, folder, name, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // Some file systems do not know that; a link has the same effect.
  return linkat(folder, dump.temporary, folder, name, 0) == 0 &&
         unlinkat(folder, dump.temporary, 0) == 0;
}

bool finish_beside(FILE* file) {
  bool whole = flush(file) && sync(file);
  const int reason = errno;
  const bool closed = std::fclose(file) == 0;
  if (!whole) errno = reason;
  whole = whole && closed && put_in_place();
  if (!whole) remove_temporary();
  return whole;
}

bool finish_direct(FILE* file) {
  const bool whole = flush(file);
  const int reason = errno;
  const bool closed = std::fclose(file) == 0;
  if (!whole) errno = reason;
  return whole && closed;
}

}  // namespace

FILE* dump_open(const char* path) {
  if (is_standard_output(path)) return begin(Way::standard_output, stdout);
  if (!find_target(path, &dump.target)) return nullptr;
  FILE* file = open_target();
  if (file == nullptr) end_dump();
  return file;
}

bool dump_close(FILE* file) {
  const Way way = dump.way;
  bool whole = false;
  if (way == Way::standard_output) {
    whole = flush(file);
  } else {
    whole = way == Way::beside ? finish_beside(file) : finish_direct(file);
  }
  end_dump();
  return whole;
}

void dump_drop(FILE* file) {
  const int reason = errno;
  if (dump.way == Way::beside) remove_temporary();
  if (dump.way != Way::standard_output) std::fclose(file);
  errno = reason;
  end_dump();
}

void dump_abandon() {
  if (dump.file != nullptr) dump_drop(dump.file);
}

const char* dump_error_text(int reason) {
  if (reason == ELOOP) return "a link or a file of another user stands there, or too many links";
  if (reason == EMLINK) return "the file has several names (hard links)";
  if (reason == EEXIST) return "something else has come there";
  return std::strerror(reason);
}

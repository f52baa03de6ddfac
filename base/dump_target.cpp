// Where a dump goes.
#include "base/dump_target.h"

#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int MOST_LINKS = 40;
constexpr long PROC_FILE_SYSTEM = 0x9FA0;
constexpr mode_t WRITTEN_BY_OTHERS = S_IWGRP | S_IWOTH;

bool fail_because(int reason) {
  errno = reason;
  return false;
}

// Steps to the folder of `path`, which is relative to the one before; its last part is the name.
bool enter_folder(const char* path, Dump_target* target) {
  const char* slash = std::strrchr(path, '/');
  const char* name = slash != nullptr ? slash + 1 : path;
  if (path[0] == '\0') return fail_because(ENOENT);
  if (name[0] == '\0') return fail_because(EISDIR);
  if (std::strlen(name) > NAME_MAX) return fail_because(ENAMETOOLONG);
  std::memcpy(target->name, name, std::strlen(name) + 1);
  if (slash == nullptr && target->folder >= 0) return true;
  char folder[PATH_MAX] = ".";
  const size_t length = slash != nullptr ? static_cast<size_t>(slash + 1 - path) : 0;
  if (length >= sizeof folder) return fail_because(ENAMETOOLONG);
  if (length > 0) std::memcpy(folder, path, length);
  if (length > 0) folder[length] = '\0';
  const int from = target->folder >= 0 ? target->folder : AT_FDCWD;
  const int entered = openat(from, folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (entered < 0) return false;
  if (target->folder >= 0) close(target->folder);
  target->folder = entered;
  return true;
}

// Others may put a link or a file into such a folder, and what is theirs may lead anywhere.
bool may_be_planted(const Dump_target& target) {
  struct stat folder;
  if (fstat(target.folder, &folder) != 0) return true;
  const uid_t ours = geteuid();
  const bool shared =
      (folder.st_mode & WRITTEN_BY_OTHERS) != 0 || (folder.st_uid != ours && folder.st_uid != 0);
  return shared && target.status.st_uid != ours;
}

// The links that lead to the open files of a process have a text that may lead to nothing, or to
// another file. Only the kernel's own folders have such links.
bool leads_to_open_file(const Dump_target& target, const char* text) {
  struct statfs system;
  if (fstatfs(target.folder, &system) != 0 || system.f_type != PROC_FILE_SYSTEM) return false;
  struct stat open_file;
  struct stat named;
  if (fstatat(target.folder, target.name, &open_file, 0) != 0) return false;
  const bool same = fstatat(target.folder, text, &named, 0) == 0 &&
                    named.st_dev == open_file.st_dev && named.st_ino == open_file.st_ino;
  return !same;
}

// Follows the link that stands there one step, unless it is one of an open file.
bool follow_link(Dump_target* target) {
  char text[PATH_MAX];
  const ssize_t length = readlinkat(target->folder, target->name, text, sizeof text);
  if (length < 0) return false;
  if (static_cast<size_t>(length) >= sizeof text) return fail_because(ENAMETOOLONG);
  text[length] = '\0';
  target->open_file = leads_to_open_file(*target, text);
  if (target->open_file) return fstatat(target->folder, target->name, &target->status, 0) == 0;
  return enter_folder(text, target);
}

bool follow(const char* path, Dump_target* target) {
  if (!enter_folder(path, target)) return false;
  for (int links = 0; links <= MOST_LINKS; links++) {
    target->there =
        fstatat(target->folder, target->name, &target->status, AT_SYMLINK_NOFOLLOW) == 0;
    if (!target->there) return errno == ENOENT;
    if (may_be_planted(*target)) return fail_because(ELOOP);
    if (!S_ISLNK(target->status.st_mode)) {
      const bool named_again = S_ISREG(target->status.st_mode) && target->status.st_nlink > 1;
      return !named_again || fail_because(EMLINK);
    }
    if (!follow_link(target)) return false;
    if (target->open_file) return true;
  }
  return fail_because(ELOOP);
}

}  // namespace

bool find_target(const char* path, Dump_target* target) {
  *target = {};
  target->folder = -1;
  if (follow(path, target)) return true;
  const int reason = errno;
  forget_target(target);
  return fail_because(reason);
}

void forget_target(Dump_target* target) {
  if (target->folder >= 0) close(target->folder);
  target->folder = -1;
}

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

// A path on its way to the target: the folder reached so far is the target's, `rest` comes after.
struct Way_to {
  Dump_target* target;
  char rest[PATH_MAX];
  int links;  // followed so far
};

bool step_into(Dump_target* target, const char* folder) {
  const int from = target->folder >= 0 ? target->folder : AT_FDCWD;
  const int entered = openat(from, folder, O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
  if (entered < 0) return false;
  if (target->folder >= 0) close(target->folder);
  target->folder = entered;
  return true;
}

// Others may put a link or a file into such a folder, and it may lead anywhere.
bool may_be_planted(const Dump_target& target) {
  struct stat folder;
  if (fstat(target.folder, &folder) != 0) return true;
  const uid_t ours = geteuid();
  const bool shared =
      (folder.st_mode & WRITTEN_BY_OTHERS) != 0 || (folder.st_uid != ours && folder.st_uid != 0);
  return shared && target.status.st_uid != ours;
}

// The text of a link to an open file of a process may name nothing, or another file. Only the
// kernel's own folders have such links.
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

// Puts the link's text in place of its name, before what is left of the path; unless the link is
// that of an open file, which ends the path.
bool follow_link(Way_to* way, bool last) {
  if (++way->links > MOST_LINKS) return fail_because(ELOOP);
  Dump_target* target = way->target;
  char text[PATH_MAX];
  const ssize_t length = readlinkat(target->folder, target->name, text, sizeof text);
  if (length < 0) return false;
  const size_t left = std::strlen(way->rest);
  const size_t count = static_cast<size_t>(length);
  if (count + left + 2 > sizeof text) return fail_because(ENAMETOOLONG);
  text[count] = '\0';
  target->open_file = last && leads_to_open_file(*target, text);
  if (target->open_file) return fstatat(target->folder, target->name, &target->status, 0) == 0;
  text[count] = '/';
  std::memcpy(text + count + 1, way->rest, left + 1);
  if (last) text[count] = '\0';
  std::memcpy(way->rest, text, count + 1 + left + 1);
  return true;
}

// Takes the first part off the rest, as the target's name. A path that ends in a slash has no last
// part.
bool take_name(Way_to* way, bool* last) {
  if (way->rest[0] == '/' && !step_into(way->target, "/")) return false;
  const char* from = way->rest + std::strspn(way->rest, "/");
  const size_t length = std::strcspn(from, "/");
  if (length == 0) return fail_because(EISDIR);
  if (length > NAME_MAX) return fail_because(ENAMETOOLONG);
  std::memcpy(way->target->name, from, length);
  way->target->name[length] = '\0';
  from += length;
  *last = from[0] == '\0';
  from += std::strspn(from, "/");
  std::memmove(way->rest, from, std::strlen(from) + 1);
  return true;
}

bool named_again(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_nlink > 1;
}

// One part of the path; `*arrived` when the target is found, or found missing.
bool take_step(Way_to* way, bool* arrived) {
  Dump_target* target = way->target;
  bool last = false;
  if (!take_name(way, &last)) return false;
  target->there = fstatat(target->folder, target->name, &target->status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!target->there) {
    *arrived = last;
    return last && errno == ENOENT;
  }
  const bool link = S_ISLNK(target->status.st_mode);
  if ((link || last) && may_be_planted(*target)) return fail_because(ELOOP);
  if (link) {
    if (!follow_link(way, last)) return false;
    *arrived = target->open_file;
    return true;
  }
  if (!last) return step_into(target, target->name);
  *arrived = true;
  return !named_again(target->status) || fail_because(EMLINK);
}

bool follow(const char* path, Dump_target* target) {
  Way_to way = {target, {}, 0};
  const size_t length = std::strlen(path);
  if (length == 0) return fail_because(ENOENT);
  if (length >= sizeof way.rest) return fail_because(ENAMETOOLONG);
  std::memcpy(way.rest, path, length + 1);
  if (path[0] != '/' && !step_into(target, ".")) return false;
  for (bool arrived = false; !arrived;) {
    if (!take_step(&way, &arrived)) return false;
  }
  return true;
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

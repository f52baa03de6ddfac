// Where a dump goes: the path followed to its end, and whether it may be followed there.
#pragma once
#include <sys/stat.h>

#include <climits>

struct Dump_target {
  int folder;               // an open folder, or -1
  char name[NAME_MAX + 1];  // in that folder
  struct stat status;       // of what stands there; all zero when nothing does
  bool there;
  bool open_file;  // `name` is the link of an open file of a process, which only the kernel follows
};

// Follows `path`. False with errno and without an open folder when it cannot be followed, or must
// not: see dump_open.
bool find_target(const char* path, Dump_target* target);

void forget_target(Dump_target* target);

// A regular file to read: opened only if it is one, and watched while it is read.
#pragma once
#include <sys/stat.h>

#include <cstdio>

// Opens `path` for reading if it leads to a regular file; anything else is not touched, nor waited
// for. Null with errno otherwise; `*other` is true when something else is there.
FILE* regular_open(const char* path, bool* other);

bool is_regular(FILE* file);

// What shows that a file was changed after it was looked at.
struct File_state {
  bool known;  // false: it could not be looked at
  off_t size;
  struct timespec changed;  // when its content was last changed
  struct timespec touched;  // when its content, name or rights were last changed
  nlink_t names;            // 0: no folder has it any more
};

File_state file_state(FILE* file);

// True while the open file is as it was, and is still in a folder.
bool file_unchanged(FILE* file, const File_state& before);

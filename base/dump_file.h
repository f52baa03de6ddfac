// A dump file: written whole, or removed.
#pragma once
#include <cstdio>

// Creates or truncates `path` for writing; a new file is readable and writable by its owner only.
// Symbolic links, FIFOs and devices are followed and written to. Null with errno when refused.
// One dump at a time; `path` must stay as it is until the file is closed or dropped.
FILE* dump_open(const char* path);

// Flushes and closes `file`, opened from `path`. True when every byte of it was taken; otherwise
// false, and what was written is removed if it is a regular file.
bool dump_close(FILE* file, const char* path);

// Closes `file`, opened from `path`, and removes what was written if it is a regular file.
void dump_drop(FILE* file, const char* path);

// For a process that ends in the middle of a dump: drops the file that is still open, if any.
void dump_abandon();

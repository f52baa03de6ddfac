// A dump file: whole, or as it was before.
#pragma once
#include <cstdio>

// Opens `path` for a dump. Null with errno when refused.
//
// | the path leads to                     | the dump is written                                  |
// |---------------------------------------|------------------------------------------------------|
// | the file that is standard output      | through `stdout`, after what was printed before      |
// | a device, a FIFO, an open file of the | into it as it is                                     |
// | process that has no path any more     |                                                      |
// | a regular file, or nothing            | beside it, and takes its place when whole: mode and  |
// |                                       | owner are the old file's, a new one's mode is 0600   |
//
// Links are followed. Refused with ELOOP: a link or a file of another user in a folder that others
// may write to; with EMLINK: a file with several names (hard links).
// One dump at a time. A file that the run did not create is never removed.
FILE* dump_open(const char* path);

// What an errno of dump_open or dump_close means.
const char* dump_error_text(int reason);

// Ends the dump in `file`: true when every byte was written and the dump stands at its path;
// otherwise false with errno, and the file at the path is as it was before.
bool dump_close(FILE* file);

// Gives up the dump in `file`: the file at its path is as it was before. errno is not changed.
void dump_drop(FILE* file);

// For a process that ends in the middle of a dump: drops the one that is open, if any.
void dump_abandon();

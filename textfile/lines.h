// The lines of a definition file, as far as a reader's buffer holds them.
#pragma once
#include <cstdint>
#include <cstdio>

inline constexpr int LINE_ROOM = 1024;

// The most bytes of a definition file that are read, 1 GiB: a device or a FIFO may have no end.
extern uint64_t file_limit;
inline constexpr char FILE_TOO_LONG[] = "the file is too long";

// The line that was read last. Start with the file and the room, everything else zero.
struct Lines {
  FILE* file;
  int room;         // bytes of `text` in use, its terminator included; at most LINE_ROOM
  unsigned number;  // of the line, from 1
  bool cut;         // the line goes on after what `text` holds
  bool too_long;    // there was more than file_limit bytes
  uint64_t taken;   // bytes read so far
  char text[LINE_ROOM];
};

// Reads the next line, with its line end, or a piece of one that is longer than the room; the
// pieces share a number. A comment ends the pieces of its line: the rest is skipped. False at the
// end of the file, when it cannot be read (then ferror is set), or when the file is too long, after
// a line that says so.
bool next_line(Lines* lines);

// From the start of the file again. False when it cannot be read again.
bool restart_lines(Lines* lines);

// 1: why a file is refused is printed on standard output; 0 while it is only looked at.
extern int blameFlag;

// Says why a file is refused, "line 7: reason", which is then refusal().
void blame_line(unsigned number, const char* reason);

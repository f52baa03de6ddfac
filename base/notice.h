// Lines on standard error: what must be said, and hints for a person.
#pragma once

// Set by the front end: 1 when standard error is a terminal.
extern int hintFlag;

// Prints "qarn: ", the text and a line end, whatever standard error is. The progress line goes
// first.
[[gnu::format(printf, 1, 2)]] void notice(const char* format, ...);

// The same, but only when hintFlag is 1: scripts may collect standard error.
[[gnu::format(printf, 1, 2)]] void hint(const char* format, ...);

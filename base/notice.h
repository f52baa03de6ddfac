// Lines on standard error: what must be said, and hints for a person or a strict script.
#pragma once

// Set by the front end: 1 when standard error is a terminal.
extern int hintFlag;
// Set by the front end: 1 with --strict.
extern int strictFlag;

// Prints "qarn: ", the text and a line end, whatever standard error is. The progress line goes
// first.
[[gnu::format(printf, 1, 2)]] void notice(const char* format, ...);

// The same, but only when hintFlag or strictFlag is 1: scripts may collect standard error.
[[gnu::format(printf, 1, 2)]] void remark(const char* format, ...);

// A sign that something was typed wrong: "qarn: warning: " and the text, when hintFlag or
// strictFlag is 1.
[[gnu::format(printf, 1, 2)]] void warning(const char* format, ...);
// True when a warning would be printed.
bool warnings_wanted();
// True when there was one and strictFlag is 1: the run is refused.
bool warnings_refuse();

// A step that did not do what it was asked, and why: printed when strictFlag is 1; hint_failed
// also when hintFlag is.
[[gnu::format(printf, 1, 2)]] void step_failed(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void hint_failed(const char* format, ...);
// True when there was one.
bool any_step_failed();

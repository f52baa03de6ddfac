// One line on a terminal's standard error that shows how far a long walk has come.
#pragma once

// Set by the front end: 1 when standard error is a terminal and nothing else is traced.
extern int progressFlag;

// Shows "what done/total" in place of the line before, renewed when another thousandth is done;
// nothing at all when progressFlag is 0.
void progress(const char* what, unsigned done, unsigned total);

// Shows "waiting for what: N s" in its place; it begins where the cursor stands, which stays there,
// because a line of standard output may not have ended yet.
void progress_wait(const char* what, unsigned seconds);

// Erases the line if one stands; call it before any other output of the walk's end.
void progress_end();

// The same, then prints the text and a line end on standard output.
void progress_puts(const char* text);

// One line on a terminal's standard error that shows how far a long walk has come.
#pragma once

// Set by the front end: 1 when standard error is a terminal and nothing else is traced.
extern int progressFlag;

// Shows "what done/total" in place of the line before, renewed when another thousandth is done;
// nothing at all when progressFlag is 0.
void progress(const char* what, unsigned done, unsigned total);

// Erases the line if one stands; call it before any other output of the walk's end.
void progress_end();

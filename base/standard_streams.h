// Standard input, output and error, as the caller of the program left them.
#pragma once

// Opens each one that is closed as /dev/null, so that no other file takes its place and is mixed
// with the console. When the program ends, one line on standard error says that standard output
// could not be written, but only when standard error is a terminal. Call it before any file is
// opened.
void prepare_standard_streams();

// Writes out what is left. True when not all of standard output could be written.
bool output_lost();

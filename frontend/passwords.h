// Passwords that are asked for instead of being given on the command line.
#pragma once

struct Options;

// Asks for each password whose option came without a value: on a terminal twice, and not shown,
// otherwise one line of standard input each. False after a line that says why the run must end.
bool ask_passwords(Options* options);

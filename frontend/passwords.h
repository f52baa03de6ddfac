// Passwords that are asked for instead of standing on the command line.
#pragma once

struct Options;

// Fills the slots of the password options that came without a value: from the terminal of standard
// input, unseen and twice, else a line of standard input each. False after a line that says why:
// the run ends before the BMC is touched.
bool ask_passwords(Options* options);

// The end of the process other than by main's return or a signal.
#pragma once

// Has `last` called when the process ends, by main's return or by end_process; of several, the one
// that was given last comes first.
void at_process_end(void (*last)());

// Ends the process with this exit status.
[[noreturn]] void end_process(int status);

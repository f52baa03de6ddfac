// A script of raw requests.
#pragma once

// Sends every line of the file as one request and prints request and response. A file that cannot
// be opened does nothing.
void process_cfg(const char* path);
// Warns of signs of a mistake in a script, if it is a regular file, and sends nothing.
void look_at_script(const char* path);

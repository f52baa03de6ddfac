// A script of raw requests.
#pragma once

// Sends every line of the file as one request and prints request and response. A file that cannot
// be opened does nothing.
void process_cfg(const char* path);

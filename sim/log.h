// What happened to the simulated server, a line each: a request that reached the BMC as "18 01"
// (NetFn/LUN, command, data, upper-case), a pause as "sleep 100000" (microseconds), a write to port
// 0xE6 as "poke 80".
#pragma once
#include "sim/types.h"

namespace sim {

void log_request(const Bytes& request);
void log_pause(uint64_t microseconds);
void log_poke(uint8_t value);
// A response appears in the file of log_to only, as "< 1C 01 00 ...".
void log_response(const Bytes& response);

// The lines since clear_log, responses left out.
std::string transcript();
void clear_log();

// Every line, those of responses too, is appended to this file from now on. False when it cannot be
// opened.
bool log_to(const std::string& path);

}  // namespace sim

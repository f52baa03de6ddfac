// What went wrong with the last request, in words.
#pragma once
#include <cstdint>

// The meaning of a completion code (IPMI v2.0 table 5-2).
const char* completion_text(uint8_t code);

// What the last exchange or ask met, in a buffer that the next call overwrites: "completion code C1
// (invalid command)", a response that is too short, or none.
const char* failure_text();

// Its completion code; 0 when no response came.
uint8_t failure_code();

// Set by the transport: no response came, and the errno of the call that failed, or 0; one came,
// with this completion code and so many data bytes, of which `needed` were asked for.
void note_no_response(int reason);
void note_response(uint8_t code, unsigned count, unsigned needed);

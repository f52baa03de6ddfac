// What went wrong with the last request, in words.
#include "transport/completion.h"

#include <cstdio>
#include <cstring>

#include "transport/ipmi.h"

namespace {

struct Meaning {
  uint8_t first;
  uint8_t last;
  const char* text;
};
const Meaning MEANINGS[] = {
    {COMPLETED, COMPLETED, "completed"},
    {0x01, 0x7E, "the device's own code"},
    {0x80, 0xBE, "the command's own code"},
    {NODE_BUSY, NODE_BUSY, "node busy"},
    {INVALID_COMMAND, INVALID_COMMAND, "invalid command"},
    {0xC2, 0xC2, "command invalid for this LUN"},
    {0xC3, 0xC3, "time-out"},
    {OUT_OF_SPACE, OUT_OF_SPACE, "out of space"},
    {RESERVATION_CANCELLED, RESERVATION_CANCELLED, "reservation cancelled or invalid"},
    {0xC6, 0xC6, "request data truncated"},
    {INVALID_LENGTH, INVALID_LENGTH, "request data length invalid"},
    {0xC8, 0xC8, "request data too long"},
    {PARAMETER_OUT_OF_RANGE, PARAMETER_OUT_OF_RANGE, "parameter out of range"},
    {0xCA, 0xCA, "cannot return so many bytes"},
    {NOT_PRESENT, NOT_PRESENT, "not present"},
    {INVALID_DATA, INVALID_DATA, "invalid data field"},
    {0xCD, 0xCD, "command illegal for this sensor or record"},
    {0xCE, 0xCE, "no response could be given"},
    {0xCF, 0xCF, "duplicated request"},
    {0xD0, 0xD0, "the repository is in update mode"},
    {0xD1, 0xD1, "the firmware is in update mode"},
    {0xD2, 0xD2, "the BMC is being initialised"},
    {0xD3, 0xD3, "destination unavailable"},
    {0xD4, 0xD4, "insufficient privilege"},
    {WRONG_STATE, WRONG_STATE, "not possible in the present state"},
    {0xD6, 0xD6, "a part of the command is disabled"},
    {UNSPECIFIED, UNSPECIFIED, "unspecified error"},
};

// The last response, or why none came: its completion code, and data bytes that came and were
// needed.
struct Last {
  bool came;
  int reason;
  uint8_t code;
  unsigned count;
  unsigned needed;
};
Last last;

}  // namespace

const char* completion_text(uint8_t code) {
  for (const Meaning& meaning : MEANINGS) {
    if (code >= meaning.first && code <= meaning.last) return meaning.text;
  }
  return "a reserved code";
}

const char* failure_text() {
  static char text[80];
  if (!last.came && last.reason == 0) return "no response";
  if (!last.came) {
    std::snprintf(text, sizeof text, "no response: %s", std::strerror(last.reason));
  } else if (last.code != COMPLETED) {
    std::snprintf(text, sizeof text, "completion code %02X (%s)", last.code,
                  completion_text(last.code));
  } else if (last.count < last.needed) {
    std::snprintf(text, sizeof text, "a response with %u of %u data bytes", last.count,
                  last.needed);
  } else {
    return "an unexpected response";
  }
  return text;
}

uint8_t failure_code() {
  return last.came ? last.code : 0;
}

void note_no_response(int reason) {
  last = {};
  last.reason = reason;
}

void note_response(uint8_t code, unsigned count, unsigned needed) {
  last = {true, 0, code, count, needed};
}

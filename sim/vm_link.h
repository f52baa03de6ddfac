// The wire between the simulated BMC and a virtual machine: QEMU's framing for an external BMC.
#pragma once
#include "sim/bmc.h"

namespace sim {

inline constexpr uint8_t MESSAGE_END = 0xA0;
inline constexpr size_t FRAME_ROOM = 1024;

// One connection: what has arrived of a frame, and what was sent to the other side about SMS_ATN.
struct VmLink {
  int handle = -1;  // a connected socket
  Bytes frame = {};
  bool escaped = false;
  bool too_long = false;
  bool attention = false;
  bool changed = false;  // set when a request was served; for the owner to clear
};

// Takes one byte from the wire; the last one of a request has the machine serve it and sends the
// answer. False when the connection is broken.
bool take_byte(VmLink& link, uint8_t byte);

// Reports to the virtual machine when SMS_ATN has changed. False when the connection is broken.
bool tell_attention(VmLink& link);

}  // namespace sim

// The kernel's IPMI character device of the simulated server.
#pragma once
#include <deque>

#include "sim/types.h"

namespace sim {

// What the kernel's device does instead of its work; 0 and false: nothing.
struct KernelFaults {
  int send_errno = 0;
  int select_errno = 0;
  bool not_readable = false;
  int receive_errno = 0;
};

// A response that waits in the device.
struct KernelMessage {
  long id = 0;
  Bytes bytes = {};     // NetFn/LUN, command, completion code, data
  uint64_t due_us = 0;  // when the BMC has it
};

}  // namespace sim

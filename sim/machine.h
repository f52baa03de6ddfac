// The simulated server around the BMC: ports, kernel device, clock, host interfaces, and a log.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "sim/bmc.h"
#include "sim/kcs.h"

namespace sim {

struct HostInterface {
  std::string name;
  Bytes mac;      // 6 bytes
  Bytes address;  // 4 bytes, or empty when it has none
};

// What the kernel's device does instead of its work; 0 and empty: nothing.
struct KernelFaults {
  int send_errno = 0;
  int select_errno = 0;
  bool not_readable = false;
  int receive_errno = 0;
};

enum class Kind {
  card,   // the daughter card: KCS at 0xCAC/0xCA8
  plain,  // any other BMC: KCS at 0xCA3/0xCA2, no downloader
  none,   // no BMC at all, no kernel device
};

struct Machine {
  Bmc bmc;
  std::vector<Kcs> ports;  // one state machine a port pair; absent ports read 0xFF
  bool root = true;
  std::vector<std::string> devices = {"/dev/ipmi0"};  // paths at which the kernel's device opens
  KernelFaults kernel_faults;
  std::vector<HostInterface> interfaces;
  uint64_t now_us = 0;  // virtual time since start; only pauses move it
  uint32_t epoch = 1700000000;
  // When not empty, every port read takes its next byte from here, then 0xFF. For fuzzing.
  Bytes port_stream;
};

Machine& machine();

// Starts over with a fresh machine and an empty log.
void reset(Kind kind);

// What happened since reset, a line each: a request that reached the BMC as "18 01" (NetFn/LUN,
// command, data, upper-case), a pause as "sleep 100000" (microseconds), a write to port 0xE6 as
// "poke 80".
std::string transcript();

// The same, with responses ("< 1C 01 00 ..."), goes to this file from now on, line by line.
void log_to(const std::string& path);

// Contents are read from this file now, if it exists, and written to it when the process ends.
void keep_state(const std::string& path);
bool load_state(const std::string& path, Bmc& bmc);
bool save_state(const std::string& path, const Bmc& bmc);

}  // namespace sim

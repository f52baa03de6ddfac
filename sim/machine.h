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
  Bytes mac;           // 6 bytes
  Bytes address = {};  // 4 bytes, or empty when it has none
};

// What the kernel's device does instead of its work; 0 and empty: nothing.
struct KernelFaults {
  int send_errno = 0;
  int select_errno = 0;
  bool not_readable = false;
  int receive_errno = 0;
};

// A response that waits in the kernel's device.
struct KernelMessage {
  long id = 0;
  Bytes bytes = {};  // NetFn/LUN, command, completion code, data
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
  bool device_is_open = false;
  std::deque<KernelMessage> device_queue;
  bool lists_interfaces = true;  // false: no /proc/net/dev
  bool has_sockets = true;
  std::vector<HostInterface> interfaces;
  uint64_t now_us = 0;  // virtual time since start; only pauses move it
  uint32_t epoch = 1700000000;
  uint64_t port_reads = 0;
  uint64_t port_writes = 0;
  // When not empty, every port read takes its next byte from here, then 0xFF. For fuzzing.
  Bytes port_stream;
  size_t port_used = 0;
};

// The one machine. The first call makes it as the environment says (sim/environment.cpp), unless
// reset was called before.
Machine& machine();

// Starts over with a fresh machine and an empty log.
void reset(Kind kind);

// Whether the BMC is off the wire now.
bool is_away(const Machine& machine);

// Has the BMC carry out one request, and logs it.
Answer serve(const Bytes& request);

// The host's clock, in seconds since 1970.
uint32_t time_now();

// Logs a pause and moves the clock; logs a write to port 0xE6.
void pause(uint64_t microseconds);
void log_poke(uint8_t value);

// What happened since reset, a line each: a request that reached the BMC as "18 01" (NetFn/LUN,
// command, data, upper-case), a pause as "sleep 100000" (microseconds), a write to port 0xE6 as
// "poke 80".
std::string transcript();

// The same, with responses ("< 1C 01 00 ..."), is appended to this file from now on, line by line.
// False when it cannot be opened.
bool log_to(const std::string& path);

// Contents are read from this file now, if it exists, and written to it when the process ends.
void keep_state(const std::string& path);
// The transcript is written to this file when the process ends.
void keep_transcript(const std::string& path);
// Writes what is to be kept now: for a process that ends without its exit handlers.
void finish();

// A broken line of the file is left out. False when the file cannot be read or written.
bool load_state(const std::string& path, Bmc& bmc);
bool save_state(const std::string& path, const Bmc& bmc);

// The bytes in upper-case hexadecimal, joined by blanks; and back, from digits without blanks:
// false when the text is anything else.
std::string hex_text(const Bytes& bytes);
bool parse_hex(const std::string& text, Bytes& bytes);

// Sets the machine up from environment variables; ends the process with status 2 on a wrong one.
void configure_from_environment();

}  // namespace sim

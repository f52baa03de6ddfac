// The simulated server around the BMC: ports, kernel device, host interfaces.
#pragma once
#include "sim/bmc.h"
#include "sim/kcs.h"
#include "sim/kernel_device.h"
#include "sim/log.h"
#include "sim/state_file.h"
#include "sim/text.h"

namespace sim {

struct HostInterface {
  std::string name;
  Bytes mac;           // 6 bytes
  Bytes address = {};  // 4 bytes, or empty when it has none
};

enum class Kind {
  card,   // the daughter card: KCS at 0xCAC/0xCA8
  plain,  // any other BMC: KCS at 0xCA3/0xCA2, no downloader
  none,   // no BMC at all, no kernel device
};

struct Machine {
  Bmc bmc;
  std::vector<Kcs> ports;  // one state machine a port pair; absent ports read 0xFF
  bool has_ports = true;   // false: a processor without I/O ports
  bool root = true;
  std::vector<std::string> devices = {"/dev/ipmi0"};  // paths at which the kernel's device opens
  KernelFaults kernel_faults;
  bool device_is_open = false;
  std::deque<KernelMessage> device_queue;
  int lock_holder = 0;  // process that holds the lock on the way to the BMC; 0: nobody
  uint64_t lock_until_us = UINT64_MAX;
  std::string port_owners;       // as /proc/ioports prints them; empty: there is no such file
  std::string lockdown;          // as /sys/kernel/security/lockdown prints it, likewise
  bool lists_interfaces = true;  // false: no /proc/net/dev
  std::vector<HostInterface> interfaces;
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

// Has the BMC carry out one request, and logs it.
Answer serve(const Bytes& request);

// Logs a pause and moves the clock.
void pause(uint64_t microseconds);

// Contents are read from this file now, if it exists, and written to it when the process ends.
void keep_state(const std::string& path);
// Writes what is to be kept now: for a process that ends without its exit handlers.
void finish();

// Sets the machine up from environment variables; ends the process with status 2 on a wrong one.
void configure_from_environment();
// What one such variable sets. False when there is none of that name, or it has no such value.
bool set_variable(const std::string& name, std::string value);

}  // namespace sim

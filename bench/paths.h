// The way to a fresh simulated server. Each benchmark sets up its own, whatever ran before it.
#pragma once
#include "platform/platform.h"
#include "sim/machine.h"
#include "transport/bmc.h"
#include "transport/transaction.h"

inline void start_on_ports() {
  sim::reset(sim::Kind::card);
  openIpmiFlag = 0;
  driverHandle = -1;
  Init_Interface("KCS", 0xCAC, 0xCA8, 0);
}

inline void start_on_device(sim::Kind kind) {
  sim::reset(kind);
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
}

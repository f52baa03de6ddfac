// The simulated BMC: what it holds, and how it answers one request.
#pragma once
#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace sim {

using Bytes = std::vector<uint8_t>;

// Named contents, as a state file holds them: one line a name, its bytes in hexadecimal.
using State = std::map<std::string, Bytes>;

struct Reply {
  uint8_t completion = 0;
  Bytes data;
};

struct Bmc;

// One command the BMC knows: NetFn (not shifted), number, and what it answers to the request's
// data. A command in no table is answered with 0xC1.
struct Command {
  uint8_t netfn;
  uint8_t number;
  Reply (*answer)(Bmc& bmc, const Bytes& data);
};

}  // namespace sim

#include "sim/app.h"
#include "sim/card.h"
#include "sim/fru_store.h"
#include "sim/lan_channel.h"
#include "sim/sdr_store.h"
#include "sim/sel_store.h"

namespace sim {

// A fault is data: which requests it hits and what becomes of them.
enum class FaultKind {
  refuse,    // not carried out, answered with completion code `value`
  answer,    // carried out, but answered with exactly `bytes` (completion code, data; may be empty)
  shorten,   // the answer (completion code and data) is cut to `value` bytes
  lengthen,  // the answer is filled up with 0xEE to `value` bytes
  silent,    // never answered: the interface stays busy
  write_error,  // KCS enters ERROR_STATE when byte `value` of the request arrives
  read_error,   // KCS enters ERROR_STATE when byte `value` of the response is read
  attention,    // SMS_ATN is raised once the answer is ready
  power_cut,  // the machine dies before the request is carried out: contents are kept, the process
              // ends with status 137
};

struct Fault {
  FaultKind kind = FaultKind::refuse;
  int netfn = -1;  // not shifted; -1: any
  int command = -1;
  unsigned skip = 0;   // matching requests that pass first
  unsigned times = 1;  // then so many are hit; 0: all that follow
  unsigned value = 0;
  Bytes bytes;
};

struct Bmc {
  App app;
  LanChannel lan;
  SelStore sel;
  SdrStore sdr;
  FruStore fru;
  Card card;

  std::deque<Bytes> receive_queue;  // Get Message takes from here; SMS_ATN while not empty
  std::map<uint8_t, App> targets;   // controllers on the IPMB, by slave address
  bool keep_sequence = true;        // false: bridged answers carry a wrong sequence number

  std::vector<Fault> faults;
  // When not empty, answers every request instead of the model: a length byte, then so many bytes
  // (completion code, data); refuses with 0xCB once used up. For fuzzing.
  Bytes answer_stream;
};

// Carries out one request: NetFn << 2 | LUN, command, data. The response: NetFn/LUN, command,
// completion code, data.
Bytes answer(Bmc& bmc, const Bytes& request);

void store(const Bmc& bmc, State& state);
void restore(Bmc& bmc, const State& state);

}  // namespace sim

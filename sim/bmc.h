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

// Named contents, as a state file holds them: one line a name, its bytes in hexadecimal. A name has
// no blanks.
using State = std::map<std::string, Bytes>;

// Completion codes of the IPMI standard (v2.0 table 5-2).
inline constexpr uint8_t DONE = 0x00;
inline constexpr uint8_t NODE_BUSY = 0xC0;
inline constexpr uint8_t INVALID_COMMAND = 0xC1;
inline constexpr uint8_t OUT_OF_SPACE = 0xC4;
inline constexpr uint8_t RESERVATION_CANCELLED = 0xC5;
inline constexpr uint8_t INVALID_LENGTH = 0xC7;
inline constexpr uint8_t OUT_OF_RANGE = 0xC9;
inline constexpr uint8_t NOT_PRESENT = 0xCB;
inline constexpr uint8_t INVALID_DATA = 0xCC;
inline constexpr uint8_t UNSPECIFIED = 0xFF;

struct Reply {
  uint8_t completion = DONE;
  Bytes data = {};
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
#include "sim/repository.h"
#include "sim/sdr_store.h"
#include "sim/sel_store.h"

namespace sim {

// A fault is data: which requests it hits and what becomes of them. Bytes of a message count from
// 0, which is NetFn/LUN.
enum class FaultKind {
  refuse,    // not carried out, answered with completion code `value`
  answer,    // carried out, but answered with exactly `bytes` (completion code, data; may be empty)
  shorten,   // the answer (completion code and data) is cut to `value` bytes
  lengthen,  // the answer is filled up with 0xEE to `value` bytes
  silent,    // never answered: the interface stays busy
  stall,     // KCS is busy for `value` reads of the status register before it answers
  write_error,  // KCS enters ERROR_STATE when byte `value` of the request arrives
  read_error,   // KCS enters ERROR_STATE when byte `value` of the response is asked for
  no_dummy,     // KCS never offers the byte that ends a response
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
  Bytes bytes = {};
  unsigned seen = 0;  // matching requests so far
};

struct Bmc {
  bool has_card = true;  // false: any other BMC, without a downloader
  App app;
  LanChannel lan;
  SelStore sel;
  SdrStore sdr;
  FruStore fru;
  Card card;

  std::deque<Bytes> receive_queue;  // Get Message takes from here; SMS_ATN while not empty
  bool attention = false;           // SMS_ATN for another reason; Clear Message Flags ends it
  bool can_signal = true;           // false: SMS_ATN never rises
  std::map<uint8_t, App> targets;   // controllers on the IPMB, by slave address
  bool keep_sequence = true;        // false: bridged answers carry a wrong sequence number

  // While the machine's clock (now_us) is between the two the BMC is away: its status register
  // reads 0xFF and nothing is answered.
  uint64_t gone_at_us = 0;
  uint64_t back_at_us = 0;

  std::vector<Fault> faults;
  // When not empty, answers every request instead of the model: a length byte, then so many bytes
  // (completion code, data); refuses with 0xCB once used up. For fuzzing.
  Bytes answer_stream;
  size_t answer_used = 0;
};

// What becomes of one request.
struct Answer {
  Bytes bytes = {};  // NetFn/LUN, command, completion code, data
  bool silent = false;
  bool no_dummy = false;
  bool attention = false;
  bool power_cut = false;
  unsigned stall = 0;
  int read_error = -1;
};

// Carries out one request: NetFn << 2 | LUN, command, data.
Answer answer(Bmc& bmc, const Bytes& request);

// What the model answers, no faults: NetFn not shifted, command, data.
Reply dispatch(Bmc& bmc, uint8_t netfn, uint8_t command, const Bytes& data);

// True when a write_error fault hits the byte that has just arrived, the last of `received`.
bool write_fails(Bmc& bmc, const Bytes& received);

bool attention(const Bmc& bmc);

void store(const Bmc& bmc, State& state);
void restore(Bmc& bmc, const State& state);

}  // namespace sim

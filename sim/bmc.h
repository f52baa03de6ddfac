// The simulated BMC: what it holds, and how it answers one request.
#pragma once
#include <deque>

#include "sim/app.h"
#include "sim/card.h"
#include "sim/faults.h"
#include "sim/fru_store.h"
#include "sim/lan_channel.h"
#include "sim/repository.h"
#include "sim/sdr_store.h"
#include "sim/sel_store.h"

namespace sim {

struct Bmc {
  Clock clock;
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

  // While the clock is between the two the BMC is away: its status register
  // reads 0xFF and nothing is answered.
  uint64_t gone_at_us = 0;
  uint64_t back_at_us = 0;

  std::vector<Fault> faults;
  // When not empty, answers in place of the model: a length byte, then so many bytes
  // (completion code, data); refuses with 0xCB once used up. For fuzzing.
  Bytes answer_stream;
  size_t answer_used = 0;
};

// Carries out one request: NetFn << 2 | LUN, command, data.
Answer answer(Bmc& bmc, const Bytes& request);

// What the model answers, no faults: NetFn as the request's byte has it, LUN 0.
Reply dispatch(Bmc& bmc, uint8_t netfn, uint8_t command, const Bytes& data);

// Whether the BMC is unreachable now, as after a reset.
bool is_away(const Bmc& bmc);
// Whether SMS_ATN is raised.
bool attention(const Bmc& bmc);

void store(const Bmc& bmc, State& state);
void restore(Bmc& bmc, const State& state);

}  // namespace sim

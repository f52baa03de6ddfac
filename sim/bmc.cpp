// One request to the simulated BMC: faults, then the command tables of its devices.
#include "sim/bmc.h"

#include <algorithm>

namespace sim {

namespace {

constexpr uint8_t NETFN_MASK = 0xFC;

// A device of the BMC: its commands, and its part of the state file.
struct Device {
  std::span<const Command> (*commands)();
  void (*store)(const Bmc& from, State& state);
  void (*restore)(Bmc& to, const State& state);
};

template <auto part>
constexpr Device device(std::span<const Command> (*commands)()) {
  return {commands, [](const Bmc& from, State& state) { store(from.*part, state); },
          [](Bmc& to, const State& state) { restore(to.*part, state); }};
}

constexpr Device DEVICES[] = {
    device<&Bmc::app>(app_commands), device<&Bmc::lan>(lan_commands),
    device<&Bmc::sel>(sel_commands), device<&Bmc::sdr>(sdr_commands),
    device<&Bmc::fru>(fru_commands), device<&Bmc::card>(card_commands),
};

Bytes next_answer(Bmc& bmc) {
  if (bmc.answer_used >= bmc.answer_stream.size()) return {NOT_PRESENT};
  const size_t asked = bmc.answer_stream[bmc.answer_used++];
  const size_t count = std::min(asked, bmc.answer_stream.size() - bmc.answer_used);
  const auto start = bmc.answer_stream.begin() + static_cast<std::ptrdiff_t>(bmc.answer_used);
  bmc.answer_used += count;
  return Bytes(start, start + static_cast<std::ptrdiff_t>(count));
}

// Completion code and data that the model answers.
Bytes ask_model(Bmc& bmc, const Bytes& request) {
  if (request.size() < 2) return {INVALID_LENGTH};
  const Bytes data(request.begin() + 2, request.end());
  const Reply reply = dispatch(bmc, request[0] & NETFN_MASK, request[1], data);
  Bytes answered = {reply.completion};
  answered.insert(answered.end(), reply.data.begin(), reply.data.end());
  return answered;
}

// The faults that hit a request on its way in. True when it is not to be carried out.
bool fail_on_arrival(const std::vector<const Fault*>& hit, Answer& result) {
  bool stopped = false;
  for (const Fault* fault : hit) {
    const FaultRow& row = row_of(*fault);
    const bool stops = row.point == FaultPoint::instead && !stopped;
    if (row.point == FaultPoint::arrival || stops) row.act(*fault, result);
    stopped = stopped || stops;
  }
  return stopped;
}

}  // namespace

Reply dispatch(Bmc& bmc, uint8_t netfn, uint8_t command, const Bytes& data) {
  if (!card_answers(bmc, netfn, command)) return {INVALID_COMMAND, {}};
  for (const Device& device : DEVICES) {
    for (const Command& entry : device.commands()) {
      if (entry.netfn == netfn && entry.number == command) return entry.answer(bmc, data);
    }
  }
  return {INVALID_COMMAND, {}};
}

Answer answer(Bmc& bmc, const Bytes& request) {
  const std::vector<const Fault*> hit = hit_faults(bmc.faults, request);
  Answer result = {.bytes = {COMPLETED}};
  if (!fail_on_arrival(hit, result)) {
    result.bytes = bmc.answer_stream.empty() ? ask_model(bmc, request) : next_answer(bmc);
  }
  for (const Fault* fault : hit) {
    if (row_of(*fault).point == FaultPoint::answered) row_of(*fault).act(*fault, result);
  }
  const uint8_t netfn = request.empty() ? 0 : request[0];
  const uint8_t command = request.size() > 1 ? request[1] : 0;
  result.bytes.insert(result.bytes.begin(), {static_cast<uint8_t>(netfn | RESPONSE_BIT), command});
  if (result.attention) bmc.attention = true;
  return result;
}

bool is_away(const Bmc& bmc) {
  return bmc.clock.now_us >= bmc.gone_at_us && bmc.clock.now_us < bmc.back_at_us;
}

bool attention(const Bmc& bmc) {
  return bmc.can_signal && (bmc.attention || !bmc.receive_queue.empty());
}

void store(const Bmc& bmc, State& state) {
  for (const Device& device : DEVICES) device.store(bmc, state);
}

void restore(Bmc& bmc, const State& state) {
  for (const Device& device : DEVICES) device.restore(bmc, state);
}

}  // namespace sim

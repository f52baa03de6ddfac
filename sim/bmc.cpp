// One request to the simulated BMC: faults, then the command tables of its devices.
#include "sim/bmc.h"

#include <algorithm>

namespace sim {

namespace {

constexpr uint8_t PADDING = 0xEE;

bool matches(const Fault& fault, const Bytes& request) {
  const bool netfn = fault.netfn < 0 || (!request.empty() && request[0] >> 2 == fault.netfn);
  const bool command = fault.command < 0 || (request.size() > 1 && request[1] == fault.command);
  return netfn && command;
}

// Counts a matching request; true when this one is hit.
bool hits(Fault& fault, const Bytes& request) {
  if (!matches(fault, request)) return false;
  const unsigned earlier = fault.seen++;
  return earlier >= fault.skip && (fault.times == 0 || earlier - fault.skip < fault.times);
}

// What happens on the way in: true when the request is not carried out.
bool fault_before(const Fault& fault, Reply& reply, Answer& result) {
  switch (fault.kind) {
    case FaultKind::refuse:
      reply = {static_cast<uint8_t>(fault.value), {}};
      return true;
    case FaultKind::silent:
      result.silent = true;
      return true;
    case FaultKind::power_cut:
      result.power_cut = true;
      return true;
    default:
      return false;
  }
}

// What happens on the way out to the completion code and data.
void fault_after(const Fault& fault, Bytes& answered, Answer& result) {
  switch (fault.kind) {
    case FaultKind::answer:
      answered = fault.bytes;
      break;
    case FaultKind::shorten:
      answered.resize(std::min<size_t>(answered.size(), fault.value));
      break;
    case FaultKind::lengthen:
      answered.resize(std::max<size_t>(answered.size(), fault.value), PADDING);
      break;
    case FaultKind::stall:
      result.stall = fault.value;
      break;
    case FaultKind::read_error:
      result.read_error = static_cast<int>(fault.value);
      break;
    case FaultKind::no_dummy:
      result.no_dummy = true;
      break;
    case FaultKind::attention:
      result.attention = true;
      break;
    default:
      break;
  }
}

Bytes next_of_stream(Bmc& bmc) {
  if (bmc.answer_used >= bmc.answer_stream.size()) return {NOT_PRESENT};
  const size_t asked = bmc.answer_stream[bmc.answer_used++];
  const size_t count = std::min(asked, bmc.answer_stream.size() - bmc.answer_used);
  const auto start = bmc.answer_stream.begin() + static_cast<std::ptrdiff_t>(bmc.answer_used);
  bmc.answer_used += count;
  return Bytes(start, start + static_cast<std::ptrdiff_t>(count));
}

Bytes carry_out(Bmc& bmc, const Bytes& request, std::vector<const Fault*> hit, Answer& result) {
  if (!bmc.answer_stream.empty()) return next_of_stream(bmc);
  Reply reply;
  const bool stopped = std::any_of(hit.begin(), hit.end(), [&](const Fault* fault) {
    return fault_before(*fault, reply, result);
  });
  if (!stopped && request.size() < 2) {
    reply.completion = INVALID_LENGTH;
  } else if (!stopped) {
    const Bytes data(request.begin() + 2, request.end());
    reply = dispatch(bmc, request[0] >> 2, request[1], data);
  }
  Bytes answered = {reply.completion};
  answered.insert(answered.end(), reply.data.begin(), reply.data.end());
  return answered;
}

}  // namespace

Reply dispatch(Bmc& bmc, uint8_t netfn, uint8_t command, const Bytes& data) {
  if (!card_answers(bmc, netfn, command)) return {INVALID_COMMAND, {}};
  using Table = std::span<const Command>;
  const Table tables[] = {app_commands(), lan_commands(), sel_commands(),
                          sdr_commands(), fru_commands(), bmc.has_card ? card_commands() : Table()};
  for (const Table& table : tables) {
    for (const Command& entry : table) {
      if (entry.netfn == netfn && entry.number == command) return entry.answer(bmc, data);
    }
  }
  return {INVALID_COMMAND, {}};
}

Answer answer(Bmc& bmc, const Bytes& request) {
  std::vector<const Fault*> hit;
  for (Fault& fault : bmc.faults) {
    if (fault.kind != FaultKind::write_error && hits(fault, request)) hit.push_back(&fault);
  }
  Answer result;
  Bytes answered = carry_out(bmc, request, hit, result);
  for (const Fault* fault : hit) fault_after(*fault, answered, result);
  const uint8_t netfn = request.empty() ? 0 : request[0];
  result.bytes = {static_cast<uint8_t>(netfn | 1 << 2),
                  request.size() > 1 ? request[1] : uint8_t{0}};
  result.bytes.insert(result.bytes.end(), answered.begin(), answered.end());
  if (result.attention) bmc.attention = true;
  return result;
}

bool write_fails(Bmc& bmc, const Bytes& received) {
  bool fails = false;
  for (Fault& fault : bmc.faults) {
    if (fault.kind != FaultKind::write_error || received.size() != fault.value + size_t{1})
      continue;
    fails = hits(fault, received) || fails;
  }
  return fails;
}

bool attention(const Bmc& bmc) {
  return bmc.can_signal && (bmc.attention || !bmc.receive_queue.empty());
}

void store(const Bmc& bmc, State& state) {
  store(bmc.app, state);
  store(bmc.lan, state);
  store(bmc.sel, state);
  store(bmc.sdr, state);
  store(bmc.fru, state);
  store(bmc.card, state);
}

void restore(Bmc& bmc, const State& state) {
  restore(bmc.app, state);
  restore(bmc.lan, state);
  restore(bmc.sel, state);
  restore(bmc.sdr, state);
  restore(bmc.fru, state);
  restore(bmc.card, state);
}

}  // namespace sim

// Sensor Data Record repository of the simulated BMC.
#include <algorithm>

#include "sim/bmc.h"
#include "sim/wire.h"

namespace sim {

namespace {

constexpr uint8_t CAN_RESERVE = 0x02;
constexpr uint8_t CAN_PARTIAL_ADD = 0x04;
constexpr uint8_t NON_MODAL = 0x20;  // written without update mode
constexpr uint8_t LENGTH_WRONG = 0x80;
constexpr uint8_t TOO_MANY_BYTES = 0xCA;
constexpr uint16_t FIRST = 0x0000;
constexpr uint16_t LAST = 0xFFFF;
constexpr uint8_t WHOLE = 0xFF;
constexpr uint8_t ERASE_IN_PROGRESS = 0x00;
constexpr uint8_t ERASE_COMPLETE = 0x01;
constexpr uint8_t LAST_FRAGMENT = 0x01;
constexpr size_t PARTIAL_HEADER = 6;

bool is_whole(const Bytes& record) {
  return record.size() >= SDR_HEADER && record.size() == SDR_HEADER + record[SDR_HEADER - 1];
}

Reply sdr_info(Bmc& bmc, const Bytes&) {
  const SdrStore& sdr = bmc.sdr;
  size_t used = 0;
  for (const auto& [id, record] : sdr.records) used += record.size();
  const size_t free =
      sdr.records.size() < sdr.room && used < REPOSITORY_MOST ? REPOSITORY_MOST - used : 0;
  const uint8_t partial = sdr.partial_add ? CAN_PARTIAL_ADD : 0;
  return repository_info(sdr, sdr.records.size(), free, NON_MODAL | CAN_RESERVE | partial);
}

Reply reserve_sdr(Bmc& bmc, const Bytes&) {
  return give_reservation(bmc.sdr);
}

// Reservation (2; needed for a part only), record ID (2), offset, bytes to read.
Reply get_record(Bmc& bmc, const Bytes& data) {
  const SdrStore& sdr = bmc.sdr;
  if (data.size() != 6) return {INVALID_LENGTH, {}};
  const size_t offset = data[4];
  if (offset != 0 && !is_reserved(sdr, data)) return {RESERVATION_CANCELLED, {}};
  const uint16_t id = word(&data[2]);
  const auto found = id == FIRST ? sdr.records.begin() : sdr.records.find(id);
  if (found == sdr.records.end()) return {NOT_PRESENT, {}};
  const Bytes& record = found->second;
  if (offset > record.size()) return {PARAMETER_OUT_OF_RANGE, {}};
  const size_t left = record.size() - offset;
  // A read beyond the record's end gives what there is.
  const size_t count = data[5] == WHOLE ? left : std::min<size_t>(data[5], left);
  if (count > sdr.longest_read) return {TOO_MANY_BYTES, {}};
  const auto next = std::next(found);
  Reply reply;
  put(std::back_inserter(reply.data), next == sdr.records.end() ? LAST : next->first, 2);
  reply.data.insert(reply.data.end(), &record[0] + offset, &record[0] + offset + count);
  return reply;
}

// The ID of the next record, or LAST when there is no room for it.
uint16_t new_id(const SdrStore& sdr) {
  if (sdr.records.size() >= sdr.room) return LAST;
  return sdr.records.empty() ? 1 : static_cast<uint16_t>(sdr.records.rbegin()->first + 1);
}

Reply keep(Bmc& bmc, uint16_t id, Bytes record) {
  SdrStore& sdr = bmc.sdr;
  put(record.begin(), id, 2);
  sdr.records[id] = record;
  sdr.added = seconds(bmc.clock);
  Reply reply;
  put(std::back_inserter(reply.data), id, 2);
  return reply;
}

// A record; the BMC sets its ID.
Reply add_record(Bmc& bmc, const Bytes& data) {
  SdrStore& sdr = bmc.sdr;
  if (sdr.erase_left > 0) return {WRONG_STATE, {}};
  if (!is_whole(data)) return {LENGTH_WRONG, {}};
  const uint16_t id = new_id(sdr);
  return id == LAST ? Reply{OUT_OF_SPACE, {}} : keep(bmc, id, data);
}

// Reservation (2), record ID (2; 0 for a new record), offset, progress, record bytes.
Reply add_part(Bmc& bmc, const Bytes& data) {
  SdrStore& sdr = bmc.sdr;
  if (!sdr.partial_add) return {INVALID_COMMAND, {}};
  if (data.size() < PARTIAL_HEADER) return {INVALID_LENGTH, {}};
  if (sdr.erase_left > 0) return {WRONG_STATE, {}};
  if (!is_reserved(sdr, data)) return {RESERVATION_CANCELLED, {}};
  const uint16_t id = word(&data[2]);
  if (id == FIRST) {
    sdr.open.clear();
    sdr.open_id = new_id(sdr);
    if (sdr.open_id == LAST) return {OUT_OF_SPACE, {}};
  } else if (id != sdr.open_id || sdr.open.empty()) {
    return {NOT_PRESENT, {}};
  }
  if (data[4] != sdr.open.size()) return {PARAMETER_OUT_OF_RANGE, {}};
  if (data[5] > LAST_FRAGMENT) return {INVALID_DATA, {}};
  sdr.open.insert(sdr.open.end(), data.begin() + PARTIAL_HEADER, data.end());
  Reply reply;
  if (data[5] == LAST_FRAGMENT) {
    reply = is_whole(sdr.open) ? keep(bmc, sdr.open_id, sdr.open) : Reply{LENGTH_WRONG, {}};
    sdr.open.clear();
  } else {
    put(std::back_inserter(reply.data), sdr.open_id, 2);
  }
  return reply;
}

Reply clear_sdr(Bmc& bmc, const Bytes& data) {
  SdrStore& sdr = bmc.sdr;
  Reply refusal;
  const Clear asked = check_clear(sdr, data, refusal);
  if (asked == Clear::refused) return refusal;
  if (asked == Clear::start) {
    sdr.records.clear();
    sdr.open.clear();
    sdr.erased = seconds(bmc.clock);
    sdr.erase_left = sdr.erase_polls;
    return {COMPLETED, {sdr.erase_left > 0 ? ERASE_IN_PROGRESS : ERASE_COMPLETE}};
  }
  if (sdr.erase_left == 0) return {COMPLETED, {ERASE_COMPLETE}};
  sdr.erase_left--;
  return {COMPLETED, {ERASE_IN_PROGRESS}};
}

constexpr Command COMMANDS[] = {
    {NETFN_STORAGE, GET_SDR_INFO, sdr_info},    {NETFN_STORAGE, RESERVE_SDR, reserve_sdr},
    {NETFN_STORAGE, GET_SDR, get_record},       {NETFN_STORAGE, ADD_SDR, add_record},
    {NETFN_STORAGE, PARTIAL_ADD_SDR, add_part}, {NETFN_STORAGE, CLEAR_SDR, clear_sdr},
};

}  // namespace

std::span<const Command> sdr_commands() {
  return COMMANDS;
}

void store(const SdrStore& from, State& state) {
  Bytes& all = state["sdr.records"];
  for (const auto& [id, record] : from.records) all.insert(all.end(), record.begin(), record.end());
  state["sdr.partial_add"] = {from.partial_add};
}

void restore(SdrStore& to, const State& state) {
  if (const auto found = state.find("sdr.records"); found != state.end()) {
    to.records.clear();
    // A length byte that leads past the end ends the list.
    const Bytes& all = found->second;
    for (size_t at = 0; all.size() - at >= SDR_HEADER;) {
      const size_t size = SDR_HEADER + all[at + SDR_HEADER - 1];
      if (size > all.size() - at) break;
      to.records[word(&all[at])] = Bytes(&all[at], &all[at] + size);
      at += size;
    }
  }
  const auto found = state.find("sdr.partial_add");
  if (found != state.end() && !found->second.empty()) to.partial_add = found->second[0] != 0;
}

}  // namespace sim

// System Event Log of the simulated BMC.
#include <algorithm>

#include "sim/bmc.h"
#include "sim/wire.h"

namespace sim {

namespace {

using Record = std::array<uint8_t, SEL_RECORD>;

constexpr uint8_t CAN_RESERVE = 0x02;
constexpr uint16_t FIRST = 0x0000;
constexpr uint16_t LAST = 0xFFFF;
constexpr uint8_t WHOLE = 0xFF;
constexpr uint8_t TIMESTAMPED = 0xE0;  // record types below carry a time at byte 3
constexpr uint8_t ERASE_COMPLETE = 0x01;

// The place of a record by its ID, or the number of records. IDs mostly count up from the first.
size_t find(const std::vector<Record>& records, uint16_t id) {
  if (records.empty() || id == FIRST) return 0;
  if (id == LAST) return records.size() - 1;
  const size_t likely = static_cast<uint16_t>(id - word(records[0].data()));
  if (likely < records.size() && word(records[likely].data()) == id) return likely;
  const auto has_id = [id](const Record& record) { return word(record.data()) == id; };
  const auto found = std::find_if(records.begin(), records.end(), has_id);
  return static_cast<size_t>(found - records.begin());
}

Reply sel_info(Bmc& bmc, const Bytes&) {
  const SelStore& sel = bmc.sel;
  const size_t held = sel.records.size();
  const size_t free = sel.room > held ? (sel.room - held) * SEL_RECORD : 0;
  return repository_info(sel, held, free, CAN_RESERVE);
}

Reply reserve_sel(Bmc& bmc, const Bytes&) {
  return give_reservation(bmc.sel);
}

// Reservation (2; needed for a part only), record ID (2), offset, bytes to read.
Reply entry_answer(Bmc& bmc, const Bytes& data) {
  const SelStore& sel = bmc.sel;
  if (data.size() != 6) return {INVALID_LENGTH, {}};
  const size_t offset = data[4];
  if (offset != 0 && !is_reserved(sel, data)) return {RESERVATION_CANCELLED, {}};
  const size_t place = find(sel.records, word(&data[2]));
  if (place >= sel.records.size()) return {NOT_PRESENT, {}};
  if (offset > SEL_RECORD) return {PARAMETER_OUT_OF_RANGE, {}};
  const size_t count = data[5] == WHOLE ? SEL_RECORD - offset : data[5];
  if (count > SEL_RECORD - offset) return {PARAMETER_OUT_OF_RANGE, {}};
  const bool last = place + 1 == sel.records.size();
  Reply reply;
  put(std::back_inserter(reply.data), last ? LAST : word(sel.records[place + 1].data()), 2);
  const uint8_t* start = sel.records[place].data() + offset;
  reply.data.insert(reply.data.end(), start, start + count);
  return reply;
}

// A record; the BMC sets its ID and the time of types that have one.
Reply add_entry(Bmc& bmc, const Bytes& data) {
  SelStore& sel = bmc.sel;
  if (data.size() != SEL_RECORD) return {INVALID_LENGTH, {}};
  const unsigned id = sel.records.empty() ? 1 : word(sel.records.back().data()) + 1u;
  if (sel.records.size() >= sel.room || id >= LAST) return {OUT_OF_SPACE, {}};
  Record record;
  std::copy(data.begin(), data.end(), record.begin());
  put(record.begin(), id, 2);
  sel.added = seconds(bmc.clock);
  if (record[2] < TIMESTAMPED) put(record.begin() + 3, sel.added, 4);
  sel.records.push_back(record);
  Reply reply;
  put(std::back_inserter(reply.data), id, 2);
  return reply;
}

// An erase is complete at once.
Reply clear_sel(Bmc& bmc, const Bytes& data) {
  SelStore& sel = bmc.sel;
  Reply refusal;
  const Clear asked = check_clear(sel, data, refusal);
  if (asked == Clear::refused) return refusal;
  if (asked == Clear::start) {
    sel.records.clear();
    sel.erased = seconds(bmc.clock);
  }
  return {COMPLETED, {ERASE_COMPLETE}};
}

constexpr Command COMMANDS[] = {
    {NETFN_STORAGE, GET_SEL_INFO, sel_info},      {NETFN_STORAGE, RESERVE_SEL, reserve_sel},
    {NETFN_STORAGE, GET_SEL_ENTRY, entry_answer}, {NETFN_STORAGE, ADD_SEL_ENTRY, add_entry},
    {NETFN_STORAGE, CLEAR_SEL, clear_sel},
};

}  // namespace

std::span<const Command> sel_commands() {
  return COMMANDS;
}

void store(const SelStore& from, State& state) {
  Bytes& all = state["sel.records"];
  for (const Record& record : from.records) all.insert(all.end(), record.begin(), record.end());
  put(std::back_inserter(state["sel.reservation"]), from.reservation, 2);
  if (from.claimed >= 0)
    put(std::back_inserter(state["sel.claimed"]), static_cast<uint32_t>(from.claimed), 2);
}

void restore(SelStore& to, const State& state) {
  if (const auto found = state.find("sel.records"); found != state.end()) {
    to.records.resize(std::min(found->second.size() / SEL_RECORD, SEL_MOST));
    auto from = found->second.begin();
    for (Record& record : to.records) {
      std::copy_n(from, SEL_RECORD, record.begin());
      from += SEL_RECORD;
    }
  }
  if (const auto found = state.find("sel.reservation");
      found != state.end() && found->second.size() == 2) {
    to.reservation = word(found->second.data());
  }
  if (const auto found = state.find("sel.claimed");
      found != state.end() && found->second.size() == 2) {
    to.claimed = word(found->second.data());
  }
}

}  // namespace sim

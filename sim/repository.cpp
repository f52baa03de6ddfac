// What the sensor records and the event log of the simulated BMC have in common.
#include <algorithm>

#include "sim/bmc.h"
#include "sim/wire.h"

namespace sim {

namespace {

constexpr uint8_t VERSION = 0x51;
constexpr size_t CLEAR_SIZE = 6;
constexpr uint8_t GET_STATUS = 0x00;
constexpr uint8_t START_ERASE = 0xAA;

}  // namespace

Reply repository_info(const Repository& from, size_t held, size_t free, uint8_t support) {
  const size_t count = from.claimed >= 0 ? static_cast<size_t>(from.claimed) : held;
  Reply reply = {COMPLETED, {VERSION}};
  put(std::back_inserter(reply.data), static_cast<uint32_t>(count), 2);
  put(std::back_inserter(reply.data), static_cast<uint32_t>(std::min(free, REPOSITORY_MOST)), 2);
  put(std::back_inserter(reply.data), from.added, 4);
  put(std::back_inserter(reply.data), from.erased, 4);
  reply.data.push_back(support);
  return reply;
}

Reply give_reservation(Repository& from) {
  if (++from.reservation == 0) from.reservation = 1;
  Reply reply;
  put(std::back_inserter(reply.data), from.reservation, 2);
  return reply;
}

bool is_reserved(const Repository& from, const Bytes& data) {
  return from.reservation != 0 && data.size() >= 2 && word(&data[0]) == from.reservation;
}

Clear check_clear(const Repository& from, const Bytes& data, Reply& refusal) {
  refusal = {INVALID_LENGTH, {}};
  if (data.size() != CLEAR_SIZE) return Clear::refused;
  refusal = {RESERVATION_CANCELLED, {}};
  if (!is_reserved(from, data)) return Clear::refused;
  refusal = {INVALID_DATA, {}};
  if (data[2] != 'C' || data[3] != 'L' || data[4] != 'R') return Clear::refused;
  if (data[5] == START_ERASE) return Clear::start;
  return data[5] == GET_STATUS ? Clear::status : Clear::refused;
}

}  // namespace sim

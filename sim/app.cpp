// Application commands of the simulated BMC: identity, users, resets, messaging.
#include <algorithm>
#include <string>

#include "sim/bmc.h"

namespace sim {

namespace {

constexpr uint8_t NETFN_MASK = 0xFC;
constexpr size_t NAME_SIZE = 16;
constexpr size_t PASSWORD_SIZE = 16;
constexpr size_t LONG_PASSWORD_SIZE = 20;
constexpr uint8_t LONG_PASSWORD = 0x80;  // bit 7 of the user ID
constexpr uint8_t ID_MASK = 0x3F;
constexpr uint8_t PASSWORD_WRONG = 0x80;
constexpr uint8_t QUEUE_EMPTY = 0x80;
constexpr uint8_t NO_ACKNOWLEDGE = 0x83;
constexpr uint8_t CLEAR_QUEUE = 0x01;
constexpr size_t QUEUE_ROOM = 16;
constexpr uint8_t SEQUENCE_STEP = 0x04;  // sequence number in bits 7..2

Reply get_device_id(Bmc& bmc, const Bytes&) {
  constexpr size_t FIRMWARE_REVISION = 2;
  constexpr uint8_t UPDATING = 0x80;
  Bytes id = bmc.app.device_id;
  if (id.size() > FIRMWARE_REVISION && card_is_updating(bmc)) id[FIRMWARE_REVISION] |= UPDATING;
  return {COMPLETED, id};
}

User* find_user(App& app, uint8_t id) {
  const unsigned number = id & ID_MASK;
  return number >= 1 && number <= USER_COUNT ? &app.users[number - 1] : nullptr;
}

// Channel, user ID. Answers the number of users, of enabled ones, of those with fixed names, and
// the user's access: IPMI messaging as an administrator.
Reply get_user_access(Bmc& bmc, const Bytes& data) {
  constexpr uint8_t ENABLED = 0x40;
  constexpr uint8_t MESSAGING_AS_ADMINISTRATOR = 0x14;
  if (data.size() != 2) return {INVALID_LENGTH, {}};
  if (find_user(bmc.app, data[1]) == nullptr) return {INVALID_DATA, {}};
  return {COMPLETED, {USER_COUNT, ENABLED | USER_COUNT, 1, MESSAGING_AS_ADMINISTRATOR}};
}

Reply get_user_name(Bmc& bmc, const Bytes& data) {
  if (data.size() != 1) return {INVALID_LENGTH, {}};
  const User* user = find_user(bmc.app, data[0]);
  if (user == nullptr) return {INVALID_DATA, {}};
  Bytes name(user->name.begin(), user->name.end());
  name.resize(NAME_SIZE);
  return {COMPLETED, name};
}

// User ID, operation, 16 or 20 bytes; operations 0 (disable) and 1 (enable) may go without.
Reply set_user_password(Bmc& bmc, const Bytes& data) {
  enum Operation { DISABLE, ENABLE, SET, TEST };
  if (data.size() < 2) return {INVALID_LENGTH, {}};
  User* user = find_user(bmc.app, data[0]);
  if (user == nullptr) return {INVALID_DATA, {}};
  const int operation = data[1] & 3;
  if (operation == DISABLE || operation == ENABLE) return {};
  const size_t expected = data[0] & LONG_PASSWORD ? LONG_PASSWORD_SIZE : PASSWORD_SIZE;
  if (data.size() != 2 + expected) return {INVALID_LENGTH, {}};
  const Bytes password(data.begin() + 2, data.end());
  if (operation == TEST) return {password == user->password ? COMPLETED : PASSWORD_WRONG, {}};
  user->password = password;
  return {};
}

Reply cold_reset(Bmc& bmc, const Bytes&) {
  card_reset(bmc);
  bmc.receive_queue.clear();
  bmc.attention = false;
  return {};
}

Reply warm_reset(Bmc& bmc, const Bytes&) {
  card_reset(bmc);
  return {};
}

// Result, what is at fault: nothing.
Reply get_self_test(Bmc&, const Bytes&) {
  constexpr uint8_t PASSED = 0x55;
  return {COMPLETED, {PASSED, 0x00}};
}

Reply clear_message_flags(Bmc& bmc, const Bytes& data) {
  if (data.size() != 1) return {INVALID_LENGTH, {}};
  if (data[0] & CLEAR_QUEUE) bmc.receive_queue.clear();
  bmc.attention = false;
  return {};
}

Reply get_message(Bmc& bmc, const Bytes&) {
  if (bmc.receive_queue.empty()) return {QUEUE_EMPTY, {}};
  const Bytes message = bmc.receive_queue.front();
  bmc.receive_queue.pop_front();
  return {COMPLETED, message};
}

uint8_t add_up(Bytes::const_iterator from, Bytes::const_iterator to) {
  uint8_t total = 0;
  for (; from != to; ++from) total = static_cast<uint8_t>(total + *from);
  return total;
}

// What a controller on the IPMB knows: itself and its users.
constexpr Command TARGET_COMMANDS[] = {
    {NETFN_APP, GET_DEVICE_ID, get_device_id},
    {NETFN_APP, GET_USER_NAME, get_user_name},
    {NETFN_APP, SET_USER_PASSWORD, set_user_password},
};

Reply ask_target(Bmc& bmc, App& target, uint8_t netfn, uint8_t command, const Bytes& data) {
  for (const Command& known : TARGET_COMMANDS) {
    if (known.netfn != netfn || known.number != command) continue;
    std::swap(bmc.app, target);
    Reply reply = known.answer(bmc, data);
    std::swap(bmc.app, target);
    return reply;
  }
  return {INVALID_COMMAND, {}};
}

// Channel, then an IPMB frame: rsSA, NetFn/rsLUN, checksum 1, rqSA, sequence/rqLUN, command, data,
// checksum 2. The answer goes to the receive queue as Get Message hands it out: channel,
// NetFn/rqLUN, checksum 1, rsSA, sequence/rsLUN, command, completion code, data, checksum 2.
Reply send_message(Bmc& bmc, const Bytes& data) {
  constexpr size_t SMALLEST = 8;
  if (data.size() < SMALLEST) return {INVALID_LENGTH, {}};
  const auto frame = data.begin() + 1;
  if ((data[0] & 0x0F) != 0 || add_up(frame, frame + 3) != 0 ||
      add_up(frame + 3, data.end()) != 0) {
    return {INVALID_DATA, {}};
  }
  const uint8_t address = data[1];
  const auto target = bmc.targets.find(address);
  if (target == bmc.targets.end()) return {NO_ACKNOWLEDGE, {}};
  if (bmc.receive_queue.size() >= QUEUE_ROOM) return {NODE_BUSY, {}};

  const Bytes inner(data.begin() + 7, data.end() - 1);
  const Reply reply = ask_target(bmc, target->second, data[2] & NETFN_MASK, data[6], inner);
  const uint8_t netfn = static_cast<uint8_t>((data[2] & NETFN_MASK) | RESPONSE_BIT | (data[5] & 3));
  const uint8_t wrong = bmc.keep_sequence ? 0 : SEQUENCE_STEP;
  const uint8_t sequence = static_cast<uint8_t>(((data[5] & 0xFC) + wrong) | (data[2] & 3));
  Bytes message = {data[0],         netfn,    static_cast<uint8_t>(0 - BMC_ADDRESS - netfn),
                   address,         sequence, data[6],
                   reply.completion};
  message.insert(message.end(), reply.data.begin(), reply.data.end());
  message.push_back(static_cast<uint8_t>(0 - add_up(message.begin() + 3, message.end())));
  bmc.receive_queue.push_back(message);
  return {};
}

constexpr Command COMMANDS[] = {
    {NETFN_APP, GET_DEVICE_ID, get_device_id},
    {NETFN_APP, COLD_RESET, cold_reset},
    {NETFN_APP, WARM_RESET, warm_reset},
    {NETFN_APP, GET_SELF_TEST, get_self_test},
    {NETFN_APP, CLEAR_MESSAGE_FLAGS, clear_message_flags},
    {NETFN_APP, GET_MESSAGE, get_message},
    {NETFN_APP, SEND_MESSAGE, send_message},
    {NETFN_APP, GET_USER_ACCESS, get_user_access},
    {NETFN_APP, GET_USER_NAME, get_user_name},
    {NETFN_APP, SET_USER_PASSWORD, set_user_password},
};

}  // namespace

std::span<const Command> app_commands() {
  return COMMANDS;
}

void store(const App& from, State& state) {
  state["device_id"] = from.device_id;
  for (unsigned i = 0; i < USER_COUNT; i++) {
    const std::string user = "user" + std::to_string(i + 1);
    state[user + ".name"] = Bytes(from.users[i].name.begin(), from.users[i].name.end());
    state[user + ".password"] = from.users[i].password;
  }
}

void restore(App& to, const State& state) {
  if (const auto found = state.find("device_id"); found != state.end())
    to.device_id = found->second;
  for (unsigned i = 0; i < USER_COUNT; i++) {
    const std::string user = "user" + std::to_string(i + 1);
    if (const auto found = state.find(user + ".name"); found != state.end()) {
      const size_t count = std::min(found->second.size(), NAME_SIZE);
      to.users[i].name.assign(found->second.begin(),
                              found->second.begin() + static_cast<std::ptrdiff_t>(count));
    }
    if (const auto found = state.find(user + ".password"); found != state.end()) {
      to.users[i].password = found->second;
    }
  }
}

}  // namespace sim

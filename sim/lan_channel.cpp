// The LAN channel of the simulated BMC.
#include "sim/bmc.h"

namespace sim {

namespace {

constexpr uint8_t CHANNEL_MASK = 0x0F;
constexpr uint8_t REVISION_ONLY = 0x80;
constexpr uint8_t REVISION = 0x11;
constexpr uint8_t SET_IN_PROGRESS = 0;
constexpr uint8_t IP_SOURCE = 4;
constexpr uint8_t PARAMETER_UNSUPPORTED = 0x80;

// Channel (bit 7: revision only), selector, set selector, block selector.
Reply parameter_answer(Bmc& bmc, const Bytes& data) {
  if (data.size() != 4) return {INVALID_LENGTH, {}};
  if ((data[0] & CHANNEL_MASK) != bmc.lan.number) return {INVALID_DATA, {}};
  const auto parameter = bmc.lan.parameters.find(data[1]);
  if (parameter == bmc.lan.parameters.end()) return {PARAMETER_UNSUPPORTED, {}};
  Reply reply = {COMPLETED, {REVISION}};
  if (data[0] & REVISION_ONLY) return reply;
  reply.data.insert(reply.data.end(), parameter->second.begin(), parameter->second.end());
  return reply;
}

bool is_allowed(uint8_t selector, const Bytes& value) {
  if (selector == SET_IN_PROGRESS) return value[0] <= 2;
  if (selector == IP_SOURCE) return value[0] <= 4;
  return true;
}

// Channel, selector, data.
Reply store_parameter(Bmc& bmc, const Bytes& data) {
  if (data.size() < 3) return {INVALID_LENGTH, {}};
  if ((data[0] & CHANNEL_MASK) != bmc.lan.number) return {INVALID_DATA, {}};
  const auto parameter = bmc.lan.parameters.find(data[1]);
  if (parameter == bmc.lan.parameters.end()) return {PARAMETER_UNSUPPORTED, {}};
  const Bytes value(data.begin() + 2, data.end());
  if (value.size() != parameter->second.size()) return {INVALID_LENGTH, {}};
  if (!is_allowed(data[1], value)) return {INVALID_DATA, {}};
  parameter->second = value;
  return {};
}

// Number, medium, protocol, sessions, vendor (3), auxiliary (2): how others find out which channel
// is the LAN.
Reply get_channel_info(Bmc& bmc, const Bytes& data) {
  if (data.size() != 1) return {INVALID_LENGTH, {}};
  if ((data[0] & CHANNEL_MASK) != bmc.lan.number) return {INVALID_DATA, {}};
  return {COMPLETED, {bmc.lan.number, 0x04, 0x01, 0x80, 0xF2, 0x1B, 0x00, 0x00, 0x00}};
}

Reply get_card_mac(Bmc& bmc, const Bytes& data) {
  if (!bmc.has_card) return {INVALID_COMMAND, {}};
  if (data.size() != 3) return {INVALID_LENGTH, {}};
  if (data != Bytes{0x00, 0x00, 0xFF}) return {INVALID_DATA, {}};
  return {COMPLETED, bmc.lan.card_mac};
}

constexpr Command COMMANDS[] = {
    {NETFN_TRANSPORT, SET_LAN_PARAMETERS, store_parameter},
    {NETFN_TRANSPORT, GET_LAN_PARAMETERS, parameter_answer},
    {NETFN_APP, GET_CHANNEL_INFO, get_channel_info},
    {NETFN_CARD, GET_CARD_MAC, get_card_mac},
};

std::string key_of(uint8_t selector) {
  return "lan.parameter" + std::to_string(selector);
}

// Contents of another size are left out.
void restore_bytes(Bytes& to, const State& state, const std::string& key) {
  const auto found = state.find(key);
  if (found != state.end() && found->second.size() == to.size()) to = found->second;
}

}  // namespace

std::span<const Command> lan_commands() {
  return COMMANDS;
}

void store(const LanChannel& from, State& state) {
  for (const auto& [selector, value] : from.parameters) state[key_of(selector)] = value;
  state["lan.card_mac"] = from.card_mac;
}

void restore(LanChannel& to, const State& state) {
  for (auto& [selector, value] : to.parameters) restore_bytes(value, state, key_of(selector));
  restore_bytes(to.card_mac, state, "lan.card_mac");
}

}  // namespace sim

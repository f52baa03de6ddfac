// The BMC's LAN configuration on one channel.
#include <cstring>
#include <span>

#include "base/error_text.h"
#include "base/notice.h"
#include "lan/lan.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr uint8_t FIRST_CHANNEL = 1;

}  // namespace

uint8_t lanChannel = FIRST_CHANNEL;

namespace {

// What a BMC answers to a request for a channel that is no LAN.
constexpr uint8_t OUT_OF_RANGE = 0xC9;
constexpr uint8_t INVALID_FIELD = 0xCC;

// Transport, Get and Set LAN Configuration Parameters; the channel follows.
const uint8_t GetLanParameter[] = {3, BMC_ADDRESS, NETFN_TRANSPORT, GET_LAN_PARAMETERS};
const uint8_t SetLanParameter[] = {3, BMC_ADDRESS, NETFN_TRANSPORT, SET_LAN_PARAMETERS};

// Parameter selectors (IPMI v2.0 table 23-4).
constexpr uint8_t IP_ADDRESS = 3;
constexpr uint8_t IP_SOURCE = 4;
constexpr uint8_t MAC_ADDRESS = 5;
constexpr uint8_t SUBNET_MASK = 6;
constexpr uint8_t ARP_CONTROL = 10;
constexpr uint8_t GATEWAY = 12;

constexpr uint8_t SOURCE_STATIC = 0x01;
constexpr uint8_t SOURCE_DHCP = 0x02;

constexpr unsigned LONGEST_PARAMETER = sizeof IpCfg::mac;
constexpr unsigned PARAMETER_REVISION = 1;  // bytes of an answer before the parameter's data

// One request of a sequence, and what to say when it fails.
struct Read_step {
  uint8_t selector;
  std::span<uint8_t> data;
  const char* failure;
};
struct Write_step {
  uint8_t selector;
  std::span<const uint8_t> data;
  const char* failure;
};

const struct {
  uint8_t selector;
  const char* name;
} NAMES[] = {
    {IP_ADDRESS, "IP address"}, {IP_SOURCE, "IP address source"}, {MAC_ADDRESS, "MAC address"},
    {SUBNET_MASK, "net mask"},  {ARP_CONTROL, "ARP control"},     {GATEWAY, "gateway address"},
};

// After the failure of a request, once.
void hint_channel() {
  static bool hinted = false;
  const bool may_be_channel = failure_code() == OUT_OF_RANGE || failure_code() == INVALID_FIELD;
  if (hinted || lanChannel != FIRST_CHANNEL || !may_be_channel) return;
  hinted = true;
  remark("the LAN may be another channel: try --lan=2 or --lan=8");
}

void parameter_failed(const char* what, uint8_t selector) {
  for (const auto& row : NAMES) {
    if (row.selector == selector) step_failed("%s the %s: %s", what, row.name, failure_text());
  }
  hint_channel();
}

bool get_parameter(uint8_t selector, std::span<uint8_t> data) {
  uint8_t request[7] = {};  // ends with set selector 0, block selector 0
  unsigned length = UpdateCommandToSendText(request, GetLanParameter);
  request[length++] = lanChannel;
  request[length] = selector;
  Response response;
  const unsigned needed = PARAMETER_REVISION + static_cast<unsigned>(data.size());
  const auto answer = ask(request, needed, &response);
  if (answer.empty()) {
    parameter_failed("reading", selector);
    return false;
  }
  std::memcpy(data.data(), answer.data() + PARAMETER_REVISION, data.size());
  return true;
}

int set_parameter(uint8_t selector, std::span<const uint8_t> data) {
  uint8_t request[5 + LONGEST_PARAMETER];
  unsigned length = UpdateCommandToSendText(request, SetLanParameter);
  request[length++] = lanChannel;
  request[length++] = selector;
  std::memcpy(request + length, data.data(), data.size());
  Response response;
  if (exchange({request, length + data.size()}, &response)) return 1;
  parameter_failed("setting", selector);
  return 0;
}

int set_source(uint8_t source) {
  return set_parameter(IP_SOURCE, {&source, 1});
}

// The source is set first, because DHCP would overwrite the address; its result does not count.
void set_static(uint8_t selector, const uint8_t address[4]) {
  now_under_way(Unfinished::address);
  set_source(SOURCE_STATIC);
  set_parameter(selector, {address, 4});
  now_under_way(Unfinished::nothing);
}

}  // namespace

int readIpCfg(IpCfg* record) {
  uint8_t source = 0;
  const Read_step steps[] = {
      {IP_ADDRESS, record->ip, " Get IP Address Fail"},
      {MAC_ADDRESS, record->mac, " Get MAC Address Fail"},
      {SUBNET_MASK, record->netmask, "Get Net Mask Fail"},
      {GATEWAY, record->gateway, " Get Gateway IP Address Fail"},
      {IP_SOURCE, {&source, 1}, "Get IP Source Fail"},
  };
  for (const Read_step& step : steps) {
    if (get_parameter(step.selector, step.data)) continue;
    set_err_message("%s", step.failure);
    return 0;
  }
  record->dhcp = source == SOURCE_DHCP ? 1 : 0;
  return 1;
}

int writeIpCfg(const IpCfg* record) {
  const Write_step steps[] = {
      {IP_ADDRESS, record->ip, "Set IP Address Fail"},
      {IP_SOURCE, {&SOURCE_STATIC, 1}, "Set Who Assign Fail"},
      {MAC_ADDRESS, record->mac, "Set MAC Address Fail"},
      {SUBNET_MASK, record->netmask, "Set Net Mask Fail"},
      {GATEWAY, record->gateway, "Set Gateway IP Address Fail"},
  };
  now_under_way(Unfinished::address);
  for (const Write_step& step : steps) {
    const bool done = set_parameter(step.selector, step.data) == 1;
    if (step.selector == IP_SOURCE) now_under_way(Unfinished::nothing);
    if (done) continue;
    set_err_message("%s", step.failure);
    now_under_way(Unfinished::nothing);
    return 0;
  }
  return 1;
}

void setIp(const IpCfg* record) {
  if (record != nullptr) set_static(IP_ADDRESS, record->ip);
}

void setGateway(const IpCfg* record) {
  if (record != nullptr) set_static(GATEWAY, record->gateway);
}

void setNetmask(const IpCfg* record) {
  if (record != nullptr) set_static(SUBNET_MASK, record->netmask);
}

void setMac(const IpCfg* record) {
  if (record != nullptr) set_parameter(MAC_ADDRESS, record->mac);
}

int setArp(unsigned enable) {
  const uint8_t control = enable != 0 ? 1 : 0;
  return set_parameter(ARP_CONTROL, {&control, 1});
}

int enableDhcp() {
  return set_source(SOURCE_DHCP);
}

void insideMacSet() {
  // The card's own request; its response data begins with the MAC address.
  const uint8_t request[] = {BMC_ADDRESS, NETFN_CARD, GET_CARD_MAC, 0x00, 0x00, 0xFF};
  Response response;
  const auto mac = ask(request, sizeof IpCfg::mac, &response);
  if (mac.empty()) return step_failed("the card's own MAC address: %s", failure_text());
  set_parameter(MAC_ADDRESS, mac.first(sizeof IpCfg::mac));
}

// Settings as text, taken apart.
#include "sim/setters.h"

#include <arpa/inet.h>

#include <algorithm>

namespace sim {

namespace {

constexpr char NONE[] = "none";

// Calls `take` for each part of the list; `value` becomes the first part that it refuses.
template <typename Take>
bool for_each_part(std::string& value, Take take) {
  for (const std::string& part : split(value, ';')) {
    if (take(part)) continue;
    value = part;
    return false;
  }
  return true;
}

bool parse_interface(const std::string& text, HostInterface& entry) {
  const std::vector<std::string> parts = split(text, ',');
  if (parts.size() < 2 || parts.size() > 3) return false;
  entry.name = parts[0];
  for (const std::string& part : split(parts[1], ':')) {
    uint8_t byte = 0;
    if (!set_number(part, 16, 0xFF, byte)) return false;
    entry.mac.push_back(byte);
  }
  if (entry.mac.size() != 6) return false;
  if (parts.size() == 2) return true;
  entry.address.resize(4);
  return inet_pton(AF_INET, parts[2].c_str(), entry.address.data()) == 1;
}

bool parse_kernel_fault(const std::string& text, KernelFaults& faults) {
  constexpr uint32_t LAST_ERRNO = 4095;
  if (text == "unreadable") {
    faults.not_readable = true;
    return true;
  }
  const std::pair<const char*, int*> calls[] = {{"send", &faults.send_errno},
                                                {"select", &faults.select_errno},
                                                {"receive", &faults.receive_errno}};
  const size_t equals = text.find('=');
  if (equals == std::string::npos) return false;
  return std::any_of(std::begin(calls), std::end(calls), [&](const auto& call) {
    return text.compare(0, equals, call.first) == 0 &&
           set_number(text.substr(equals + 1), 10, LAST_ERRNO, *call.second);
  });
}

bool parse_lan_parameter(const std::string& text, std::map<uint8_t, Bytes>& parameters) {
  const size_t equals = text.find('=');
  uint8_t selector = 0;
  if (equals == std::string::npos || !set_number(text.substr(0, equals), 10, 0xFF, selector)) {
    return false;
  }
  const std::string data = text.substr(equals + 1);
  if (data == NONE) {
    parameters.erase(selector);
    return true;
  }
  return !data.empty() && parse_hex(data, parameters[selector]);
}

}  // namespace

bool set_seconds(const std::string& value, uint64_t& field_us) {
  constexpr uint32_t MOST = 1000000;
  uint32_t number = 0;
  if (!parse_number(value, 10, MOST, number)) return false;
  field_us = uint64_t{number} * 1000000;
  return true;
}

bool set_choice(const std::string& value, const char* yes, const char* no, bool& field) {
  if (value != yes && value != no) return false;
  field = value == yes;
  return true;
}

bool add_interfaces(std::string& value, std::vector<HostInterface>& interfaces) {
  return for_each_part(value, [&](const std::string& part) {
    return parse_interface(part, interfaces.emplace_back());
  });
}

bool set_ports(std::string& value, std::vector<Kcs>& ports) {
  ports.clear();
  if (value == NONE) return true;
  return for_each_part(value, [&](const std::string& part) {
    Kcs& kcs = ports.emplace_back();
    const std::vector<std::string> pair = split(part, ',');
    return pair.size() == 2 && set_number(pair[0], 16, 0xFFFF, kcs.command_port) &&
           set_number(pair[1], 16, 0xFFFF, kcs.data_port);
  });
}

bool set_devices(std::string& value, std::vector<std::string>& paths) {
  paths.clear();
  if (value != NONE) paths = split(value, ';');
  return true;
}

bool set_kernel_faults(std::string& value, KernelFaults& faults) {
  return for_each_part(value,
                       [&](const std::string& part) { return parse_kernel_fault(part, faults); });
}

bool add_targets(std::string& value, std::map<uint8_t, App>& targets) {
  return for_each_part(value, [&](const std::string& part) {
    uint8_t address = 0;
    if (!set_number(part, 16, 0xFF, address)) return false;
    targets[address] = {};
    return true;
  });
}

bool set_lan_parameters(std::string& value, std::map<uint8_t, Bytes>& parameters) {
  return for_each_part(
      value, [&](const std::string& part) { return parse_lan_parameter(part, parameters); });
}

}  // namespace sim

// Settings as text: each is checked and put into its field of the simulated machine.
//
// Each returns false when the text is not understood; one that takes a list then leaves in `value`
// the part that is not.
#pragma once
#include "sim/machine.h"

namespace sim {

// A whole number of that base, at most `limit`, which the field has room for.
template <typename Field>
bool set_number(const std::string& value, int base, uint32_t limit, Field& field) {
  uint32_t number = 0;
  if (!parse_number(value, base, limit, number)) return false;
  field = static_cast<Field>(number);
  return true;
}

// Seconds, at most a million, into microseconds.
bool set_seconds(const std::string& value, uint64_t& field_us);

// One of two words.
bool set_choice(const std::string& value, const char* yes, const char* no, bool& field);

// "name,mac[,address];...", added to what there is.
bool add_interfaces(std::string& value, std::vector<HostInterface>& interfaces);

// "command,data;...", hexadecimal; or "none".
bool set_ports(std::string& value, std::vector<Kcs>& ports);

// "path;..."; or "none".
bool set_devices(std::string& value, std::vector<std::string>& paths);

// "send=5;select=4;receive=90;unreadable": numbers as in errno, decimal.
bool set_kernel_faults(std::string& value, KernelFaults& faults);

// "2c;24": slave addresses, hexadecimal; each gets a controller of its own.
bool add_targets(std::string& value, std::map<uint8_t, App>& targets);

// "3=c0a8010a;6=none": selector (decimal) and data (hexadecimal); none: not supported.
bool set_lan_parameters(std::string& value, std::map<uint8_t, Bytes>& parameters);

}  // namespace sim

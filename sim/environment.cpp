// The simulated machine as environment variables describe it.
//
// | variable             | value                                         | default |
// |----------------------|-----------------------------------------------|---------|
// | QARN_SIM             | card, plain or none: the BMC of this server   | card    |
// | QARN_SIM_USER        | root, or nobody: may not touch ports or device| root    |
// | QARN_SIM_STATE       | file that keeps the BMC's contents            | none    |
// | QARN_SIM_LOG         | file to which requests, responses and pauses  | none    |
// |                      | are appended                                  |         |
// | QARN_SIM_INTERFACES  | "name,mac[,address];...": the host's network  | lo only |
// | QARN_SIM_FAULTS      | "kind key=value...;...": see below            | none    |
//
// Kinds of faults: refuse answer shorten lengthen silent stall write_error read_error no_dummy
// attention power_cut (sim/bmc.h tells what each does). Keys: netfn and cmd say which requests are
// hit (hexadecimal, any when left out), skip how many of these pass first and times how many are
// hit then (decimal, 0 and 1 when left out; times=0 means all), value a completion code, length or
// byte number (hexadecimal), bytes an answer (hexadecimal, no blanks). Example, the third Get SDR
// fails:
//   QARN_SIM_FAULTS="refuse netfn=0a cmd=23 skip=2 value=c3"
#include <arpa/inet.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "sim/machine.h"

namespace sim {

namespace {

constexpr int WRONG_SETTING = 2;

const std::map<std::string, Kind> KINDS = {
    {"card", Kind::card}, {"plain", Kind::plain}, {"none", Kind::none}};

const std::map<std::string, FaultKind> FAULT_KINDS = {
    {"refuse", FaultKind::refuse},           {"answer", FaultKind::answer},
    {"shorten", FaultKind::shorten},         {"lengthen", FaultKind::lengthen},
    {"silent", FaultKind::silent},           {"stall", FaultKind::stall},
    {"write_error", FaultKind::write_error}, {"read_error", FaultKind::read_error},
    {"no_dummy", FaultKind::no_dummy},       {"attention", FaultKind::attention},
    {"power_cut", FaultKind::power_cut},
};

[[noreturn]] void refuse(const char* name, const std::string& value) {
  std::fprintf(stderr, "%s: \"%s\" is not understood\n", name, value.c_str());
  std::exit(WRONG_SETTING);
}

std::string setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    if (part.find_first_not_of(' ') != std::string::npos) parts.push_back(part);
  }
  return parts;
}

bool parse_number(const std::string& text, int base, unsigned limit, unsigned& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && stop == end && number <= limit;
}

bool parse_key(const std::string& word, Fault& fault) {
  constexpr unsigned MOST = 0xFFFFFF;
  const size_t equals = word.find('=');
  if (equals == std::string::npos) return false;
  const std::string key = word.substr(0, equals);
  const std::string value = word.substr(equals + 1);
  unsigned number = 0;
  if (key == "bytes") return parse_hex(value, fault.bytes);
  if (key == "skip") return parse_number(value, 10, MOST, fault.skip);
  if (key == "times") return parse_number(value, 10, MOST, fault.times);
  if (key == "value") return parse_number(value, 16, MOST, fault.value);
  if (key == "netfn" && parse_number(value, 16, 0x3F, number)) {
    fault.netfn = static_cast<int>(number);
    return true;
  }
  if (key == "cmd" && parse_number(value, 16, 0xFF, number)) {
    fault.command = static_cast<int>(number);
    return true;
  }
  return false;
}

bool parse_fault(const std::string& text, Fault& fault) {
  std::vector<std::string> words = split(text, ' ');
  const auto kind = FAULT_KINDS.find(words.front());
  if (kind == FAULT_KINDS.end()) return false;
  fault.kind = kind->second;
  for (size_t i = 1; i < words.size(); i++) {
    if (!parse_key(words[i], fault)) return false;
  }
  return true;
}

bool parse_interface(const std::string& text, HostInterface& entry) {
  const std::vector<std::string> parts = split(text, ',');
  if (parts.size() < 2 || parts.size() > 3) return false;
  entry.name = parts[0];
  for (const std::string& part : split(parts[1], ':')) {
    unsigned number = 0;
    if (!parse_number(part, 16, 0xFF, number)) return false;
    entry.mac.push_back(static_cast<uint8_t>(number));
  }
  if (entry.mac.size() != 6) return false;
  if (parts.size() == 2) return true;
  entry.address.resize(4);
  return inet_pton(AF_INET, parts[2].c_str(), entry.address.data()) == 1;
}

}  // namespace

void configure_from_environment() {
  if (const std::string kind = setting("QARN_SIM"); !kind.empty()) {
    const auto found = KINDS.find(kind);
    if (found == KINDS.end()) refuse("QARN_SIM", kind);
    reset(found->second);
  }
  if (const std::string user = setting("QARN_SIM_USER"); !user.empty()) {
    if (user != "root" && user != "nobody") refuse("QARN_SIM_USER", user);
    machine().root = user == "root";
  }
  for (const std::string& text : split(setting("QARN_SIM_INTERFACES"), ';')) {
    HostInterface entry;
    if (!parse_interface(text, entry)) refuse("QARN_SIM_INTERFACES", text);
    machine().interfaces.push_back(entry);
  }
  for (const std::string& text : split(setting("QARN_SIM_FAULTS"), ';')) {
    Fault fault;
    if (!parse_fault(text, fault)) refuse("QARN_SIM_FAULTS", text);
    machine().bmc.faults.push_back(fault);
  }
  if (const std::string log = setting("QARN_SIM_LOG"); !log.empty() && !log_to(log)) {
    refuse("QARN_SIM_LOG", log);
  }
  if (const std::string state = setting("QARN_SIM_STATE"); !state.empty()) keep_state(state);
}

}  // namespace sim

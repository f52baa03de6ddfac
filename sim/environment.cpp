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

[[noreturn]] void refuse(const char* name, const std::string& value) {
  std::fprintf(stderr, "%s: \"%s\" is not understood\n", name, value.c_str());
  std::exit(WRONG_SETTING);
}

std::string setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
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
  std::string wrong;
  if (!parse_faults(setting("QARN_SIM_FAULTS"), machine().bmc.faults, wrong)) {
    refuse("QARN_SIM_FAULTS", wrong);
  }
  if (const std::string log = setting("QARN_SIM_LOG"); !log.empty() && !log_to(log)) {
    refuse("QARN_SIM_LOG", log);
  }
  if (const std::string state = setting("QARN_SIM_STATE"); !state.empty()) keep_state(state);
}

}  // namespace sim

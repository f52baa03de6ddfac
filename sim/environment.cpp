// The simulated machine as environment variables describe it: one table, which QARN_SIM=help
// prints.
#include <cstdio>
#include <cstdlib>

#include "sim/machine.h"
#include "sim/setters.h"

namespace sim {

namespace {

constexpr int WRONG_SETTING = 2;
constexpr uint32_t ANY = UINT32_MAX;

// A variable that is not set, or empty, changes nothing.
struct Setting {
  const char* name;
  const char* form;     // of its value
  const char* initial;  // what it is when the variable is not set
  const char* effect;   // for people
  // False when the value is not understood; then it holds the part that is not.
  bool (*set)(std::string& value);
};

void print_help();

bool set_kind(std::string& value) {
  if (value == "help") {
    print_help();
    std::exit(std::fflush(stdout) == 0 ? 0 : 1);
  }
  const std::map<std::string, Kind> kinds = {
      {"card", Kind::card}, {"plain", Kind::plain}, {"none", Kind::none}};
  const auto found = kinds.find(value);
  if (found == kinds.end()) return false;
  reset(found->second);
  return true;
}

bool add_faults(std::string& value) {
  std::string wrong;
  if (parse_faults(value, machine().bmc.faults, wrong)) return true;
  value = wrong;
  return false;
}

bool set_fru_size(std::string& value) {
  constexpr uint32_t MOST = 0x10000;
  uint32_t size = 0;
  if (!parse_number(value, 10, MOST, size)) return false;
  machine().bmc.fru.devices[0].contents.resize(size);
  return true;
}

bool keep_state_in(std::string& value) {
  if (!can_keep_state(value)) return false;
  keep_state(value);
  return true;
}

Bmc& bmc() {
  return machine().bmc;
}

FruDevice& fru() {
  return bmc().fru.devices[0];
}

// They take effect in this order: the first makes a new machine, the last reads what was kept.
constexpr Setting SETTINGS[] = {
    {"QARN_SIM", "card|plain|none|help", "card",
     "the BMC of this server: a daughter card, one without the card's downloader, or none",
     set_kind},
    {"QARN_SIM_USER", "root|nobody", "root", "who runs it; nobody may not touch ports or device",
     [](std::string& value) { return set_choice(value, "root", "nobody", machine().root); }},
    {"QARN_SIM_INTERFACES", "name,mac[,address];...|none", "lo only",
     "the host's network; none: there is no /proc/net/dev",
     [](std::string& value) {
       machine().lists_interfaces = value != "none";
       return value == "none" || add_interfaces(value, machine().interfaces);
     }},
    {"QARN_SIM_FAULTS", "kind [key=value]...;...", "none", "what goes wrong, see below",
     add_faults},

    {"QARN_SIM_PORTS", "command,data;...|none", "cac,ca8 (card) or ca3,ca2 (plain)",
     "KCS port pairs, hexadecimal",
     [](std::string& value) { return set_ports(value, machine().ports); }},
    {"QARN_SIM_PROCESSOR", "x86|arm", "x86", "arm: a processor without I/O ports",
     [](std::string& value) { return set_choice(value, "x86", "arm", machine().has_ports); }},
    {"QARN_SIM_DEVICES", "path;...|none", "/dev/ipmi0", "where the kernel's device opens",
     [](std::string& value) { return set_devices(value, machine().devices); }},
    {"QARN_SIM_KERNEL", "send|select|receive=errno;...;unreadable", "none",
     "calls of the kernel's device that fail with that number; or its answers never arrive",
     [](std::string& value) { return set_kernel_faults(value, machine().kernel_faults); }},
    {"QARN_SIM_TARGETS", "address;...", "none",
     "controllers on the IPMB, by slave address in hexadecimal",
     [](std::string& value) { return add_targets(value, bmc().targets); }},
    {"QARN_SIM_LOCK", "process", "none", "another run, of this number, has the BMC",
     [](std::string& value) { return set_number(value, 10, INT32_MAX, machine().lock_holder); }},
    {"QARN_SIM_LOCK_UNTIL", "seconds", "for ever", "how long that run has it",
     [](std::string& value) { return set_seconds(value, machine().lock_until_us); }},
    {"QARN_SIM_PORT_OWNERS", "text", "none", "what /proc/ioports says, \"0ca2-0ca3 : ipmi_si\"",
     [](std::string& value) { return machine().port_owners.assign(value + "\n"), true; }},
    {"QARN_SIM_LOCKDOWN", "text", "none", "what the kernel says of its lockdown: \"[integrity]\"",
     [](std::string& value) { return machine().lockdown.assign(value), true; }},
    {"QARN_SIM_SEQUENCE", "keep|wrong", "keep", "sequence number of bridged answers",
     [](std::string& value) { return set_choice(value, "keep", "wrong", bmc().keep_sequence); }},
    {"QARN_SIM_ATTENTION", "yes|no", "yes", "no: SMS_ATN never rises",
     [](std::string& value) { return set_choice(value, "yes", "no", bmc().can_signal); }},
    {"QARN_SIM_LAN_CHANNEL", "number", "1", "the channel that is the LAN",
     [](std::string& value) {
       return value != "0" && set_number(value, 10, 15, bmc().lan.number);
     }},
    {"QARN_SIM_LAN", "selector=data;...", "0 3 4 5 6 10 12",
     "LAN parameters, data in hexadecimal; data none: not supported",
     [](std::string& value) { return set_lan_parameters(value, bmc().lan.parameters); }},

    {"QARN_SIM_SDR_CLAIMED", "number", "the truth", "how many sensor records the BMC claims",
     [](std::string& value) { return set_number(value, 10, 0xFFFF, bmc().sdr.claimed); }},
    {"QARN_SIM_SDR_ROOM", "number", "65535", "sensor records that fit",
     [](std::string& value) { return set_number(value, 10, 0xFFFF, bmc().sdr.room); }},
    {"QARN_SIM_SDR_ERASE_POLLS", "number", "0",
     "how often an erase of the sensor records is still in progress when asked",
     [](std::string& value) { return set_number(value, 10, ANY, bmc().sdr.erase_polls); }},
    {"QARN_SIM_SDR_LONGEST_READ", "number", "64", "bytes of a record in one answer, 0xCA beyond",
     [](std::string& value) { return set_number(value, 10, 0xFF, bmc().sdr.longest_read); }},
    {"QARN_SIM_SDR_PARTIAL_ADD", "yes|no", "yes", "whether Partial Add SDR is a command",
     [](std::string& value) { return set_choice(value, "yes", "no", bmc().sdr.partial_add); }},
    {"QARN_SIM_SEL_CLAIMED", "number", "the truth", "how many log entries the BMC claims",
     [](std::string& value) { return set_number(value, 10, 0xFFFF, bmc().sel.claimed); }},
    {"QARN_SIM_SEL_ROOM", "number", "65535", "log entries that fit",
     [](std::string& value) { return set_number(value, 10, 0xFFFF, bmc().sel.room); }},

    {"QARN_SIM_FRU_SIZE", "number", "1024", "bytes of FRU device 0", set_fru_size},
    {"QARN_SIM_FRU_CLAIMED", "number", "the truth", "how many bytes the BMC claims that it has",
     [](std::string& value) { return set_number(value, 10, 0xFFFF, fru().claimed_size); }},
    {"QARN_SIM_FRU_READ_LIMIT", "number", "0", "bytes in one answer; 0: as many as asked for",
     [](std::string& value) { return set_number(value, 10, 0xFF, fru().answer_limit); }},
    {"QARN_SIM_FRU_PAST_END", "yes|no", "yes", "no: a read past the end is refused, not cut",
     [](std::string& value) { return set_choice(value, "yes", "no", fru().reads_past_end); }},
    {"QARN_SIM_FRU_PROTECTED", "offset", "none",
     "writes that reach this offset (decimal) are refused with 0x80",
     [](std::string& value) { return set_number(value, 10, 0xFFFF, fru().protected_from); }},
    {"QARN_SIM_FRU_REFUSAL", "code", "00",
     "completion code of each read and write, hexadecimal; 81: busy",
     [](std::string& value) { return set_number(value, 16, 0xFF, fru().refusal); }},

    {"QARN_SIM_CARD_BASE", "address", "fff00000", "where the card's flash begins, hexadecimal",
     [](std::string& value) { return set_number(value, 16, ANY, bmc().card.flash_base); }},
    {"QARN_SIM_CARD_SIZE", "number", "10000", "bytes of the flash, hexadecimal",
     [](std::string& value) { return set_number(value, 16, ANY, bmc().card.flash_size); }},
    {"QARN_SIM_CARD_START", "address", "fff04000", "where an update begins, hexadecimal",
     [](std::string& value) { return set_number(value, 16, ANY, bmc().card.update_start); }},
    {"QARN_SIM_CARD_BLOCK", "number", "128", "bytes of a block of the flash",
     [](std::string& value) { return set_number(value, 10, 0xFF, bmc().card.block_size); }},
    {"QARN_SIM_CARD_CHUNK", "number", "32", "bytes of the block that one request brings",
     [](std::string& value) { return set_number(value, 10, 0xFF, bmc().card.chunk_size); }},
    {"QARN_SIM_CARD_CODE", "text", "DOWNLOAD", "access code of the card's downloader",
     [](std::string& value) { return bmc().card.access_code.assign(value), true; }},
    {"QARN_SIM_CARD_AWAY", "seconds", "3", "how long the card is off the wire after a reset",
     [](std::string& value) { return set_seconds(value, bmc().card.away_us); }},
    {"QARN_SIM_CARD_READY", "seconds", "7", "until then after a reset an update is in progress",
     [](std::string& value) { return set_seconds(value, bmc().card.ready_us); }},

    {"QARN_SIM_LOG", "file", "none", "requests, responses and pauses are appended to it",
     [](std::string& value) { return log_to(value); }},
    {"QARN_SIM_STATE", "file", "none",
     "keeps the BMC's contents; they take the place of what is set here", keep_state_in},
};

constexpr char FAULT_HELP[] =
    "\nKeys of a fault: netfn and cmd say which requests are hit (hexadecimal, any when left "
    "out),\n"
    "skip how many of these pass first and times how many are hit then (decimal, 0 and 1 when "
    "left\n"
    "out; times=0: all), value and bytes are hexadecimal. Bytes count from 0, which is NetFn/LUN.\n"
    "The third Get SDR fails: QARN_SIM_FAULTS=\"refuse netfn=0a cmd=23 skip=2 value=c3\"\n\n";

void print_help() {
  for (const Setting& setting : SETTINGS) {
    std::printf("%s=%s\n    %s\n    default: %s\n", setting.name, setting.form, setting.effect,
                setting.initial);
  }
  std::fputs(FAULT_HELP, stdout);
  for (const FaultRow& kind : fault_kinds()) std::printf("%s\n    %s\n", kind.name, kind.effect);
}

}  // namespace

bool set_variable(const std::string& name, std::string value) {
  for (const Setting& setting : SETTINGS) {
    if (setting.name == name) return setting.set(value);
  }
  return false;
}

void configure_from_environment() {
  for (const Setting& setting : SETTINGS) {
    const char* text = std::getenv(setting.name);
    std::string value = text != nullptr ? text : "";
    if (value.empty() || setting.set(value)) continue;
    std::fprintf(stderr, "%s: \"%s\" is not understood\n", setting.name, value.c_str());
    std::exit(WRONG_SETTING);
  }
}

}  // namespace sim

// The option record and its parser.
#include "frontend/options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "firmware/flash.h"
#include "frontend/actions.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

const char SHORT_OPTIONS[] = "g:n:r:u:i:j:q:e:m:u:s:f:w:c:v:y:0::1::2::3::4::btlp5?hdao";

const option LONG_OPTIONS[] = {
    {"sdr", required_argument, nullptr, 's'},
    {"cfg", required_argument, nullptr, 'c'},
    {"sp0", optional_argument, nullptr, '0'},
    {"sp1", optional_argument, nullptr, '1'},
    {"sp2", optional_argument, nullptr, '2'},
    {"sp3", optional_argument, nullptr, '3'},
    {"sp4", optional_argument, nullptr, '4'},
    {"arp", optional_argument, nullptr, 'r'},
    {"dhcp", no_argument, nullptr, 'p'},
    {"debug", no_argument, nullptr, 'b'},
    {"imac", no_argument, nullptr, 'l'},
    {"nrst", no_argument, nullptr, 't'},
    {"save", required_argument, nullptr, 'v'},
    {"verify", required_argument, nullptr, 'y'},
    {"users", no_argument, nullptr, '5'},
    {"fru", required_argument, nullptr, 'f'},
    {"open", no_argument, nullptr, 'o'},
    {"wfru", required_argument, nullptr, 'w'},
    {"seldump", required_argument, nullptr, 'j'},
    {"sdrdump", required_argument, nullptr, 'q'},
    {nullptr, 0, nullptr, 0},
};

const char* const USAGE[] = {
    // Two of these lines are longer than ours. NOLINTNEXTLINE(bugprone-suspicious-missing-comma)
    "Usage: qarn [-?] [-h] [-u filename] [--spx[=xxx]] [-d] [-i ipaddr] [-m macaddr] "
    "[-e Net/LUN CMD DATA]",
    "-?                \tDisplay this help screen",
    "-h                \tDisplay this help screen",
    "--open             \tUse Linux Kernel OpenIPMI driver instead of qarn user space driver",
    "-u filename     \tUpdate C4410/15 firmware with the specified file",
    "--save filename     \tRead C4410/15 firmware and save to specified file",
    "--verify filename     \tVerify C4410/15 firmware with the specified file",
    "--sdr filename     \tUpdate SDR with the specified file",
    "--fru filename     \tUpdate FRU with the specified file",
    "--wfru filename     \tDump FRU to file",
    "--seldump filename     \tDump SEL to file",
    "--cfg filename     \texecute configuration file",
    "--dhcp\t\t     \tEnable DHCP",
    "--sp0[=xxx]\t\tSet the password of user id 1(NULL in C4410/15)",
    "--sp1[=xxx]\t\tSet the password of user id 2(Operator in C4410/15)",
    "--sp2[=xxx]\t\tSet the password of user id 3(Admin in C4410/15)",
    "--sp3[=xxx]\t\tSet the password of user id 4(Callback in C4410/15)",
    "--sp4[=xxx]\t\tSet the password of user id 5(User in C4410/15)",
    "--users             \tDisplay Users Name",
    "-d                \tDisplay the LAN Configuation",
    "-i xxx.xxx.xxx.xxx      Set IP Address",
    "-m xx:xx:xx:xx:xx:xx\tSet MAC Address",
    "-n xxx.xxx.xxx.xxx\tSet Net Mask",
    "-g xxx.xxx.xxx.xxx\tSet gate way",
    "--arp=0/1\t\tEnable/Disable ARP",
    "-a\t\t  \tAuto check and set the ip address",
    "    Util will read the MAC Address from BMC and check whether it exist on motherboard."
    "And auto set the BMC IP Address with the system ip address if found",
    "-e Net/LUN CMD DATA\tExecute IPMI command",
};

static_assert(FLASH_NAME_SIZE == VALUE_LIMIT + 1);

// What an option does to the record. Every text has room for `limit` characters and a terminator.
struct Rule {
  int letter;
  const char* name;  // as the user knows it
  int Options::*set;
  int Options::*also_set;
  int Options::*clear;
  char* (*text)(Options*);
  unsigned limit;
};

const Rule RULES[] = {
    {'5', "--users", &Options::users, nullptr, nullptr, nullptr, 0},
    {'l', "--imac", &Options::inside_mac, nullptr, nullptr, nullptr, 0},
    {'p', "--dhcp", &Options::dhcp, nullptr, nullptr, nullptr, 0},
    {'a', "-a", &Options::auto_ip, &Options::read_lan, nullptr, nullptr, 0},
    {'d', "-d", &Options::display, &Options::read_lan, nullptr, nullptr, 0},
    {'u', "-u", &Options::firmware_update, nullptr, nullptr,
     [](Options*) -> char* { return flashfilename; }, VALUE_LIMIT},
    {'v', "--save", &Options::firmware_save, nullptr, nullptr,
     [](Options*) -> char* { return flashfilename; }, VALUE_LIMIT},
    {'y', "--verify", &Options::firmware_verify, nullptr, nullptr,
     [](Options*) -> char* { return flashfilename; }, VALUE_LIMIT},
    {'s', "--sdr", &Options::sdr_update, nullptr, nullptr,
     [](Options* o) -> char* { return o->sdr_path; }, VALUE_LIMIT},
    {'q', "--sdrdump", &Options::sdr_dump, nullptr, nullptr,
     [](Options* o) -> char* { return o->sdr_path; }, VALUE_LIMIT},
    {'f', "--fru", &Options::fru_update, nullptr, &Options::fru_dump,
     [](Options* o) -> char* { return o->fru_path; }, VALUE_LIMIT},
    {'w', "--wfru", &Options::fru_dump, nullptr, &Options::fru_update,
     [](Options* o) -> char* { return o->fru_path; }, VALUE_LIMIT},
    {'j', "--seldump", &Options::sel_dump, nullptr, nullptr,
     [](Options* o) -> char* { return o->sel_path; }, VALUE_LIMIT},
    {'c', "--cfg", &Options::script, nullptr, nullptr,
     [](Options* o) -> char* { return o->script_path; }, VALUE_LIMIT},
    {'i', "-i", &Options::set_ip, nullptr, nullptr, [](Options* o) -> char* { return o->ip; },
     LAN_VALUE_LIMIT},
    {'m', "-m", &Options::set_mac, nullptr, nullptr, [](Options* o) -> char* { return o->mac; },
     LAN_VALUE_LIMIT},
    {'g', "-g", &Options::set_gateway, nullptr, nullptr,
     [](Options* o) -> char* { return o->gateway; }, LAN_VALUE_LIMIT},
    {'n', "-n", &Options::set_netmask, nullptr, nullptr,
     [](Options* o) -> char* { return o->netmask; }, LAN_VALUE_LIMIT},
    {'r', "--arp", &Options::set_arp, nullptr, nullptr, [](Options* o) -> char* { return o->arp; },
     LAN_VALUE_LIMIT},
};

constexpr int REFUSED = 1;
constexpr int HELP_GIVEN = 0;

const Rule* find_rule(int letter) {
  for (const Rule& rule : RULES) {
    if (rule.letter == letter) return &rule;
  }
  return nullptr;
}

int refuse_usage() {
  show_usage();
  return REFUSED;
}

// Checks that belong to one option beyond the length of its value.
int check_value(int letter, const char* value) {
  uint8_t mac[6];
  if (letter == 'i' && inet_addr(value) == INADDR_NONE) {
    std::printf("%s is not correct ip address\n", value);
    return REFUSED;
  }
  if (letter == 'm' && !parse_mac(value, mac)) {
    std::printf("-m: %s does not give the six bytes of a MAC address\n", value);
    return REFUSED;
  }
  return OPTIONS_ACCEPTED;
}

int apply(const Rule& rule, const char* value, Options* options) {
  if (rule.letter == 'r' && value == nullptr) return refuse_usage();
  if (rule.text != nullptr) {
    if (std::strlen(value) > rule.limit) {
      std::printf("%s: value is longer than %u characters\n", rule.name, rule.limit);
      return REFUSED;
    }
    const int checked = check_value(rule.letter, value);
    if (checked != OPTIONS_ACCEPTED) return checked;
    char* text = rule.text(options);
    std::memset(text, 0, rule.limit + 1);
    std::memcpy(text, value, std::strlen(value));
  }
  options->*rule.set = 1;
  if (rule.also_set != nullptr) options->*rule.also_set = 1;
  if (rule.clear != nullptr) options->*rule.clear = 0;
  return OPTIONS_ACCEPTED;
}

int apply_password(unsigned slot, const char* value, Options* options) {
  std::memset(options->password[slot], 0, sizeof options->password[slot]);
  options->set_password[slot] = 1;
  if (value == nullptr) return OPTIONS_ACCEPTED;
  if (std::strlen(value) > PASSWORD_LIMIT) {
    std::puts("the password mustn't more than 16 bytes");
    return REFUSED;
  }
  std::memcpy(options->password[slot], value, std::strlen(value));
  return OPTIONS_ACCEPTED;
}

// Every word from the value of -e to the end of the command line is one byte.
int apply_raw(int argc, char** argv, Options* options) {
  int word = optind - 1;
  if (argv[word] != optarg) {
    std::printf("-e: %s: the first byte must be a separate word\n", optarg);
    return refuse_usage();
  }
  options->raw_bytes[0] = BMC_ADDRESS;
  options->raw_count = 1;
  for (; word < argc; word++) {
    unsigned value;
    if (std::sscanf(argv[word], "%x", &value) != 1) {
      std::printf("-e: %s is not a hexadecimal byte\n", argv[word]);
      return refuse_usage();
    }
    if (options->raw_count == RAW_ROOM) {
      std::printf("-e: more than %u bytes\n", RAW_ROOM - 1);
      return refuse_usage();
    }
    options->raw_bytes[options->raw_count++] = static_cast<uint8_t>(value);
  }
  if (options->raw_count < 3) {
    std::puts("-e: a request needs at least a Net/LUN and a CMD byte");
    return refuse_usage();
  }
  optind = argc;
  options->raw = 1;
  return OPTIONS_ACCEPTED;
}

int apply_letter(int letter, int argc, char** argv, Options* options) {
  switch (letter) {
    case '0':
    case '1':
    case '2':
    case '3':
    case '4':
      return apply_password(static_cast<unsigned>(letter - '0'), optarg, options);
    case 'b':
      debugFlag = 1;
      return OPTIONS_ACCEPTED;
    case 't':
      resetFlag = 0;
      return OPTIONS_ACCEPTED;
    case 'o':
      openIpmiFlag = 1;
      return OPTIONS_ACCEPTED;
    case 'e':
      return apply_raw(argc, argv, options);
    default:
      break;
  }
  const Rule* rule = find_rule(letter);
  if (rule != nullptr) return apply(*rule, optarg, options);
  show_usage();
  return HELP_GIVEN;
}

}  // namespace

int parse_options(int argc, char** argv, Options* options) {
  for (;;) {
    const int letter = getopt_long(argc, argv, SHORT_OPTIONS, LONG_OPTIONS, nullptr);
    if (letter == -1) return OPTIONS_ACCEPTED;
    const int result = apply_letter(letter, argc, argv, options);
    if (result != OPTIONS_ACCEPTED) return result;
  }
}

bool parse_mac(const char* text, uint8_t mac[6]) {
  unsigned long part[6];  // an unsigned would drop what is beyond its 32 bits
  const int found = std::sscanf(text, "%lx:%lx:%lx:%lx:%lx:%lx", &part[0], &part[1], &part[2],
                                &part[3], &part[4], &part[5]);
  if (found != 6) return false;
  for (unsigned i = 0; i < 6; i++) {
    if (part[i] > 0xFF) return false;
    mac[i] = static_cast<uint8_t>(part[i]);
  }
  return true;
}

void show_usage() {
  for (const char* line : USAGE) std::puts(line);
}

// The option record and its parser.
#include "frontend/options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "transport/ipmi.h"

namespace {

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

constexpr int REFUSED = 1;
constexpr int HELP_GIVEN = 0;

// An option as it stands on the command line.
struct Given {
  char letter;        // its row's
  const char* value;  // null: none
  int argc;
  char** argv;
};

int refuse_usage() {
  show_usage();
  return REFUSED;
}

int give_help(const Given&, Options*) {
  show_usage();
  return HELP_GIVEN;
}

int check_ip(const Given& given, Options*) {
  if (inet_addr(given.value) != INADDR_NONE) return OPTIONS_ACCEPTED;
  std::printf("%s is not correct ip address\n", given.value);
  return REFUSED;
}

int check_mac(const Given& given, Options*) {
  uint8_t mac[6];
  if (parse_mac(given.value, mac)) return OPTIONS_ACCEPTED;
  std::printf("-m: %s does not give the six bytes of a MAC address\n", given.value);
  return REFUSED;
}

int check_arp(const Given& given, Options*) {
  return given.value != nullptr ? OPTIONS_ACCEPTED : refuse_usage();
}

int drop_fru_dump(const Given&, Options* options) {
  options->fru_dump_path = nullptr;
  return OPTIONS_ACCEPTED;
}

int drop_fru_update(const Given&, Options* options) {
  options->fru_update_path = nullptr;
  return OPTIONS_ACCEPTED;
}

// The letter is the digit of the password's slot.
int take_password(const Given& given, Options* options) {
  const unsigned slot = static_cast<unsigned>(given.letter - '0');
  const size_t length = given.value != nullptr ? std::strlen(given.value) : 0;
  char* password = options->password[slot];
  std::memset(password, 0, sizeof options->password[slot]);
  if (length > 0) std::memcpy(password, given.value, std::min<size_t>(length, PASSWORD_LIMIT));
  // Other users can see the arguments of a process.
  if (length > 0) explicit_bzero(optarg, length);
  options->set_password[slot] = 1;
  options->password_given[slot] = given.value != nullptr ? 1 : 0;
  if (length <= PASSWORD_LIMIT) return OPTIONS_ACCEPTED;
  std::puts("the password mustn't more than 16 bytes");
  return REFUSED;
}

// Every word from the value of -e to the end of the command line is one byte.
int take_raw(const Given& given, Options* options) {
  int word = optind - 1;
  if (given.argv[word] != given.value) {
    std::printf("-e: %s: the first byte must be a separate word\n", given.value);
    return refuse_usage();
  }
  options->raw_bytes[0] = BMC_ADDRESS;
  options->raw_count = 1;
  for (; word < given.argc; word++) {
    unsigned value;
    if (std::sscanf(given.argv[word], "%x", &value) != 1) {
      std::printf("-e: %s is not a hexadecimal byte\n", given.argv[word]);
      return refuse_usage();
    }
    if (options->raw_count == RAW_ROOM) {
      std::printf("-e: more than %u bytes\n", RAW_ROOM - 1);
      return refuse_usage();
    }
    options->raw_bytes[options->raw_count++] = static_cast<uint8_t>(value);
  }
  if (options->raw_count < REQUEST_DATA) {
    std::puts("-e: a request needs at least a Net/LUN and a CMD byte");
    return refuse_usage();
  }
  optind = given.argc;
  return OPTIONS_ACCEPTED;
}

constexpr char NO_LETTER = 0;

// What an option takes: nothing, a value, or a value only when it is attached to the option.
enum Takes { NONE = no_argument, VALUE = required_argument, ATTACHED = optional_argument };

// One way to write an option, and what it does to the record.
struct Row {
  char letter;
  const char* name;  // long; null: none
  Takes takes;
  int Options::*flag;                      // becomes 1
  const char* Options::*text;              // becomes the value
  int (*handler)(const Given&, Options*);  // checks the value first, or stores it in its own way
};

// One row an option. getopt's messages list the long names in this order. --arp and -r are two
// rows: without a value, the first is refused with the usage text, the second by getopt.
const Row ROWS[] = {
    {'s', "sdr", VALUE, &Options::sdr_update, &Options::sdr_path, nullptr},
    {'c', "cfg", VALUE, nullptr, &Options::script_path, nullptr},
    {'0', "sp0", ATTACHED, nullptr, nullptr, take_password},
    {'1', "sp1", ATTACHED, nullptr, nullptr, take_password},
    {'2', "sp2", ATTACHED, nullptr, nullptr, take_password},
    {'3', "sp3", ATTACHED, nullptr, nullptr, take_password},
    {'4', "sp4", ATTACHED, nullptr, nullptr, take_password},
    {NO_LETTER, "arp", ATTACHED, nullptr, &Options::arp, check_arp},
    {'r', nullptr, VALUE, nullptr, &Options::arp, nullptr},
    {'p', "dhcp", NONE, &Options::dhcp, nullptr, nullptr},
    {'b', "debug", NONE, &Options::debug, nullptr, nullptr},
    {'l', "imac", NONE, &Options::inside_mac, nullptr, nullptr},
    {'t', "nrst", NONE, &Options::no_reset, nullptr, nullptr},
    {'v', "save", VALUE, &Options::firmware_save, &Options::firmware_path, nullptr},
    {'y', "verify", VALUE, &Options::firmware_verify, &Options::firmware_path, nullptr},
    {'5', "users", NONE, &Options::users, nullptr, nullptr},
    {'f', "fru", VALUE, nullptr, &Options::fru_update_path, drop_fru_dump},
    {'o', "open", NONE, &Options::open, nullptr, nullptr},
    {'w', "wfru", VALUE, nullptr, &Options::fru_dump_path, drop_fru_update},
    {'j', "seldump", VALUE, nullptr, &Options::sel_path, nullptr},
    {'q', "sdrdump", VALUE, &Options::sdr_dump, &Options::sdr_path, nullptr},
    {NO_LETTER, "prompt", NONE, &Options::prompt, nullptr, nullptr},
    {'u', nullptr, VALUE, &Options::firmware_update, &Options::firmware_path, nullptr},
    {'i', nullptr, VALUE, nullptr, &Options::ip, check_ip},
    {'m', nullptr, VALUE, nullptr, &Options::mac, check_mac},
    {'g', nullptr, VALUE, nullptr, &Options::gateway, nullptr},
    {'n', nullptr, VALUE, nullptr, &Options::netmask, nullptr},
    {'e', nullptr, VALUE, nullptr, nullptr, take_raw},
    {'a', nullptr, NONE, &Options::auto_ip, nullptr, nullptr},
    {'d', nullptr, NONE, &Options::display, nullptr, nullptr},
    {'h', nullptr, NONE, nullptr, nullptr, give_help},
    {'?', nullptr, NONE, nullptr, nullptr,
     give_help},  // getopt returns it also for an unknown option or a missing value
};

constexpr int NUMBER_BASE = 256;  // beyond all letters

// What getopt returns for a row.
int code_of(const Row& row) {
  return row.letter != NO_LETTER ? row.letter : NUMBER_BASE + static_cast<int>(&row - ROWS);
}

const Row* row_of(int code) {
  for (const Row& row : ROWS) {
    if (code_of(row) == code) return &row;
  }
  return nullptr;
}

// The table in the two forms that getopt wants: each letter with a colon when it takes a value and
// two when that must be attached; each long name with what it takes and its code.
struct Getopt_tables {
  char letters[3 * std::size(ROWS) + 1];
  option names[std::size(ROWS) + 1];
};

Getopt_tables build_tables() {
  Getopt_tables tables{};
  char* letters = tables.letters;
  option* names = tables.names;
  for (const Row& row : ROWS) {
    if (row.name != nullptr) *names++ = {row.name, row.takes, nullptr, code_of(row)};
    if (row.letter == NO_LETTER) continue;
    *letters++ = row.letter;
    for (int i = 0; i < row.takes; i++) *letters++ = ':';
  }
  return tables;
}

int apply(const Row& row, const Given& given, Options* options) {
  if (row.handler != nullptr) {
    const int result = row.handler(given, options);
    if (result != OPTIONS_ACCEPTED) return result;
  }
  if (row.flag != nullptr) options->*row.flag = 1;
  if (row.text != nullptr) options->*row.text = given.value;
  return OPTIONS_ACCEPTED;
}

}  // namespace

int parse_options(int argc, char** argv, Options* options) {
  const Getopt_tables tables = build_tables();
  for (;;) {
    const int code = getopt_long(argc, argv, tables.letters, tables.names, nullptr);
    const Row* row = row_of(code);
    if (row == nullptr) return OPTIONS_ACCEPTED;
    const int result = apply(*row, {row->letter, optarg, argc, argv}, options);
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

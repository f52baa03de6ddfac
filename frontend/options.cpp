// The option record and its parser.
#include "frontend/options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <span>

#include "frontend/signs.h"
#include "transport/ipmi.h"

namespace {

constexpr int REFUSED = 1;
constexpr int HELP_GIVEN = 0;
constexpr int LAST_CHANNEL = 15;

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

// The words that getopt has just taken: an option with its value, or only the option.
const char* word_of(const Given& given) {
  const bool separate =
      given.value != nullptr && optind >= 2 && given.argv[optind - 1] == given.value;
  return given.argv[optind - (separate ? 2 : 1)];
}

// getopt returns '?' also for an unknown option or a missing value, after a message.
int give_help(const Given& given, Options* options) {
  const char* word = word_of(given);
  const bool asked = given.letter == 'h' || (word[0] == '-' && std::strchr(word, '?') != nullptr);
  // getopt has named it, which may be a password.
  if (!asked) note_argument(options, "the command line is not understood: nothing was done", "");
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

int check_channel(const Given& given, Options*) {
  const std::string_view value = given.value != nullptr ? given.value : "";
  const bool digits = value.find_first_not_of("0123456789") == std::string_view::npos;
  const bool short_enough = !value.empty() && value.size() <= 2 && value[0] != '0';
  if (digits && short_enough && std::atoi(value.data()) <= LAST_CHANNEL) return OPTIONS_ACCEPTED;
  std::puts("--lan: the channel is a number from 1 to 15, as in --lan=8");
  return REFUSED;
}

void note_lost(const char* path, Options* options) {
  if (path != nullptr) note_argument(options, "%s is not used: a later option has its place", path);
}

int drop_fru_dump(const Given&, Options* options) {
  note_lost(options->fru_dump_path, options);
  options->fru_dump_path = nullptr;
  return OPTIONS_ACCEPTED;
}

int drop_fru_update(const Given&, Options* options) {
  note_lost(options->fru_update_path, options);
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
  static const char* const NAMES[USERS] = {"--sp0", "--sp1", "--sp2", "--sp3", "--sp4"};
  if (options->password_given[slot] != 0) {
    note_argument(options, "the first password of %s is not used", NAMES[slot]);
  }
  if (length > 0 && password[0] == '=') {
    note_argument(options, "the password of %s begins with =", NAMES[slot]);
  }
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
    char* end = nullptr;
    const unsigned long value = std::strtoul(given.argv[word], &end, 16);
    if (end == given.argv[word]) {
      std::printf("-e: %s is not a hexadecimal byte\n", given.argv[word]);
      return refuse_usage();
    }
    if (options->raw_count == RAW_ROOM) {
      std::printf("-e: more than %u bytes\n", RAW_ROOM - 1);
      return refuse_usage();
    }
    look_at_raw(given.argv[word], options);
    options->raw_bytes[options->raw_count++] = static_cast<uint8_t>(value);
  }
  if (options->raw_count < REQUEST_DATA) {
    std::puts("-e: a request needs at least a Net/LUN and a CMD byte");
    return refuse_usage();
  }
  optind = given.argc;
  return OPTIONS_ACCEPTED;
}

// In the place of a letter; LATE is also a name that scripts of old do not know.
constexpr char NO_LETTER = 0;
constexpr char LATE = 1;

// What an option takes: nothing, a value, or a value only when it is attached to the option.
enum Takes { NONE = no_argument, VALUE = required_argument, ATTACHED = optional_argument };

// What it does when it is given: nothing but looking, or it changes the BMC, or a file.
enum Does { LOOKS, WRITES };

// One way to write an option, and what it does to the record.
struct Row {
  char letter;
  const char* name;  // long; null: none
  Takes takes;
  Does does;
  int Options::*flag;                      // becomes 1
  const char* Options::*text;              // becomes the value
  int (*handler)(const Given&, Options*);  // checks the value first, or stores it in its own way
  void (*look)(const char*, Options*);     // notes signs of a mistake in the value
};

// One row an option. getopt's messages list the long names in this order. --arp and -r are two
// rows: without a value, the first is refused with the usage text, the second by getopt.
const Row ROWS[] = {
    {'s', "sdr", VALUE, WRITES, &Options::sdr_update, &Options::sdr_path, nullptr, nullptr},
    {'c', "cfg", VALUE, WRITES, nullptr, &Options::script_path, nullptr, nullptr},
    {'0', "sp0", ATTACHED, WRITES, nullptr, nullptr, take_password, nullptr},
    {'1', "sp1", ATTACHED, WRITES, nullptr, nullptr, take_password, nullptr},
    {'2', "sp2", ATTACHED, WRITES, nullptr, nullptr, take_password, nullptr},
    {'3', "sp3", ATTACHED, WRITES, nullptr, nullptr, take_password, nullptr},
    {'4', "sp4", ATTACHED, WRITES, nullptr, nullptr, take_password, nullptr},
    {NO_LETTER, "arp", ATTACHED, WRITES, nullptr, &Options::arp, check_arp, look_at_arp},
    {'r', nullptr, VALUE, WRITES, nullptr, &Options::arp, nullptr, look_at_arp},
    {LATE, "lan", ATTACHED, LOOKS, nullptr, &Options::channel, check_channel, nullptr},
    {'p', "dhcp", NONE, WRITES, &Options::dhcp, nullptr, nullptr, nullptr},
    {'b', "debug", NONE, LOOKS, &Options::debug, nullptr, nullptr, nullptr},
    {'l', "imac", NONE, WRITES, &Options::inside_mac, nullptr, nullptr, nullptr},
    {'t', "nrst", NONE, LOOKS, &Options::no_reset, nullptr, nullptr, nullptr},
    {'v', "save", VALUE, WRITES, &Options::firmware_save, &Options::firmware_path, nullptr,
     nullptr},
    {'y', "verify", VALUE, LOOKS, &Options::firmware_verify, &Options::firmware_path, nullptr,
     nullptr},
    {'5', "users", NONE, LOOKS, &Options::users, nullptr, nullptr, nullptr},
    {'f', "fru", VALUE, WRITES, nullptr, &Options::fru_update_path, drop_fru_dump, nullptr},
    {'o', "open", NONE, LOOKS, &Options::open, nullptr, nullptr, nullptr},
    {'w', "wfru", VALUE, WRITES, nullptr, &Options::fru_dump_path, drop_fru_update, nullptr},
    {'j', "seldump", VALUE, WRITES, nullptr, &Options::sel_path, nullptr, nullptr},
    {'q', "sdrdump", VALUE, WRITES, &Options::sdr_dump, &Options::sdr_path, nullptr, nullptr},
    {LATE, "prompt", NONE, LOOKS, &Options::prompt, nullptr, nullptr, nullptr},
    {LATE, "exact", NONE, LOOKS, &Options::exact, nullptr, nullptr, nullptr},
    {LATE, "strict", NONE, LOOKS, &Options::strict, nullptr, nullptr, nullptr},
    {'u', nullptr, VALUE, WRITES, &Options::firmware_update, &Options::firmware_path, nullptr,
     nullptr},
    {'i', nullptr, VALUE, WRITES, nullptr, &Options::ip, check_ip, look_at_address},
    {'m', nullptr, VALUE, WRITES, nullptr, &Options::mac, check_mac, look_at_mac},
    {'g', nullptr, VALUE, WRITES, nullptr, &Options::gateway, nullptr, look_at_address},
    {'n', nullptr, VALUE, WRITES, nullptr, &Options::netmask, nullptr, look_at_netmask},
    {'e', nullptr, VALUE, WRITES, nullptr, nullptr, take_raw, nullptr},
    {'a', nullptr, NONE, WRITES, &Options::auto_ip, nullptr, nullptr, nullptr},
    {'d', nullptr, NONE, LOOKS, &Options::display, nullptr, nullptr, nullptr},
    {'h', nullptr, NONE, LOOKS, nullptr, nullptr, give_help, nullptr},
    {'?', nullptr, NONE, LOOKS, nullptr, nullptr, give_help, nullptr},
};

constexpr size_t SHORTEST_NAME = 3;  // of an option that writes
constexpr int NUMBER_BASE = 256;     // beyond all letters

// What getopt returns for a row.
int code_of(const Row& row) {
  return row.letter > LATE ? row.letter : NUMBER_BASE + static_cast<int>(&row - ROWS);
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

// getopt lists the names in its messages, which scripts may collect: those that scripts of old do
// not know are among them only when one is given, by two letters at least.
bool is_hidden(const Row& row, int argc, char** argv) {
  if (row.letter != LATE) return false;
  return std::ranges::none_of(std::span(argv, static_cast<size_t>(argc)), [&](const char* word) {
    const std::string_view name = std::string_view(word).substr(0, std::strcspn(word, "="));
    return name.starts_with("--") && name.size() >= 4 &&
           std::string_view(row.name).starts_with(name.substr(2));
  });
}

Getopt_tables build_tables(int argc, char** argv) {
  Getopt_tables tables{};
  char* letters = tables.letters;
  option* names = tables.names;
  for (const Row& row : ROWS) {
    if (is_hidden(row, argc, argv)) continue;
    if (row.name != nullptr) *names++ = {row.name, row.takes, nullptr, code_of(row)};
    if (row.letter <= LATE) continue;
    *letters++ = row.letter;
    for (int i = 0; i < row.takes; i++) *letters++ = ':';
  }
  return tables;
}

// A long name that was cut short may be another one than was meant.
void look_at_name(const Row& row, const char* word, Options* options) {
  const size_t length = std::strcspn(word, "=") - std::min(std::strlen(word), size_t{2});
  if (row.does == LOOKS || !std::string_view(word).starts_with("--") || length >= SHORTEST_NAME)
    return;
  note_argument(options, "%s is too short for an option that writes: give its whole name", word);
}

int apply(const Row& row, const Given& given, Options* options) {
  look_at_name(row, word_of(given), options);
  const bool option = given.value != nullptr && row.takes == VALUE && given.value[0] == '-' &&
                      begins_long_name(given.value + std::strspn(given.value, "-"));
  if (option) note_argument(options, "%s is taken for the value before it", given.value);
  if (row.look != nullptr) row.look(given.value, options);
  if (row.handler != nullptr) {
    const int result = row.handler(given, options);
    if (result != OPTIONS_ACCEPTED) return result;
  }
  if (row.flag != nullptr) options->*row.flag = 1;
  if (row.text == nullptr) return OPTIONS_ACCEPTED;
  note_lost(options->*row.text, options);
  options->*row.text = given.value;
  return OPTIONS_ACCEPTED;
}

}  // namespace

int parse_options(int argc, char** argv, Options* options) {
  look_at_words(argc, argv, options);
  const Getopt_tables tables = build_tables(argc, argv);
  for (;;) {
    const int code = getopt_long(argc, argv, tables.letters, tables.names, nullptr);
    const Row* row = row_of(code);
    if (row == nullptr) break;
    const int result = apply(*row, {row->letter, optarg, argc, argv}, options);
    if (result != OPTIONS_ACCEPTED) return result;
  }
  look_at_rest(argc - optind, argv + optind, options);
  look_at_actions(options);
  return OPTIONS_ACCEPTED;
}

bool begins_long_name(std::string_view text) {
  return text.size() >= SHORTEST_NAME && std::ranges::any_of(ROWS, [&](const Row& row) {
           return row.name != nullptr && std::string_view(row.name).starts_with(text);
         });
}

bool parse_mac(const char* text, uint8_t mac[6]) {
  for (unsigned i = 0; i < 6; i++) {
    if (i > 0 && *text++ != ':') return false;
    char* end = nullptr;
    const unsigned long part = std::strtoul(text, &end, 16);
    if (end == text || part > 0xFF) return false;
    // A 0x without a digit is 0, as scanf has it.
    const bool prefix_alone = end == text + 1 && *text == '0' && (*end == 'x' || *end == 'X');
    mac[i] = static_cast<uint8_t>(part);
    text = prefix_alone ? end + 1 : end;
  }
  return true;
}

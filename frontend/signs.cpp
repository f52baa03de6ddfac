// Signs that a command line is not what it was meant to be.
#include "frontend/signs.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/notice.h"
#include "frontend/options.h"

namespace {

constexpr unsigned LARGEST_BYTE = 0xFF;
constexpr std::string_view STRICT = "strict";
constexpr size_t SHORTEST_STRICT = 2;

// The word without its dashes and its value.
std::string_view name_in(std::string_view word) {
  word = word.substr(0, word.find('='));
  return word.substr(std::min(word.find_first_not_of('-'), word.size()));
}

bool has_one_dash(const char* word) {
  return word[0] == '-' && word[1] != '-';
}

// In the order in which they are carried out.
struct Action {
  const char* name;
  bool ends;  // the run
  bool (*given)(const Options&);
};
const Action ACTIONS[] = {
    {"-u", true, [](const Options& given) { return given.firmware_update != 0; }},
    {"--sdrdump", true, [](const Options& given) { return given.sdr_dump != 0; }},
    {"--sdr", true, [](const Options& given) { return given.sdr_update != 0; }},
    {"--fru", false, [](const Options& given) { return given.fru_update_path != nullptr; }},
    {"--wfru", false, [](const Options& given) { return given.fru_dump_path != nullptr; }},
    {"--seldump", false, [](const Options& given) { return given.sel_path != nullptr; }},
    {"--save", true, [](const Options& given) { return given.firmware_save != 0; }},
    {"--verify", true, [](const Options& given) { return given.firmware_verify != 0; }},
    {"--imac", false, [](const Options& given) { return given.inside_mac != 0; }},
    {"--cfg", false, [](const Options& given) { return given.script_path != nullptr; }},
    {"--dhcp", false, [](const Options& given) { return given.dhcp != 0; }},
    {"-a", false, [](const Options& given) { return given.auto_ip != 0; }},
    {"-d", false, [](const Options& given) { return given.display != 0; }},
    {"-i", false, [](const Options& given) { return given.ip != nullptr; }},
    {"-m", false, [](const Options& given) { return given.mac != nullptr; }},
    {"-g", false, [](const Options& given) { return given.gateway != nullptr; }},
    {"-n", false, [](const Options& given) { return given.netmask != nullptr; }},
    {"--arp", false, [](const Options& given) { return given.arp != nullptr; }},
    {"-e", false, [](const Options& given) { return given.raw_count != 0; }},
};

// Two files of one run: the later one takes the place of the other.
void note_shared_files(Options* options) {
  const char* const paths[] = {
      options->fru_dump_path,
      options->fru_update_path,
      options->sel_path,
      options->script_path,
      options->firmware_save != 0 ? options->firmware_path : nullptr,
  };
  for (size_t i = 0; i < std::size(paths); i++) {
    for (size_t j = 0; j < i; j++) {
      const bool both = paths[i] != nullptr && paths[j] != nullptr;
      if (!both || std::strcmp(paths[i], paths[j]) != 0) continue;
      note_argument(options, "%s is given for two files of the run", paths[i]);
    }
  }
}

// "--sp1" or "-1", without a value.
bool is_password_option(std::string_view word) {
  const char slot = word.empty() ? '\0' : word.back();
  if (slot < '0' || slot >= static_cast<char>('0' + USERS)) return false;
  const bool named = word.starts_with("--sp") || word.starts_with("-sp");
  return (named && name_in(word).size() == 3) || (word[0] == '-' && word.size() == 2);
}

// Also as it is not accepted, "--strict=yes" and "-strict".
bool is_strict(std::string_view word) {
  const std::string_view name = name_in(word);
  if (has_one_dash(word.data())) return name == STRICT;
  return word.starts_with("--") && name.size() >= SHORTEST_STRICT && STRICT.starts_with(name);
}

// The last letter of a group takes the words after it as bytes.
bool begins_raw(std::string_view word) {
  return word.starts_with("-e") || (has_one_dash(word.data()) && word.back() == 'e');
}

bool is_four_numbers(const char* text) {
  for (unsigned part = 0; part < 4; part++) {
    unsigned value = 0;
    unsigned digits = 0;
    const bool zero = *text == '0';  // before other digits it makes an octal number
    for (; *text >= '0' && *text <= '9' && digits < 4; digits++) {
      value = value * 10 + static_cast<unsigned>(*text++ - '0');
    }
    if (digits == 0 || value > LARGEST_BYTE || (zero && digits > 1)) return false;
    if (*text++ != (part < 3 ? '.' : '\0')) return false;
  }
  return true;
}

bool has_holes(const char* netmask) {
  const uint32_t host_bits = ~ntohl(inet_addr(netmask));
  return (host_bits & (host_bits + 1)) != 0;
}

}  // namespace

void note_argument(Options* options, const char* text, const char* word) {
  if (options->sign_count == ARGUMENT_SIGNS) return;
  options->signs[options->sign_count++] = {text, word};
}

void look_at_words(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; i++) {
    const std::string_view word = argv[i];
    if (begins_raw(word)) return;
    // Wherever it stands: a word before it may end the parsing.
    if (is_strict(word)) options->strict = 1;
    if (has_one_dash(argv[i]) && name_in(word).starts_with("sp")) {
      note_argument(options, "%s is read as letters: a password option has two dashes", "-sp");
    } else if (has_one_dash(argv[i]) && begins_long_name(name_in(word))) {
      note_argument(options, "%s is read as letters: a long name has two dashes", argv[i]);
    }
    if (!is_password_option(word) || i + 1 == argc || argv[i + 1][0] == '-') continue;
    note_argument(options, "the word after %s is not its password: attach it with =", argv[i]);
    explicit_bzero(argv[i + 1], std::strlen(argv[i + 1]));
  }
}

// A word may be a part of a password that has a blank.
void look_at_rest(int count, char** words, Options* options) {
  const bool secret = std::ranges::count(options->set_password, 0) < int{USERS};
  for (int i = 0; i < count; i++) {
    if (words[i][0] == '\0') continue;
    note_argument(options, "no option takes the word %s", secret ? "that is left over" : words[i]);
  }
}

void look_at_actions(Options* options) {
  bool ended = false;
  if (options->auto_ip != 0 && options->ip != nullptr) {
    note_argument(options, "%s does not count when -a finds an address", options->ip);
  }
  if (options->auto_ip != 0 && options->mac != nullptr) {
    note_argument(options, "%s does not count beside -a", options->mac);
  }
  note_shared_files(options);
  for (const Action& action : ACTIONS) {
    if (!action.given(*options)) continue;
    if (ended) {
      note_argument(options, "%s is left out: an action before it ends the run", action.name);
    }
    ended = ended || action.ends;
  }
}

void look_at_address(const char* value, Options* options) {
  if (is_four_numbers(value)) return;
  note_argument(options, "the address %s is not four decimal numbers from 0 to 255", value);
}

void look_at_netmask(const char* value, Options* options) {
  look_at_address(value, options);
  if (is_four_numbers(value) && has_holes(value))
    note_argument(options, "the net mask %s has holes", value);
}

void look_at_mac(const char* value, Options* options) {
  uint8_t unused[6];
  constexpr char MAC_CHARACTERS[] = "0123456789abcdefABCDEF:";
  const bool six = std::ranges::count(std::string_view(value), ':') == 5;
  if ((six && value[std::strspn(value, MAC_CHARACTERS)] == '\0') || !parse_mac(value, unused))
    return;
  note_argument(options, "the MAC address %s is more than six numbers joined by colons", value);
}

void look_at_arp(const char* value, Options* options) {
  if (value == nullptr || std::strcmp(value, "0") == 0 || std::strcmp(value, "1") == 0) return;
  note_argument(options, "the ARP control %s is neither 0 nor 1", value);
}

void look_at_raw(const char* value, Options* options) {
  char* end = nullptr;
  const unsigned long byte = std::strtoul(value, &end, 16);
  if (*end == '\0' && byte <= LARGEST_BYTE) return;
  note_argument(options, "the word %s after -e is no byte from 0 to FF", value);
}

void tell_argument_signs(const Options& options) {
  for (unsigned i = 0; i < options.sign_count; i++) {
    char text[600];  // a path and its text
    // NOLINTNEXTLINE(clang-diagnostic-format-nonliteral): the texts of the signs are literals
    std::snprintf(text, sizeof text, options.signs[i].text, options.signs[i].word);
    // A word must not pass for another line.
    std::ranges::replace_if(
        text, [](char c) { return c > 0 && c < ' '; }, '?');
    warning("%s", text);
  }
}

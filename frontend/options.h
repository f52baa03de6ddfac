// The option record and its parser. Nothing here touches the BMC, or a switch of the program.
#pragma once
#include <cstdint>
#include <string_view>

inline constexpr unsigned USERS = 5;
inline constexpr unsigned PASSWORD_LIMIT = 16;
inline constexpr unsigned RAW_ROOM = 256;  // with the leading responder address

// A sign of a mistake on the command line: a text with one %s, and the word for it.
struct Argument_sign {
  const char* text;
  const char* word;
};
inline constexpr unsigned ARGUMENT_SIGNS = 32;

// What the command line asks for; all zero at start. A text is the option's value, where it stands
// in argv, and null when the option was not given.
struct Options {
  int set_password[USERS];
  char password[USERS][PASSWORD_LIMIT + 1];  // padded with zeros
  int password_given[USERS];
  int prompt;  // ask for the passwords that were not given
  int exact;   // dumps and updates keep every byte
  int strict;  // refuse signs of a mistake, and tell failed steps
  int users;
  int firmware_update;
  int firmware_save;
  int firmware_verify;
  const char* firmware_path;  // the last one given for any of the three
  int sdr_update;
  int sdr_dump;
  const char* sdr_path;         // the last one given for either
  const char* fru_update_path;  // of these two, the one given later; the other is null
  const char* fru_dump_path;
  const char* sel_path;
  const char* script_path;
  int inside_mac;
  int dhcp;
  int auto_ip;
  int display;
  const char* ip;
  const char* mac;
  const char* gateway;
  const char* netmask;
  const char* arp;
  const char* channel;  // of the LAN requests
  unsigned raw_count;   // 0: no raw request
  uint8_t raw_bytes[RAW_ROOM];
  int debug;
  int open;      // use the kernel's IPMI device
  int no_reset;  // after an update of the sensor records
  Argument_sign signs[ARGUMENT_SIGNS];
  unsigned sign_count;  // those that find no room are not counted
};

inline constexpr int OPTIONS_ACCEPTED = -1;

// Parses the whole command line into a zeroed record, printing what it refuses; a password in argv
// is overwritten with zeros, and signs of a mistake are noted. OPTIONS_ACCEPTED, or the exit status
// of a run that ends here.
int parse_options(int argc, char** argv, Options* options);

// True when a long option's name begins with the text, which has at least three letters.
bool begins_long_name(std::string_view text);

// Six hexadecimal numbers of at most 0xFF joined by colons. True when `mac` was filled.
bool parse_mac(const char* text, uint8_t mac[6]);

// Prints the usage text.
void show_usage();

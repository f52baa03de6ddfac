// The option record and its parser. Nothing here touches the BMC.
#pragma once
#include <cstdint>

inline constexpr unsigned USERS = 5;
inline constexpr unsigned PASSWORD_LIMIT = 16;
inline constexpr unsigned VALUE_LIMIT = 1023;     // a path
inline constexpr unsigned LAN_VALUE_LIMIT = 127;  // the value of -i, -m, -g, -n, --arp
inline constexpr unsigned RAW_ROOM = 256;         // with the leading responder address

// What the command line asks for; all zero at start.
struct Options {
  int set_password[USERS];
  char password[USERS][PASSWORD_LIMIT + 1];
  int users;
  int firmware_update;  // the three share flashfilename
  int firmware_save;
  int firmware_verify;
  int sdr_update;  // the two share sdr_path
  int sdr_dump;
  int fru_update;  // the two share fru_path; the later option clears the other
  int fru_dump;
  int sel_dump;
  int script;
  int inside_mac;
  int dhcp;
  int read_lan;
  int auto_ip;
  int display;
  int set_ip;
  int set_mac;
  int set_gateway;
  int set_netmask;
  int set_arp;
  int raw;
  unsigned raw_count;
  uint8_t raw_bytes[RAW_ROOM];
  char sdr_path[VALUE_LIMIT + 1];
  char fru_path[VALUE_LIMIT + 1];
  char sel_path[VALUE_LIMIT + 1];
  char script_path[VALUE_LIMIT + 1];
  char ip[LAN_VALUE_LIMIT + 1];
  char mac[LAN_VALUE_LIMIT + 1];
  char gateway[LAN_VALUE_LIMIT + 1];
  char netmask[LAN_VALUE_LIMIT + 1];
  char arp[LAN_VALUE_LIMIT + 1];
};

inline constexpr int OPTIONS_ACCEPTED = -1;

// Parses the whole command line into a zeroed record and the global switches, printing what it
// refuses. OPTIONS_ACCEPTED, or the exit status of a run that ends here.
int parse_options(int argc, char** argv, Options* options);

// Six hexadecimal numbers of at most 0xFF joined by colons. True when `mac` was filled.
bool parse_mac(const char* text, uint8_t mac[6]);

// Prints the usage text.
void show_usage();

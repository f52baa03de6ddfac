// The host interface that carries the BMC's MAC address.
#include <strings.h>

#include <cstdio>
#include <cstring>

#include "lan/lan.h"
#include "platform/platform.h"

namespace {

constexpr unsigned MOST_INTERFACES = 16;
constexpr unsigned HEADING_LINES = 2;
constexpr int LIST_LINE_SIZE = 512;

bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The second colon of an alias like "eth0:1:", of which `colon` is the first; null if it has none.
const char* alias_end(const char* colon) {
  const char* p = colon + 1;
  while (is_digit(*p)) p++;
  return *p == ':' ? p : nullptr;
}

// True when the line's interface takes part in the search; fills its address and MAC address.
bool read_interface(const char* line, uint8_t address[4], char macText[MAC_TEXT_SIZE]) {
  char name[INTERFACE_NAME_SIZE];
  get_name(name, line);
  return getip(name, address) == 1 && getmac(name, macText) == 1 && notLocal(address) == 1;
}

bool find_mac(FILE* list, const char* macText, uint8_t address[4]) {
  char line[LIST_LINE_SIZE];
  for (unsigned i = 0; i < HEADING_LINES; i++) {
    if (std::fgets(line, sizeof line, list) == nullptr) return false;
  }
  unsigned taken = 0;
  while (taken < MOST_INTERFACES && std::fgets(line, sizeof line, list) != nullptr) {
    char found[MAC_TEXT_SIZE];
    if (!read_interface(line, address, found)) continue;
    if (strncasecmp(found, macText, MAC_TEXT_SIZE) == 0) return true;
    taken++;
  }
  return false;
}

}  // namespace

const char* get_name(char name[INTERFACE_NAME_SIZE], const char* line) {
  while (is_space(*line)) line++;
  const char* end = line;
  while (*end != '\0' && *end != ':' && !is_space(*end)) end++;
  const char* position = end;
  if (*end == ':') {
    const char* alias = alias_end(end);
    if (alias != nullptr) end = alias;
    position = end + 1;
  }
  const std::size_t length = static_cast<std::size_t>(end - line);
  const std::size_t count = length < INTERFACE_NAME_SIZE ? length : INTERFACE_NAME_SIZE - 1;
  std::memcpy(name, line, count);
  name[count] = '\0';
  return position;
}

int getip(const char* name, uint8_t address[4]) {
  if (name == nullptr) return 0;
  const int socket = platform::interface_socket();
  if (socket == -1) return 0;
  const int result = platform::interface_address(socket, name, address);
  platform::interface_close(socket);
  return result == 0 ? 1 : 0;
}

int getmac(const char* name, char macText[MAC_TEXT_SIZE]) {
  if (name == nullptr) return 0;
  const int socket = platform::interface_socket();
  if (socket == -1) return 0;
  uint8_t mac[6];
  const int result = platform::interface_hardware_address(socket, name, mac);
  platform::interface_close(socket);
  if (result != 0) return 0;
  mac_text(mac, macText);
  return 1;
}

void mac_text(const uint8_t mac[6], char text[MAC_TEXT_SIZE]) {
  std::snprintf(text, MAC_TEXT_SIZE, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2],
                mac[3], mac[4], mac[5]);
}

int notLocal(const uint8_t address[4]) {
  const uint8_t loopback[4] = {127, 0, 0, 1};
  return std::memcmp(address, loopback, sizeof loopback) != 0 ? 1 : 0;
}

int getIpfromMAC(const char* macText, char* ipText) {
  if (macText == nullptr || ipText == nullptr) return 0;
  FILE* list = platform::interface_list();
  if (list == nullptr) return 0;
  uint8_t address[4];
  const bool found = find_mac(list, macText, address);
  std::fclose(list);
  if (!found) return 0;
  std::snprintf(ipText, IP_TEXT_SIZE, "%d.%d.%d.%d", address[0], address[1], address[2],
                address[3]);
  return 1;
}

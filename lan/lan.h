// The BMC's LAN configuration, and the host interface that carries its MAC address.
#pragma once
#include <cstdint>

inline constexpr unsigned MAC_TEXT_SIZE = 18;  // "00:0E:0C:44:10:01" and a terminator
inline constexpr unsigned IP_TEXT_SIZE = 16;   // "255.255.255.255" and a terminator
inline constexpr unsigned INTERFACE_NAME_SIZE = 64;

extern uint8_t lanChannel;  // the channel of every request here, 1 to 15; at first 1

// IP configuration; every address first octet first.
struct IpCfg {
  uint8_t ip[4];
  uint8_t netmask[4];
  uint8_t mac[6];
  uint8_t gateway[4];
  uint8_t arp;   // ARP control to be written, 0 or 1; never read
  uint8_t dhcp;  // 1 when the BMC takes its address from DHCP; never written
};

// Get LAN Configuration Parameters 3, 5, 6, 12 and 4 (IPMI v2.0 table 23-4). 1, or 0 at the first
// failure with the reason in err_message; fields read before it stay.
int readIpCfg(IpCfg* record);
// Sets address, static source, MAC, mask and gateway. 1, or 0 at the first failure with the reason
// in err_message.
int writeIpCfg(const IpCfg* record);

// Set one parameter; before an address the source is set to static. A refusal is not reported; null
// sends nothing.
void setIp(const IpCfg* record);
void setMac(const IpCfg* record);
void setGateway(const IpCfg* record);
void setNetmask(const IpCfg* record);
// 1 when the BMC accepted, else 0.
int setArp(unsigned enable);
int enableDhcp();

// Copies the MAC address that the card reports about itself into the LAN configuration.
void insideMacSet();

// Finds the host interface that carries `macText` ("%02X:..." of six bytes) among the first 16 that
// have an IPv4 address. 1 with its address as dotted decimal in `ipText` (room for IP_TEXT_SIZE),
// else 0 with `ipText` untouched.
int getIpfromMAC(const char* macText, char* ipText);

// Writes six bytes as "00:0E:0C:44:10:01".
void mac_text(const uint8_t mac[6], char text[MAC_TEXT_SIZE]);

// The parts of the search. get_name takes an interface's name (at most 63 characters) out of a line
// of the interface list and returns the position reached; getip and getmac return 1, or 0; notLocal
// returns 0 for 127.0.0.1 only.
const char* get_name(char name[INTERFACE_NAME_SIZE], const char* line);
int getip(const char* name, uint8_t address[4]);
int getmac(const char* name, char macText[MAC_TEXT_SIZE]);
int notLocal(const uint8_t address[4]);

// LAN.
#include "lan/lan.h"

#include <cstdio>

int readIpCfg(IpCfg*) {
  std::puts("not built yet");
  return 1;
}
int writeIpCfg(const IpCfg*) {
  return 0;
}
void setIp(const IpCfg*) {
}
void setMac(const IpCfg*) {
}
void setGateway(const IpCfg*) {
}
void setNetmask(const IpCfg*) {
}
int setArp(unsigned) {
  return 0;
}
int enableDhcp() {
  return 0;
}
void insideMacSet() {
}
int getIpfromMAC(const char*, char*) {
  return 0;
}

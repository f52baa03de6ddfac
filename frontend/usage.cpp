// The usage text.
#include <cstdio>

#include "frontend/options.h"

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

}  // namespace

void show_usage() {
  for (const char* line : USAGE) std::puts(line);
}

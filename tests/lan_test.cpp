// The BMC's LAN configuration, and the host interface that carries its MAC address.
#include "lan/lan.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

#include "base/error_text.h"
#include "tests/harness.h"
#include "transport/bmc.h"

namespace {

using sim::machine;

const std::string READS =
    "30 02 01 03 00 00\n30 02 01 05 00 00\n30 02 01 06 00 00\n"
    "30 02 01 0C 00 00\n30 02 01 04 00 00\n";
const std::string STATIC = "30 01 01 04 01\n";
const std::string IP = "30 01 01 03 0A 01 02 03\n";
const std::string SHOWN =
    "\nMAC Address:\t\t\t00:0E:0C:44:10:01\nNet Mask:\t\t\t255.255.255.0\n"
    "Gate Way:\t\t\t192.168.1.1\n";

struct Lan : testing::Test {
  Lan() {
    sim::reset(sim::Kind::card);
  }
  // Has the BMC refuse the request to read (2) or write (1) LAN parameters after `skip` of them.
  static void refuse(int command, unsigned skip, unsigned times = 1) {
    machine().bmc.faults = {{sim::FaultKind::refuse, 0x0C, command, skip, times, 0xD5}};
  }
};

// A run as one text: what it says and sends after the identity of the BMC, its exit status.
std::string qarn(const std::string& line) {
  std::istringstream words(line);
  const RunResult result = run({std::istream_iterator<std::string>(words), {}});
  return after_identity(result.out) + after_identity(result.traffic) + "status " +
         std::to_string(result.status);
}

TEST_F(Lan, the_configuration_is_shown_then_set_each_address_after_its_static_source) {
  machine().bmc.lan.parameters[3] = {10, 0, 200, 255};
  EXPECT_EQ(
      qarn("--arp=1 -n 255.255.0.0 -g 10.1.0.1 -m 2:0:0:aB:cd:EF -i 10.1.2.3 -d --dhcp -e 18 02"),
      "enable DHCP\nDHCP\t\t\tEnable\nBMC IP Address:\t\t\t10.0.200.255" + SHOWN +
          "response is 1C 02 00 \n30 01 01 04 02\n" + READS + STATIC + IP +
          "30 01 01 05 02 00 00 AB CD EF\n" + STATIC + "30 01 01 0C 0A 01 00 01\n" + STATIC +
          "30 01 01 06 FF FF 00 00\n30 01 01 0A 01\n18 02\nstatus 0");
  refuse(1, 0, 0);
  EXPECT_EQ(qarn("-i 10.1.2.3 --arp=2"), STATIC + IP + "30 01 01 0A 00\nstatus 0");
}

TEST_F(Lan, the_mac_address_that_the_card_reports_is_taken) {
  EXPECT_EQ(qarn("--imac"), "F8 84 00 00 FF\n30 01 01 05 00 0E 0C 44 10 02\nstatus 0");
  machine().bmc.faults = {{sim::FaultKind::shorten, 0x3E, 0x84, 0, 1, 6}};
  EXPECT_EQ(qarn("--imac"), "F8 84 00 00 FF\nstatus 0");
}

TEST_F(Lan, a_failed_read_ends_the_run_and_a_failed_write_the_writing_both_with_the_reason) {
  const char* const unread[] = {" Get IP Address Fail\n", " Get MAC Address Fail\n",
                                "Get Net Mask Fail\n", " Get Gateway IP Address Fail\n",
                                "Get IP Source Fail\n"};
  const char* const unset[] = {"Set IP Address Fail", "Set Who Assign Fail", "Set MAC Address Fail",
                               "Set Net Mask Fail", "Set Gateway IP Address Fail"};
  // One byte less than the parameter: completion code and revision come before it.
  const unsigned too_short[] = {5, 7, 5, 5, 2};
  const IpCfg record = {};
  ASSERT_EQ(Init_Interface("KCS", 0xCAC, 0xCA8, 0), 0);
  for (unsigned step = 0; step < 5; step++) {
    const std::string text = unread[step] + READS.substr(0, (step + 1) * 18) + "status 255";
    refuse(2, step);
    EXPECT_EQ(qarn("-d -i 1.2.3.4"), text);
    machine().bmc.faults = {{sim::FaultKind::shorten, 0x0C, 2, step, 1, too_short[step]}};
    EXPECT_EQ(qarn("-d -i 1.2.3.4 --open"), text);
    refuse(1, step);
    EXPECT_EQ(writeIpCfg(&record), 0);
    EXPECT_STREQ(err_message, unset[step]);
  }
  EXPECT_EQ(writeIpCfg(&record), 1);
}

TEST_F(Lan, the_first_interface_with_its_mac_gives_the_bmc_its_address) {
  const sim::Bytes mac = machine().bmc.lan.parameters[5];
  auto& interfaces = machine().interfaces;
  interfaces = {{"lo", mac, {127, 0, 0, 1}}};  // does not count
  for (char i = 'a'; i < 'q'; i++) interfaces.push_back({{i}, sim::Bytes(6, 2), {127, 0, 0, 2}});
  interfaces.push_back({"eth1:1", mac, {10, 1, 2, 3}});
  interfaces.push_back({"eth2", mac, {10, 1, 2, 4}});
  EXPECT_EQ(qarn("-a"), READS + "status 0") << "only the first 16 are looked at";
  interfaces[1].address.clear();  // does not count either
  machine().bmc.lan.parameters[4] = {3};
  EXPECT_EQ(
      qarn("-d -a -i 10.7.7.7 -m 2:2:2:2:2:2"),
      "DHCP\t\t\tDisable\nBMC IP Address:\t\t\t10.1.2.3" + SHOWN + READS + IP + STATIC +
          "30 01 01 05 00 0E 0C 44 10 01\n30 01 01 06 FF FF FF 00\n30 01 01 0C C0 A8 01 01\n" +
          STATIC + IP + "30 01 01 05 00 0E 0C 44 10 01\nstatus 0");
  refuse(1, 1);
  EXPECT_EQ(qarn("-a"), READS + IP + STATIC + "status 0");
  machine().has_sockets = false;
  EXPECT_EQ(qarn("-a"), READS + "status 0");
  machine().lists_interfaces = false;
  EXPECT_EQ(qarn("-a"), READS + "status 0");
}

TEST(Interface, a_name_is_taken_out_of_a_line_of_the_list) {
  char name[64];
  EXPECT_STREQ(get_name(name, "\teth0:1: 1500 12\n"), " 1500 12\n");
  EXPECT_STREQ(name, "eth0:1");
  EXPECT_STREQ(get_name(name, "  eth0:1500 12\n"), "1500 12\n");
  EXPECT_STREQ(name, "eth0");
  EXPECT_STREQ(get_name(name, (std::string(600, 'n') + ":5").c_str()), "5");
  EXPECT_EQ(name, std::string(63, 'n'));
}

}  // namespace

// The BMC's LAN configuration, and the host interface that carries its MAC address.
#include "tests/harness.h"

namespace {

using sim::machine;

// What -d reads: address, MAC address, mask, gateway, source of the address.
const std::string READS =
    "30 02 01 03 00 00\n30 02 01 05 00 00\n30 02 01 06 00 00\n"
    "30 02 01 0C 00 00\n30 02 01 04 00 00\n";
const std::string STATIC = "30 01 01 04 01\n";
const std::string IP = "30 01 01 03 0A 01 02 03\n";
const std::string SHOWN =
    "\nMAC Address:\t\t\t00:0E:0C:44:10:01\nNet Mask:\t\t\t255.255.255.0\n"
    "Gate Way:\t\t\t192.168.1.1\n";

// A run as one text, while these faults act: what it says and sends, its exit status.
std::string qarn(const std::string& line, const std::string& faults = "") {
  const RunResult result = run(line, {faults});
  return result.said + result.sent + "status " + std::to_string(result.status);
}

TEST(Lan, the_configuration_is_shown_then_set_each_address_after_its_static_source) {
  setting("LAN", "3=0a00c8ff");
  EXPECT_EQ(
      qarn("--arp=1 -n 255.255.0.0 -g 10.1.0.1 -m 2:0:0:aB:cd:EF -i 10.1.2.3 -d --dhcp -e 18 02"),
      "enable DHCP\nDHCP\t\t\tEnable\nBMC IP Address:\t\t\t10.0.200.255" + SHOWN +
          "response is 1C 02 00 \n30 01 01 04 02\n" + READS + STATIC + IP +
          "30 01 01 05 02 00 00 AB CD EF\n" + STATIC + "30 01 01 0C 0A 01 00 01\n" + STATIC +
          "30 01 01 06 FF FF 00 00\n30 01 01 0A 01\n18 02\nstatus 0");
  EXPECT_EQ(qarn("-i 10.1.2.3 --arp=2", "refuse netfn=c cmd=1 times=0 value=d5"),
            STATIC + IP + "30 01 01 0A 00\nstatus 0");
}

TEST(Lan, every_request_goes_to_the_channel_that_is_given) {
  setting("LAN_CHANNEL", "8");
  machine().interfaces.push_back({"eth0", {0, 0x0E, 0x0C, 0x44, 0x10, 1}, {10, 1, 2, 3}});
  const std::string line = " --imac --dhcp -a -d -i 10.1.2.3 -m 2:0:0:1:2:3 -g 10.1.0.1 --arp=1";
  const std::string sent = run("--lan=1" + line).sent + run("-d --lan=1").sent;
  EXPECT_EQ(sent, "F8 84 00 00 FF\n30 01 01 05 00 0E 0C 44 10 02\n30 01 01 04 02\n" +
                      READS.substr(0, 18) + READS.substr(0, 18));
  EXPECT_EQ(run("--lan=8" + line).status, 0);
  const std::string set = run("-d --lan=8").said;
  EXPECT_NE(set.find("Address:\t\t\t10.1.2.3\n"), std::string::npos) << set;
  EXPECT_EQ(run("--strict --lan=8 --dhcp -g 10.1.0.1 -m 2:0:0:1:2:3 --arp=1").status, 0);
}

TEST(Lan, a_refused_channel_brings_a_hint_for_people_and_strict_scripts_unless_one_was_given) {
  setting("LAN_CHANNEL", "2");
  const std::string hint = "qarn: the LAN may be another channel: try --lan=2 or --lan=8\n";
  for (const char* line : {"-d", "--dhcp", "-i 10.1.2.3 -g 10.1.0.1"}) {
    EXPECT_EQ(run(line, {.terminals = "2"}).terminal, hint) << line;
    EXPECT_NE(run(std::string("--strict ") + line).err.find(hint), std::string::npos) << line;
    EXPECT_EQ(run(line).err, "") << line;
    EXPECT_EQ(run(std::string("--lan=8 ") + line, {.terminals = "2"}).terminal, "") << line;
  }
  setting("LAN_CHANNEL", "1");
  EXPECT_EQ(run("-d", {.faults = "refuse netfn=c cmd=2 value=d4", .terminals = "2"}).terminal, "");
}

TEST(Lan, a_channel_that_is_no_number_from_1_to_15_is_refused) {
  for (const char* wrong :
       {"", " 8", "=", "=0", "=16", "=08", "=+8", "=8x", "=0x8", "=-1", "=999"}) {
    const RunResult result = run(std::string("-d --lan") + wrong);
    EXPECT_EQ(result.status, 1) << wrong;
    EXPECT_TRUE(result.out.ends_with("from 1 to 15, as in --lan=8\n")) << result.out;
    EXPECT_EQ(result.traffic, "");
  }
  for (const char* right : {"=1", "=9", "=10", "=15"}) {
    setting("LAN_CHANNEL", right + 1);
    EXPECT_EQ(run(std::string("-d --lan") + right).status, 0) << right;
  }
}

TEST(Lan, the_mac_address_that_the_card_reports_is_taken) {
  EXPECT_EQ(qarn("--imac"), "F8 84 00 00 FF\n30 01 01 05 00 0E 0C 44 10 02\nstatus 0");
  EXPECT_EQ(qarn("--imac", "shorten netfn=3e cmd=84 value=6"), "F8 84 00 00 FF\nstatus 0");
}

TEST(Lan, a_parameter_that_cannot_be_read_ends_the_run_with_the_reason) {
  // The answer to each read loses its last byte; a completion code and a revision are first.
  const std::pair<std::string, const char*> cases[] = {
      {" Get IP Address Fail\n", "value=5"},
      {" Get MAC Address Fail\n", "value=7"},
      {"Get Net Mask Fail\n", "value=5"},
      {" Get Gateway IP Address Fail\n", "value=5"},
      {"Get IP Source Fail\n", "value=2"}};
  size_t sent = 0;
  for (unsigned read = 0; const auto& [reason, too_short] : cases) {
    const std::string which = " netfn=c cmd=2 skip=" + std::to_string(read++) + " ";
    sent = READS.find('\n', sent) + 1;
    const std::string text = reason + READS.substr(0, sent) + "status 255";
    EXPECT_EQ(qarn("-d -i 1.2.3.4", "refuse value=d5" + which), text);
    EXPECT_EQ(qarn("-d -i 1.2.3.4 --open", "shorten" + which + too_short), text);
  }
}

TEST(Lan, the_first_interface_with_its_mac_gives_the_bmc_its_address) {
  const std::string mac = ",00:0e:0c:44:10:01";
  std::string interfaces = "lo" + mac + ",127.0.0.1;" + std::string(600, 'n') + mac + ",10.1.2.2";
  for (char i = 'a'; i < 'q'; i++) interfaces += std::string(";") + i + ",2:2:2:2:2:2,127.0.0.2";
  interfaces += ";eth1:1" + mac + ",10.1.2.3;eth2" + mac + ",10.1.2.4";
  machine().interfaces.clear();
  setting("INTERFACES", interfaces);
  EXPECT_EQ(qarn("-a"), READS + "status 0") << "only the first 16 are looked at";
  machine().interfaces[2].address.clear();  // does not count, as loopback and so long a name
  setting("LAN", "4=03");
  EXPECT_EQ(
      qarn("-d -a -i 10.7.7.7 -m 2:2:2:2:2:2"),
      "DHCP\t\t\tDisable\nBMC IP Address:\t\t\t10.1.2.3" + SHOWN + READS + IP + STATIC +
          "30 01 01 05 00 0E 0C 44 10 01\n30 01 01 06 FF FF FF 00\n30 01 01 0C C0 A8 01 01\n" +
          STATIC + IP + "30 01 01 05 00 0E 0C 44 10 01\nstatus 0");
  EXPECT_EQ(qarn("-a", "refuse netfn=c cmd=1 skip=1 value=d5"), READS + IP + STATIC + "status 0");
  machine().has_sockets = false;
  EXPECT_EQ(qarn("-a"), READS + "status 0");
  machine().lists_interfaces = false;
  EXPECT_EQ(qarn("-a"), READS + "status 0");
}

}  // namespace

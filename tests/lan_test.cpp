// The BMC's LAN configuration, and the host interface that carries its MAC address.
#include "lan/lan.h"

#include <gtest/gtest.h>

#include "base/error_text.h"
#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/transaction.h"

namespace {

constexpr char READS[] =
    "30 02 01 03 00 00\n30 02 01 05 00 00\n30 02 01 06 00 00\n30 02 01 0C 00 00\n"
    "30 02 01 04 00 00\n";
constexpr char STATIC[] = "30 01 01 04 01\n";
const sim::Bytes BMC_MAC = {0x00, 0x0E, 0x0C, 0x44, 0x10, 0x01};

struct Lan : testing::Test {
  Lan() {
    sim::reset(sim::Kind::card);
  }
  static sim::Bytes& parameter(uint8_t selector) {
    return sim::machine().bmc.lan.parameters[selector];
  }
  // Has the BMC refuse the request to read (2) or write (1) LAN parameters after `skip` of them.
  static void refuse(int command, unsigned skip, unsigned times = 1) {
    sim::machine().bmc.faults = {{.kind = sim::FaultKind::refuse,
                                  .netfn = 0x0C,
                                  .command = command,
                                  .skip = skip,
                                  .times = times,
                                  .value = 0xD5}};
  }
};

TEST_F(Lan, IsShownAsTheBmcReportsIt) {
  parameter(3) = {10, 0, 200, 255};
  for (const uint8_t source : sim::Bytes{1, 2, 3}) {
    parameter(4) = {source};
    const RunResult result = run({"-d", "--open"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(after_identity(result.traffic), READS);
    EXPECT_EQ(after_identity(result.out),
              std::string(source == 2 ? "DHCP\t\t\tEnable\n" : "DHCP\t\t\tDisable\n") +
                  "BMC IP Address:\t\t\t10.0.200.255\nMAC Address:\t\t\t00:0E:0C:44:10:01\n"
                  "Net Mask:\t\t\t255.255.255.0\nGate Way:\t\t\t192.168.1.1\n");
  }
}

TEST_F(Lan, ThatCannotBeReadEndsTheRunWithTheReason) {
  const char* const messages[] = {" Get IP Address Fail", " Get MAC Address Fail",
                                  "Get Net Mask Fail", " Get Gateway IP Address Fail",
                                  "Get IP Source Fail"};
  // One byte less than the parameter: completion code and revision come before it.
  const unsigned short_answers[] = {5, 7, 5, 5, 2};
  for (unsigned step = 0; step < 5; step++) {
    const std::string sent = std::string(READS).substr(0, (step + 1) * 18);
    for (const bool cut : {false, true}) {
      refuse(2, step);
      if (cut) {
        sim::machine().bmc.faults[0].kind = sim::FaultKind::shorten;
        sim::machine().bmc.faults[0].value = short_answers[step];
      }
      const RunResult result = run({"-d", "-i", "1.2.3.4", "--open"});
      EXPECT_EQ(result.status, 255);
      EXPECT_EQ(after_identity(result.out), std::string(messages[step]) + "\n");
      EXPECT_EQ(after_identity(result.traffic), sent);
    }
  }
}

TEST_F(Lan, IsSetInAFixedOrderEachAddressAfterItsStaticSource) {
  const RunResult result =
      run({"--arp=1", "-n", "255.255.0.0", "-g", "10.1.0.1", "-m", "2:0:0:aB:cd:EF", "-i",
           "10.1.2.3", "--dhcp", "-e", "18", "46", "01"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(after_identity(result.traffic),
            std::string("30 01 01 04 02\n") + STATIC + "30 01 01 03 0A 01 02 03\n" +
                "30 01 01 05 02 00 00 AB CD EF\n" + STATIC + "30 01 01 0C 0A 01 00 01\n" + STATIC +
                "30 01 01 06 FF FF 00 00\n30 01 01 0A 01\n18 46 01\n");
  EXPECT_EQ(after_identity(result.out).substr(0, 24), "enable DHCP\nresponse is ");
  EXPECT_EQ(parameter(12), (sim::Bytes{10, 1, 0, 1}));
}

TEST_F(Lan, SettersSendTheAddressWhateverBecameOfTheSource) {
  refuse(1, 0, 0);
  const RunResult result = run({"-i", "10.1.2.3", "--arp=2"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(after_identity(result.out), "");
  EXPECT_EQ(after_identity(result.traffic),
            std::string(STATIC) + "30 01 01 03 0A 01 02 03\n30 01 01 0A 00\n");
}

TEST_F(Lan, AMacAddressThatIsNotSixBytesIsRefusedBeforeTheBmcIsTouched) {
  for (const std::string text : {"0:1:2:3:4", "0:1:2:3:4:100", "100000001:2:3:4:5:6"}) {
    const RunResult result = run({"-m", text});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("-m: " + text + " does not give the six bytes"), std::string::npos);
    EXPECT_EQ(result.traffic, "");
  }
}

// The operations on a whole record, called in this process.
struct Record : Lan {
  IpCfg record = {{1, 1, 1, 1}, {2, 2, 2, 2}, {3, 3, 3, 3, 3, 3}, {4, 4, 4, 4}, 5, 6};
  Record() {
    openIpmiFlag = 1;
    driverHandle = platform::device_open("/dev/ipmi0");
  }
  ~Record() override {
    platform::device_close(driverHandle);
    driverHandle = -1;
    openIpmiFlag = 0;
  }
};

TEST_F(Record, KeepsWhatWasReadBeforeAFailure) {
  refuse(2, 1);
  EXPECT_EQ(readIpCfg(&record), 0);
  EXPECT_STREQ(err_message, " Get MAC Address Fail");
  EXPECT_EQ(sim::Bytes(record.ip, record.ip + 4), parameter(3));
  EXPECT_EQ(sim::Bytes(record.mac, record.mac + 6), sim::Bytes(6, 3));
  EXPECT_EQ(sim::Bytes(record.netmask, record.netmask + 4), sim::Bytes(4, 2));
  EXPECT_EQ(record.dhcp, 6);
}

TEST_F(Record, ThatCannotBeWrittenLeavesTheReason) {
  const char* const messages[] = {"Set IP Address Fail", "Set Who Assign Fail",
                                  "Set MAC Address Fail", "Set Net Mask Fail",
                                  "Set Gateway IP Address Fail"};
  for (unsigned step = 0; step < 5; step++) {
    refuse(1, step);
    EXPECT_EQ(writeIpCfg(&record), 0);
    EXPECT_STREQ(err_message, messages[step]);
  }
  EXPECT_EQ(writeIpCfg(&record), 1);
}

TEST_F(Lan, TakesTheMacAddressThatTheCardReports) {
  EXPECT_EQ(after_identity(run({"--imac"}).traffic),
            "F8 84 00 00 FF\n30 01 01 05 00 0E 0C 44 10 02\n");
  sim::machine().bmc.faults = {
      {.kind = sim::FaultKind::shorten, .netfn = 0x3E, .command = 0x84, .value = 6}};
  EXPECT_EQ(after_identity(run({"--imac"}).traffic), "F8 84 00 00 FF\n");
  sim::reset(sim::Kind::plain);
  const RunResult result = run({"--imac"});
  EXPECT_EQ(after_identity(result.traffic), "F8 84 00 00 FF\n");
  EXPECT_EQ(after_identity(result.out), "");
}

struct Match : Lan {
  const std::string writes = std::string("30 01 01 03 0A 01 02 03\n") + STATIC +
                             "30 01 01 05 00 0E 0C 44 10 01\n30 01 01 06 FF FF FF 00\n"
                             "30 01 01 0C C0 A8 01 01\n";
  // What -a writes when the host has these interfaces.
  std::string written_for(const std::vector<sim::HostInterface>& interfaces) const {
    sim::machine().interfaces = interfaces;
    const RunResult result = run({"-a"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(after_identity(result.out), "");
    const std::string traffic = after_identity(result.traffic);
    EXPECT_EQ(traffic.find(READS), 0u);
    return traffic.substr(sizeof READS - 1);
  }
};

TEST_F(Match, GivesTheBmcTheAddressOfTheFirstInterfaceWithItsMac) {
  const sim::Bytes other = {2, 0, 0, 0, 0, 1};
  EXPECT_EQ(written_for({{"lo", sim::Bytes(6), {127, 0, 0, 1}},
                         {"eth0", other, {10, 9, 9, 9}},
                         {"enp3s0f1", BMC_MAC},
                         {"eth1:1", BMC_MAC, {10, 1, 2, 3}},
                         {"eth2", BMC_MAC, {10, 1, 2, 4}}}),
            writes);
}

TEST_F(Match, LeavesTheBmcAloneWithoutOne) {
  std::vector<sim::HostInterface> many;
  for (unsigned i = 0; i < 16; i++) {
    many.push_back({"eth" + std::to_string(i), sim::Bytes(6, 2), {10, 0, 0, 1}});
  }
  many.push_back({"eth16", BMC_MAC, {10, 1, 2, 3}});
  EXPECT_EQ(written_for(many), "");
  many[0].address.clear();  // does not count, so the last one does
  EXPECT_EQ(written_for(many), writes);
  EXPECT_EQ(written_for({{"lo", BMC_MAC, {127, 0, 0, 1}}}), "");
  EXPECT_NE(written_for({{"lo", BMC_MAC, {127, 0, 0, 2}}}), "");
  sim::machine().has_sockets = false;
  EXPECT_EQ(written_for({{"eth0", BMC_MAC, {10, 1, 2, 3}}}), "");
  sim::machine().lists_interfaces = false;
  EXPECT_EQ(written_for({{"eth0", BMC_MAC, {10, 1, 2, 3}}}), "");
}

TEST_F(Match, StopsWritingAtTheFirstRefusalAndSaysNothing) {
  refuse(1, 1);
  const std::string sent = written_for({{"eth0", BMC_MAC, {10, 1, 2, 3}}});
  EXPECT_EQ(sent, std::string("30 01 01 03 0A 01 02 03\n") + STATIC);
}

TEST_F(Match, IsWhatDisplayAndLaterSettersUse) {
  parameter(4) = {2};
  sim::machine().interfaces = {{"eth0", BMC_MAC, {10, 1, 2, 3}}};
  const RunResult result = run({"-d", "-a", "-i", "10.7.7.7", "-m", "2:2:2:2:2:2"});
  EXPECT_NE(result.out.find("BMC IP Address:\t\t\t10.1.2.3\n"), std::string::npos);
  EXPECT_EQ(after_identity(result.traffic),
            READS + writes + STATIC + "30 01 01 03 0A 01 02 03\n30 01 01 05 00 0E 0C 44 10 01\n");
}

TEST(Interface, NameIsTakenOutOfALineOfTheList) {
  const std::string cases[][3] = {
      {"  eth0: 1500 12\n", "eth0", " 1500 12\n"},
      {"eth0:1500 12\n", "eth0", "1500 12\n"},
      {"\teth0:1:1500 12\n", "eth0:1", "1500 12\n"},
      {"eth0 12", "eth0", " 12"},
      {":", "", ""},
      {std::string(600, 'n') + ":5", std::string(63, 'n'), "5"},
  };
  for (const auto& [line, expected, rest] : cases) {
    char name[64];
    EXPECT_EQ(get_name(name, line.c_str()), rest) << line;
    EXPECT_EQ(name, expected);
  }
}

}  // namespace

// Whole commands: what is refused, which way leads to the BMC, identity, users and raw requests.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "tests/harness.h"
#include "transport/kcs_intf.h"

namespace {

using sim::FaultKind;
using sim::Kind;
using sim::machine;
using Words = std::vector<std::string>;

const std::string BANNER = "BMC Utility on Linux version 1.1.3\n";
const std::string IDENTITY = "IPMI Ver: 1.5\tFirmware Rev: 1.23\tVendor ID: 343\tPdt ID: 3\n";
const std::string USAGE_START = "Usage: qarn [-?] [-h] [-u filename] [--spx[=xxx]] [-d] ";
const std::string USAGE_END = "-e Net/LUN CMD DATA\tExecute IPMI command\n";

struct Frontend : testing::Test {
  KCS_wait_bounds before = KCS_bounds;
  void SetUp() override {
    sim::reset(Kind::card);
  }
  void TearDown() override {
    KCS_bounds = before;
  }
};

RunResult qarn(const char* line) {
  std::istringstream stream(line);
  return run(Words(std::istream_iterator<std::string>(stream), {}));
}

bool shows_usage(const std::string& out) {
  return out.find(USAGE_START) != std::string::npos && out.ends_with(USAGE_END);
}

// What stands between the identity line and the end.
std::string after_identity(const RunResult& result) {
  const std::string start = BANNER + IDENTITY;
  return result.out.starts_with(start) ? result.out.substr(start.size()) : "no identity";
}

TEST_F(Frontend, help_and_what_the_parser_does_not_know_give_the_usage_text) {
  for (const char* line : {"", "-h", "-?", "--nonsense", "--users -h", "-e", "--sdr", "--debug=1",
                           "--s=x", "-h --sp0=12345678901234567"}) {
    const RunResult result = qarn(line);
    EXPECT_EQ(result.status, 0) << line;
    EXPECT_TRUE(result.out.starts_with(BANNER + USAGE_START)) << result.out;
    EXPECT_TRUE(result.out.ends_with(USAGE_END));
    EXPECT_EQ(result.traffic, "");
  }
  const std::string text = qarn("-h").out;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 29);
  EXPECT_NE(text.find("motherboard.And auto set"), std::string::npos);
}

TEST_F(Frontend, a_value_that_cannot_be_right_is_refused_before_the_bmc_is_touched) {
  const std::string long_path = " " + std::string(1024, 'a');
  const std::string long_value(128, '1');
  std::string long_request = "-e";
  for (unsigned i = 0; i < 256; i++) long_request += " 0";
  const struct {
    std::string line;
    std::string says;
    bool usage;
  } cases[] = {
      {"--sp1=12345678901234567", "the password mustn't more than 16 bytes\n", false},
      {"-i 10.0.0.256", "10.0.0.256 is not correct ip address\n", false},
      {"-i 255.255.255.255", "255.255.255.255 is not correct ip address\n", false},
      {"-i x", "x is not correct ip address\n", false},
      {"--arp", "", true},
      {"-g " + long_value, "-g: value is longer than 127 characters\n", false},
      {"--arp=" + long_value, "--arp: value is longer than 127 characters\n", false},
      {"-u" + long_path, "-u: value is longer than 1023 characters\n", false},
      {"--seldump" + long_path, "--seldump: value is longer than 1023", false},
      {"-e 18 01 zz", "-e: zz is not a hexadecimal byte\n", true},
      {"-e 18", "-e: a request needs at least a Net/LUN and a CMD byte\n", true},
      {"-e18 01", "-e: 18: the first byte must be a separate word\n", true},
      {long_request, "-e: more than 255 bytes\n", true},
  };
  for (const auto& one : cases) {
    const RunResult result = qarn(one.line.c_str());
    EXPECT_EQ(result.status, 1) << one.says;
    EXPECT_TRUE(result.out.starts_with(BANNER + one.says)) << result.out;
    EXPECT_EQ(shows_usage(result.out), one.usage) << result.out;
    EXPECT_EQ(result.traffic, "");
  }
}

TEST_F(Frontend, the_identity_line_is_read_from_the_device_id) {
  const struct {
    sim::Bytes id;  // from firmware revision 1 on
    std::string line;
  } cases[] = {
      {{0x81, 0x23, 0x51, 0xBF, 0x57, 0x01, 0x00, 0x03, 0x00}, IDENTITY},
      {{0x85, 0x09, 0x02, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
       "IPMI Ver: 2.0\tFirmware Rev: 5.09\tVendor ID: 16777215\tPdt ID: 65535\n"},
      {{0x7F, 0xAB, 0xEF, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01},
       "IPMI Ver: F.E\tFirmware Rev: 127.AB\tVendor ID: 65536\tPdt ID: 256\n"},
      {{0x81, 0x23, 0x51, 0xBF, 0x57, 0x01, 0x00, 0x03}, "get Device ID failed\n"},
  };
  for (const auto& one : cases) {
    machine().bmc.app.device_id = {0x20, 0x01};
    machine().bmc.app.device_id.insert(machine().bmc.app.device_id.end(), one.id.begin(),
                                       one.id.end());
    EXPECT_EQ(qarn("--nrst").out, BANNER + one.line);
  }
  machine().bmc.faults = {{.value = 0xC0}};
  const RunResult result = qarn("-e 18 01");
  EXPECT_TRUE(result.out.starts_with(BANNER + "get Device ID failed\nresponse is 1C 01 00 "))
      << "the run goes on";
  EXPECT_EQ(result.status, 0);
}

TEST_F(Frontend, user_names_are_listed_until_the_bmc_refuses) {
  machine().bmc.app.users[1].name = "sixteen letters!";
  machine().bmc.faults = {{.kind = FaultKind::shorten, .command = 0x46, .skip = 2, .value = 4},
                          {.command = 0x46, .skip = 4, .value = 0xCC}};
  EXPECT_EQ(after_identity(qarn("--users")),
            "Display Users Name\nUser ID 1\t:\t\tNULL\nUser ID 2\t:\t\tsixteen letters!\n"
            "User ID 3\t:\t\tAdm\nUser ID 4\t:\t\tCallback\n");
}

TEST_F(Frontend, passwords_are_set_in_ascending_order_before_anything_else) {
  const RunResult result = qarn("--sp4=0123456789abcdef --users --sp0 -2 -1x --sp3=old --sp3=n");
  const std::string zeros = " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
  EXPECT_TRUE(result.traffic.starts_with(
      "18 01\n18 47 01 02 00" + zeros + "\n18 47 02 02 78" + zeros + "\n18 47 03 02 00" + zeros +
      "\n18 47 04 02 6E" + zeros +
      "\n18 47 05 02 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\n18 46 01\n"))
      << result.traffic;
  EXPECT_EQ(machine().bmc.app.users[3].password[0], 'n');
}

TEST_F(Frontend, every_word_after_e_is_a_byte) {
  const struct {
    const char* line;
    std::string sent;
    std::string answer;
  } cases[] = {
      {"-e 18 101", "18 01", "1C 01 00 20 01 01 23 51 BF 57 01 00 03 00 00 00 00 00 "},
      {"-e 0x1a 0x46 3", "1A 46 03", "1E 46 00 41 64 6D 69 6E 00 00 00 00 00 00 00 00 00 00 00 "},
      {"-e 18 02 -d", "18 02 F3", "1C 02 00 "},
      {"ignored -e fc fe", "FC FE", "FC FE C1 "},
  };
  for (const auto& one : cases) {
    const RunResult result = qarn(one.line);
    EXPECT_EQ(after_identity(result), "response is " + one.answer + "\n");
    EXPECT_EQ(result.traffic, "18 01\n" + one.sent + "\n");
    EXPECT_EQ(result.status, 0);
  }
}

TEST_F(Frontend, the_trace_shows_both_directions_over_the_ports_and_one_over_the_kernel) {
  const std::string answer = "20 1c 01 00 20 01 01 23 51 bf 57 01 00 03 00 00 00 00 00 \n";
  EXPECT_EQ(qarn("--debug").out, BANNER + "20 18 01 \nrecv:" + answer + IDENTITY);
  EXPECT_EQ(qarn("-b -o").out, BANNER + "send with openipmi:20 18 01 \n" + IDENTITY);
}

TEST_F(Frontend, the_bmc_is_found_on_each_port_pair_and_device) {
  for (const auto& [command, data] :
       {std::pair<uint16_t, uint16_t>(0xCAC, 0xCA8), {0xCA3, 0xCA2}, {0xCA9, 0xCA8}}) {
    machine().ports = {{command, data}};
    const RunResult result = qarn("--nrst");
    EXPECT_EQ(result.out, BANNER + IDENTITY) << command;
    EXPECT_EQ(result.traffic, "18 01\n") << "nothing is waited for";
  }
  machine().ports.clear();
  for (const char* path : {"/dev/ipmi0", "/dev/ipmi/0", "/dev/ipmidev/0"}) {
    machine().devices = {path};
    EXPECT_EQ(qarn("--open").out, BANNER + IDENTITY) << path;
  }
}

TEST_F(Frontend, without_a_way_to_the_bmc_the_status_is_255) {
  sim::reset(Kind::none);
  EXPECT_EQ(qarn("-d").out, BANNER + "KCS_INIT error\n");
  EXPECT_EQ(qarn("-d").status, 255);
  const RunResult no_device = qarn("--open -d");
  EXPECT_EQ(no_device.out,
            BANNER + "Could not open device at /dev/ipmi0 or /dev/ipmi/0 or /dev/ipmidev/0\n");
  EXPECT_EQ(no_device.status, 255);

  sim::reset(Kind::card);
  KCS_bounds = {20, 3};
  machine().bmc.faults = {{.kind = FaultKind::write_error, .times = 0, .value = 0}};
  const RunResult dead = qarn("--users");
  EXPECT_EQ(dead.out, BANNER + "cmd error\n");
  EXPECT_EQ(dead.status, 255);
  EXPECT_EQ(qarn("--users --open").status, 0) << "the kernel's path reports failures instead";

  sim::reset(Kind::plain);  // a time-out looks for the card, and there is none
  machine().bmc.faults = {{.kind = FaultKind::no_dummy}};
  const RunResult mute = qarn("--users");
  EXPECT_EQ(mute.out, BANNER + "KCS Waiting for OBF set: Timeout!\n");
  EXPECT_EQ(mute.status, 255);
}

TEST_F(Frontend, firmware_is_for_the_card_only_and_passwords_come_first) {
  sim::reset(Kind::plain);
  const struct {
    const char* line;
    std::string action;
  } cases[] = {{"-u f.mot --sdr f -d --sp1", "update"},
               {"--save f -d --sp1", "save"},
               {"--verify f -d --sp1", "save"}};
  for (const auto& one : cases) {
    const RunResult result = qarn(one.line);
    EXPECT_EQ(
        after_identity(result),
        "Cannot find ORBE C4410/4415\nqarn only support C4410/4415 firmware " + one.action + "\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.traffic.substr(0, 17), "18 01\n18 47 02 02");
    EXPECT_EQ(std::count(result.traffic.begin(), result.traffic.end(), '\n'), 2);
  }
}

TEST_F(Frontend, the_later_fru_option_wins_and_a_save_leaves_the_lan_alone) {
  const std::string path = path_of("dump");
  const RunResult dump = qarn(("--fru missing --wfru " + path).c_str());
  EXPECT_TRUE(after_identity(dump).starts_with("Dump FRU to file " + path + "\n")) << dump.out;
  EXPECT_EQ(dump.traffic.find("28 12 "), std::string::npos) << "nothing is written";

  const RunResult save = qarn(("-d -i 10.0.0.1 --seldump /dev/null --save " + path).c_str());
  EXPECT_TRUE(after_identity(save).starts_with("Dumping SEL to file /dev/null\n")) << save.out;
  EXPECT_NE(save.out.find("Save to File " + path), std::string::npos);
  EXPECT_EQ(save.traffic.find("\n30 0"), std::string::npos);
}

TEST_F(Frontend, an_interface_that_dies_during_a_dump_leaves_no_half_file) {
  const std::string path = path_of("half");
  machine().bmc.faults = {{.kind = FaultKind::write_error,
                           .netfn = 0x08,
                           .command = 0x03,
                           .skip = 20,
                           .times = 0,
                           .value = 1}};
  const RunResult result = qarn(("--save " + path).c_str());
  EXPECT_EQ(result.status, 255);
  EXPECT_TRUE(result.out.ends_with("cmd error\n")) << result.out;
  EXPECT_EQ(content_of(path), "(no file)");
}

}  // namespace

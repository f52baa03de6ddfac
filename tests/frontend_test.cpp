// Whole commands: what is refused, which way leads to the BMC, identity, users, raw requests, what
// a terminal and a log show.
#include <csignal>
#include <cstdlib>
#include <set>

#include "tests/harness.h"

int qarn_main(int argc, char** argv);

namespace {

using sim::machine;

const std::string BANNER = "BMC Utility on Linux version 1.1.3\n";
const std::string IDENTITY = "IPMI Ver: 1.5\tFirmware Rev: 1.23\tVendor ID: 343\tPdt ID: 3\n";
const std::string START = BANNER + IDENTITY;
const std::string LONG(5000, '0');
const std::string ZEROS = " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";

// A run as one text: what it says, its exit status, what it sends.
std::string qarn(const std::string& line, const Start& start = {}) {
  return run(line, start).deeds();
}

TEST(Frontend, help_and_what_cannot_be_right_end_the_run_before_the_bmc_is_touched) {
  const std::string usage = run("-h").out.substr(BANNER.size());
  EXPECT_TRUE(usage.starts_with("Usage: qarn [-?] [-h] [-u filename] [--spx[=xxx]] [-d] "));
  EXPECT_TRUE(usage.ends_with("\n-e Net/LUN CMD DATA\tExecute IPMI command\n")) << usage;
  EXPECT_EQ(usage.size(), 1556U);  // 28 lines
  for (const char* line : {"", "-?", "-h", "--nonsense", "-e", "-d -h --sp0=12345678901234567"})
    EXPECT_EQ(qarn(line), BANNER + usage + "status 0\n") << line;
  const std::string no_mac = " does not give the six bytes of a MAC address\n";
  const std::string cases[][2] = {
      {"--sp1=12345678901234567", "the password mustn't more than 16 bytes\n"},
      {"-i 255.255.255.255", "255.255.255.255 is not correct ip address\n"},
      {"-m 0:1:2:3:4", "-m: 0:1:2:3:4" + no_mac},
      {"-m 0:1:2:3:4:100", "-m: 0:1:2:3:4:100" + no_mac},
      {"-m 100000001:2:3:4:5:6", "-m: 100000001:2:3:4:5:6" + no_mac},
      {"--arp", usage},
      {"-e 18 01 zz", "-e: zz is not a hexadecimal byte\n" + usage},
      {"-e 18", "-e: a request needs at least a Net/LUN and a CMD byte\n" + usage},
      {"-e18 01", "-e: 18: the first byte must be a separate word\n" + usage},
      {"-e" + repeated(256, " 0"), "-e: more than 255 bytes\n" + usage}};
  for (const auto& [line, says] : cases) EXPECT_EQ(qarn(line), BANNER + says + "status 1\n");
}

TEST(Frontend, a_letter_means_what_its_long_name_means_and_a_value_has_any_length) {
  const std::string null = " /dev/null";
  const std::tuple<const char*, const char*, std::string> options[] = {
      {"-s", "--sdr", " f"},          {"-t", "--nrst", " -s f"}, {"-q", "--sdrdump", null},
      {"-c", "--cfg", " f"},          {"-r ", "--arp=", "1"},    {"-p", "--dhcp", ""},
      {"-b", "--debug", ""},          {"-l", "--imac", ""},      {"-v", "--save", null},
      {"-y", "--verify", " f"},       {"-5", "--users", ""},     {"-f", "--fru", " f"},
      {"-w", "--wfru", null},         {"-j", "--seldump", null}, {"-o", "--open", " -b"},
      {"-y", "--verify", " " + LONG}, {"-r ", "--arp=", LONG}};
  std::set<std::string> different = {qarn("-0")};
  for (const auto& [letter, name, rest] : options) {
    const std::string does = qarn(letter + rest);
    EXPECT_EQ(does, qarn(name + rest)) << name;
    EXPECT_TRUE(different.insert(does).second) << name;
  }
  EXPECT_EQ(qarn("-0a -1b -2c -3d -4e"), qarn("--sp0=a --sp1=b --sp2=c --sp3=d --sp4=e"));
  EXPECT_EQ(run("--s").err,
            "qarn: option '--s' is ambiguous; possibilities: '--sdr' '--sp0' '--sp1' '--sp2' "
            "'--sp3' '--sp4' '--save' '--seldump' '--sdrdump'\n");
  EXPECT_EQ(run("--l").err, "qarn: unrecognized option '--l'\n");
}

TEST(Frontend, the_identity_line_is_read_from_the_device_id) {
  sim::Bytes& id = machine().bmc.app.device_id;
  id = {0x20, 0x01, 0xFF, 0xA9, 0xEF, 0x00, 0xFD, 0x02, 0x80, 0x04, 0xFF};
  const char shown[] = "IPMI Ver: F.E\tFirmware Rev: 127.A9\tVendor ID: 8389373\tPdt ID: 65284\n";
  EXPECT_EQ(qarn("--nrst"), BANNER + shown + "status 0\n18 01\n");
  id.pop_back();
  const char failed[] = "get Device ID failed\nresponse is 1C 02 00 \nstatus 0\n18 01\n18 02\n";
  EXPECT_EQ(qarn("-e 18 02"), BANNER + failed);
}

TEST(Frontend, passwords_are_set_in_ascending_order_before_users_are_listed) {
  machine().bmc.app.users[1].name = "sixteen letters!";
  const Start start = {.faults = "shorten cmd=46 skip=2 value=4; refuse cmd=46 skip=4 value=cc"};
  EXPECT_EQ(qarn("--sp4=0123456789abcdef --users --sp0 -1x --sp3=old --sp3=n", start),
            START +
                "Display Users Name\nUser ID 1\t:\t\tNULL\nUser ID 2\t:\t\tsixteen letters!\n"
                "User ID 3\t:\t\tAdm\nUser ID 4\t:\t\tCallback\nstatus 0\n18 01\n18 47 01 02 00" +
                ZEROS + "\n18 47 02 02 78" + ZEROS + "\n18 47 04 02 6E" + ZEROS +
                "\n18 47 05 02 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\n"
                "18 46 01\n18 46 02\n18 46 03\n18 46 04\n18 46 05\n");
}

TEST(Frontend, every_word_after_e_is_a_byte) {
  EXPECT_EQ(qarn("-e 0x1a 102"), START + "response is 1E 02 00 \nstatus 0\n18 01\n1A 02\n");
  EXPECT_EQ(qarn("-e 18 02 -d"), START + "response is 1C 02 00 \nstatus 0\n18 01\n18 02 F3\n");
  EXPECT_EQ(qarn("no -e fc fe"), START + "response is FC FE C1 \nstatus 0\n18 01\nFC FE\n");
}

TEST(Frontend, the_bmc_is_found_on_each_port_pair_and_device_and_traced) {
  const std::string end = IDENTITY + "status 0\n18 01\n";
  const std::string answer = "recv:20 1c 01 00 20 01 01 23 51 bf 57 01 00 03 00 00 00 00 00 \n";
  for (const char* pair : {"cac,ca8", "ca3,ca2", "ca9,ca8"}) {
    setting("PORTS", pair);
    EXPECT_EQ(qarn("--debug"), BANNER + "20 18 01 \n" + answer + end) << pair;
  }
  for (const char* path : {"/dev/ipmi0", "/dev/ipmi/0", "/dev/ipmidev/0"}) {
    machine().devices = {path};
    EXPECT_EQ(qarn("-b -o"), BANNER + "send with openipmi:20 18 01 \n" + end) << path;
  }
}

TEST(Frontend, the_kernel_device_is_closed_at_the_end) {
  const auto look_at_exit = [] {
    std::atexit([] { std::_Exit(machine().device_is_open ? 9 : 0); });
  };
  EXPECT_EQ(run("--open", {.prepare = look_at_exit}).status, 0);
}

TEST(Frontend, without_a_way_to_the_bmc_the_status_is_255) {
  const std::string dead = qarn("--users", {.faults = "write_error times=0 value=0"});
  EXPECT_TRUE(dead.starts_with(BANNER + "cmd error\nstatus 255\n")) << dead;
  sim::reset(sim::Kind::plain);  // a time-out looks for the card, and there is none
  EXPECT_TRUE(qarn("--users", {.faults = "no_dummy"})
                  .starts_with(BANNER + "KCS Waiting for OBF set: Timeout!\nstatus 255\n"));
  sim::reset(sim::Kind::none);
  EXPECT_EQ(qarn("-d"), BANNER + "KCS_INIT error\nstatus 255\n");
  const char no_device[] = "Could not open device at /dev/ipmi0 or /dev/ipmi/0 or /dev/ipmidev/0\n";
  EXPECT_EQ(qarn("--open -d"), BANNER + no_device + "status 255\n");
}

TEST(Frontend, firmware_is_for_the_card_only_and_passwords_come_first) {
  const char start[] = "Cannot find ORBE C4410/4415\nqarn only support C4410/4415 firmware ";
  const std::string end = "\nstatus 1\n18 01\n18 47 02 02 00" + ZEROS + "\n";
  for (const char* others : {"ca3,ca2", "ca9,ca8"}) {
    setting("PORTS", others);
    EXPECT_EQ(qarn("-u f.mot --sdr f -d --sp1"), START + start + "update" + end);
    EXPECT_EQ(qarn("--save f -d --sp1"), START + start + "save" + end);
    EXPECT_EQ(qarn("--verify f -d --sp1"), START + start + "save" + end);
  }
}

TEST(Frontend, a_processor_without_ports_has_only_the_way_of_the_kernel) {
  setting("PROCESSOR", "arm");
  const std::string said = BANNER + "this machine has no I/O ports: use --open\nstatus 255\n";
  EXPECT_EQ(qarn("-d"), said);
  EXPECT_EQ(run("-d --open").status, 0);
}

TEST(Frontend, the_later_fru_option_wins_and_a_save_leaves_the_lan_alone) {
  const auto text = qarn("--fru f --wfru /dev/null -d --seldump /dev/null --save /dev/null");
  EXPECT_TRUE(text.starts_with(START + "Dump FRU to file /dev/null\n")) << text;
  EXPECT_NE(text.find("ok\nDumping SEL to file /dev/null\nRead firmware and Save"),
            std::string::npos);
  EXPECT_EQ(text.find("28 12 "), std::string::npos) << "no inventory is written";
  EXPECT_EQ(text.find("\n30 0"), std::string::npos);
}

TEST(Frontend, passwords_that_were_not_given_are_asked_for_before_the_bmc_is_touched) {
  const std::string three = "--sp3=abc --sp2 --sp1 --prompt";
  const std::string rest = " 00 00 00 00 00 00 00 00 00 00 00 00 00\n";
  EXPECT_EQ(qarn(three, {.input = "0123456789abcdef\nxyz"}),
            START +
                "status 0\n18 01\n18 47 02 02 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\n" +
                "18 47 03 02 78 79 7A" + rest + "18 47 04 02 61 62 63" + rest);
  EXPECT_EQ(qarn(three, {.input = "one\n"}), BANNER + "--sp2: no password was given\nstatus 1\n");
  EXPECT_EQ(qarn(three, {.input = "one\n0123456789abcdefg\n"}),
            BANNER + "the password mustn't more than 16 bytes\nstatus 1\n");
}

TEST(Frontend, a_password_does_not_stay_in_the_argument_even_if_it_is_not_attached) {
  char name[] = "qarn", option[] = "--sp1=secret", detached[] = "--sp2", secret[] = "secret";
  char* words[] = {name, option, detached, secret, nullptr};
  const auto is_wiped = [&] {
    console_of([&] { qarn_main(4, words); });
    return std::string(option, sizeof option) == std::string("--sp1=\0\0\0\0\0\0", sizeof option) &&
           std::string(secret, sizeof secret) == std::string(sizeof secret, '\0');
  };
  EXPECT_EXIT(std::_Exit(is_wiped() ? 0 : 1), testing::ExitedWithCode(0), "");
}

const Start ERRORS_ON_TERMINAL = {.terminals = "2"};

TEST(Terminal, shows_the_progress_line_and_erases_it_before_a_message_of_the_transport) {
  const std::string dump = "--seldump " + path_of("log");
  EXPECT_EQ(run(dump, ERRORS_ON_TERMINAL).terminal,
            "\033[KSEL 1/3\r\033[KSEL 2/3\r\033[KSEL 3/3\r\033[K");
  EXPECT_EQ(run(dump).err, "") << "this is no terminal";
  EXPECT_EQ(run("--debug " + dump, ERRORS_ON_TERMINAL).terminal, "") << "requests are traced there";
  const char dies[] = "write_error netfn=0a cmd=43 skip=1 times=0 value=1";
  const std::string shown = run(dump, {.faults = dies, .terminals = "12"}).terminal;
  EXPECT_TRUE(
      shown.ends_with("\033[KSEL 1/3\r\033[Kcmd error\n"
                      "qarn: the BMC does not take the request at its ports\n"))
      << shown;
}

TEST(Terminal, is_told_what_an_interface_that_fails_in_an_update_leaves_undone) {
  const std::string image = path_of("image");
  run("--save " + image);
  const char dies[] = "write_error netfn=8 cmd=4 skip=9 times=0 value=1";
  EXPECT_EQ(run("-u " + image, {dies}).told(), "255");
  const std::string shown = run("-u " + image, {.faults = dies, .terminals = "2"}).terminal;
  EXPECT_NE(shown.find("the firmware is only half updated"), std::string::npos) << shown;
}

TEST(Terminal, is_shown_no_control_character_of_a_user_name) {
  const char name[] = "answer cmd=46 bytes=001b5b326a41009b";
  const std::string shown = run("--users", {.faults = name, .terminals = "1"}).terminal;
  EXPECT_NE(shown.find("User ID 1\t:\t\t?[2jA\n"), std::string::npos);
  EXPECT_NE(run("--users", {name}).out.find("User ID 1\t:\t\t\x1B[2jA\n"), std::string::npos);
}

TEST(Terminal, does_not_show_a_password_which_is_asked_for_twice) {
  const std::string refused = "the two passwords differ\n--sp1: no password was given\n";
  for (const auto& [second, outcome] : {std::pair("secrex", refused), {"secret", IDENTITY}}) {
    const RunResult result =
        run("--sp1 --prompt", {.terminals = "012", .typed = {"secret", second}});
    EXPECT_TRUE(result.terminal.ends_with(outcome)) << result.terminal;
    EXPECT_EQ(result.terminal.find("secre"), std::string::npos);
    EXPECT_EQ(result.traffic.find("18 47 02 02 73") != std::string::npos, outcome == IDENTITY);
  }
}

TEST(Log, shows_how_far_a_run_came_that_was_killed) {
  const RunResult result = run("--seldump log", {.faults = "signal netfn=0a cmd=40 value=9"});
  EXPECT_EQ(result.status, 128 + SIGKILL);
  EXPECT_EQ(result.said, "Dumping SEL to file log\n");
}

}  // namespace

// Signs of a mistake and failed steps: told on a terminal or with --strict, and to nobody else;
// what
// --strict makes of them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/firmware_support.h"

namespace {

using sim::machine;

const std::string BANNER = "BMC Utility on Linux version 1.1.3\n";

// A card with one sensor record, an inventory and a flash of one portion, and the faults. Its files
// have short names.
void serve() {
  std::filesystem::current_path(path_of(""));
  serve_card({.base = 0xFFFFF000, .size = 0x1000, .start = 0xFFFFFF00, .block = 64, .chunk = 16});
  auto& records = machine().bmc.sdr.records;
  while (records.size() > 1) records.erase(std::prev(records.end()));
}

struct Sign {
  std::string line;
  std::string warning;    // what stands after "qarn: warning: "; several with line ends between
  std::string file = {};  // content of the file "f"
};

// A person's run differs only by what the terminal shows; with --strict the BMC is not touched.
void check_signs(const std::vector<Sign>& signs) {
  for (const Sign& sign : signs) {
    SCOPED_TRACE(sign.line + "\n" + sign.file);
    serve();
    for (const char* name : {"f", "f.mot", "f.dat"}) file_with(name, sign.file);
    const std::string lines = each_line("qarn: warning: ", sign.warning);
    const Heard heard = run_for_all(sign.line);
    EXPECT_TRUE(heard.person.terminal.starts_with(lines)) << heard.person.terminal;
    EXPECT_EQ(heard.strict.told(), lines + "1");
    EXPECT_EQ(heard.strict.deeds(), BANNER + "status 1\n");
  }
}

TEST(Sign, of_a_mistake_on_the_command_line_is_told) {
  check_signs(
      {{"--users left over", "no option takes the word left\nno option takes the word over"},
       {"--sp1 secret", "the word after --sp1 is not its password: attach it with ="},
       {"--sp1=a secret", "no option takes the word that is left over"},
       {"-sp1 secret",
        "-sp is read as letters: a password option has two dashes\n"
        "the word after -sp1 is not its password: attach it with ="},
       {"-1=secret", "the password of --sp1 begins with ="},
       {"--sp1=a --sp1=b", "the first password of --sp1 is not used"},
       {"--wfru f --seldump f", "f is given for two files of the run"},
       {"--wfru --users", "--users is taken for the value before it"},
       {"-a -i 1.2.3.4 -m 0:1:2:3:4:5",
        "1.2.3.4 does not count when -a finds an address\n0:1:2:3:4:5 does not count beside -a"},
       {"--sdrdump a --sdr f",
        "a is not used: a later option has its place\n"
        "--sdr is left out: an action before it ends the run",
        "_SDR (\n)\n"},
       {"-u f --seldump a --open -d",
        "--seldump is left out: an action before it ends the run\n"
        "-d is left out: an action before it ends the run"},
       {"--save a --verify b",
        "a is not used: a later option has its place\n"
        "--verify is left out: an action before it ends the run"},
       {"--fru f --wfru b", "f is not used: a later option has its place"},
       {"--wfru f --fru f", "f is not used: a later option has its place"},
       {"-i 10.0.0.1 -i 10.0.0.2", "10.0.0.1 is not used: a later option has its place"},
       {"-nrst",
        "-nrst is read as letters: a long name has two dashes\n"
        "the address rst is not four decimal numbers from 0 to 255"},
       {"-save=f", "-save=f is read as letters: a long name has two dashes"},
       {"--f f", "--f is too short for an option that writes: give its whole name"},
       {"--i 1.2.3.4",
        "--i is too short for an option that writes: give its whole name\n"
        "no option takes the word 1.2.3.4"},
       {"-i 24", "the address 24 is not four decimal numbers from 0 to 255"},
       {"-g 10.0.0.010", "the address 10.0.0.010 is not four decimal numbers from 0 to 255"},
       {"-g 10.0.0.256", "the address 10.0.0.256 is not four decimal numbers from 0 to 255"},
       {"-g 10.0.0.1.", "the address 10.0.0.1. is not four decimal numbers from 0 to 255"},
       {"-n 255.0.255.0", "the net mask 255.0.255.0 has holes"},
       {"-m 0:1:2:3:4:5:6",
        "the MAC address 0:1:2:3:4:5:6 is more than six numbers joined by colons"},
       {"-m 0:1:2:3:4:5x",
        "the MAC address 0:1:2:3:4:5x is more than six numbers joined by colons"},
       {"--arp=2", "the ARP control 2 is neither 0 nor 1"},
       {"-e 18 101", "the word 101 after -e is no byte from 0 to FF"},
       {"-e 18 1G", "the word 1G after -e is no byte from 0 to FF"}});
}

TEST(Sign, of_a_mistake_in_a_file_is_told_before_the_bmc_is_touched) {
  const std::string type = "_SDR_TYPE 01\n_REC_LEN 06\n";
  const std::string fields = "_SEE_CHASSIS\n01 02 17\nC0\nC0\nC1\n";
  check_signs({
      {"--sdr f",
       "f: it has no opening line\nf: it has no closing line\nf: it has no record or request",
       "Remember:\n don't\n"},
      {"--sdr f", "f: line 1: it has no opening line\nf: it has no record or request",
       "_SDR_TYPE 01\n)\n"},
      {"--sdr f",
       "f: it has no closing line\nf: line 4 and 1 more: a character is no hexadecimal digit",
       "_SDR (\n_SDR_TYPE 01\n_REC_LEN 07\n01 00 51 01 02 AG\n0H\n"},
      {"--sdr f",
       "f: line 18: a record is closed before it is complete\n"
       "f: line 8: a comment begins inside quotes\nf: line 14: a quote is not closed\n"
       "f: line 11: a line has more bytes than are left of its record\n"
       "f: line 4 and 1 more: a line belongs to no record and no section",
       "_SDR (\n_SDR_TYPE 01\n# _REC_LEN 06\n01 00 51 01 01 AA\n" + type +
           "01 00 51 01 01 // it's no quote\n'A#'\n" + type + "01 00 51 01 01 'AB'\n" +
           "_SDR_TYPE 01\n_REC_LEN 07\n01 00 51 01 02 'A\n" + type + "01 00 51 01 01\n)\n"},
      {"--sdr f.dat", "f.dat: it has no record or request"},
      {"--fru f",
       "f: line 2: a character is no hexadecimal digit\nf: line 9: a comment begins inside quotes\n"
       "f: line 8: a field ends in the middle of a quoted piece: its length does not fit its text\n"
       "f: line 12: there is text after the end mark C1\n"
       "f: line 16: records that begin with type 00 are not written; use --exact\n"
       "f: the internal use area of the common section is not given; use --exact\n"
       "f: line 3: a line belongs to no record and no section",
       "_FRU\n_DEV_ID x0\n_SEE_BORD\n_SEE_COMMON\n01 02 00 00 00 00 00 FD\n_SEE_CHASSIS\n01 02 17\n"
       "C1 '1@'\nC3 'Fan #1'\nC1\n00\n'x'\nC1\n00\n_SEE_MULTIREC\n00 82 00 00 7E\n"},
      {"--fru f", "f: it has no opening line", "_DEV_ID 00\n" + fields},
      {"--exact --fru f",
       "f: line 11: a character is no hexadecimal digit\n"
       "f: line 4: a line is too long and is read as several",
       "_FRU\n_DEV_ID 00\n_SEE_INTERNAL\n" + repeated(300, "1") + "\n" + fields +
           "_SEE_PRODUCT\n01 02 0g C0 C0 C0 C0 C0 C0 C0 C1 00 00 00 00\n"},
      {"--cfg f",
       "f: line 3: a character is no hexadecimal digit\n"
       "f: line 1: a byte of one digit takes the next one's first digit\n"
       "f: line 2: a request has fewer than 3 bytes",
       "20 30 2 01 03 00\n20 18\n20 18 1o\n"},
      {"--cfg f", "f: it has no record or request", "# 20 18 01\n"},
      {"--verify f.mot",
       "f.mot: line 2: the checksum of a record is wrong\nf.mot: it has no end record (S7)",
       "S309FFFFFF004F4B00005F\nS309FFFFFF044F4B00005C\n"},
      {"-u f",
       "f: line 1: it looks like S-records, but is taken as it is, because its name does not "
       "end "
       "in .mot",
       "S309FFFFFF004F4B00005F\n"},
      {"-u f.mot",
       "f.mot: line 1 and 1 more: a line is no S-record\n"
       "f.mot: line 3: a data record of type S1 or S2 is left out\n"
       "f.mot: line 5: the count of data records (S5) is wrong",
       "# S0\n S309FFFFFF004F4B00005F\nS10500000000FA\nS309FFFFFF044F4B00005B\nS5030002FA\n"
       "S70500000000FA\n"},
  });
}

TEST(Sign, of_a_mistake_in_a_file_that_is_read_once_is_told_before_anything_is_written) {
  const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
      {"--sdr", "_SDR (\n)\n", "it has no record or request\n1", ""},
      {"--cfg", "20 18 01\n20 18 0l\n20 18 01\n", "line 2: a character is no hexadecimal digit\n1",
       "18 01\n"}};
  for (const auto& [option, text, told, sent] : cases) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(ends[1]);
    const RunResult result = run(std::string("--strict ") + option + " /dev/stdin",
                                 {.prepare = [&] { dup2(ends[0], STDIN_FILENO); }});
    close(ends[0]);
    EXPECT_EQ(result.told(), "qarn: warning: /dev/stdin: " + told);
    EXPECT_EQ(result.sent, sent);
  }
}

TEST(Sign, of_an_image_that_is_larger_than_the_flash_is_told_before_the_first_chunk) {
  const std::string line = "qarn: warning: f: the image goes on after the end of the flash\n";
  for (const char* option : {"-u f", "--verify f"}) {
    serve();
    file_with("f", std::string(0x1001, '.'));
    const Heard heard = run_for_all(option);
    EXPECT_NE(heard.person.terminal.find(line), std::string::npos) << heard.person.terminal;
    EXPECT_EQ(heard.strict.told(), line + "1");
    EXPECT_EQ(in_words(heard.strict.sent), "enter sleep 2000000 information " + RESET) << option;
  }
}

TEST(Sign, is_not_seen_in_what_is_right) {
  serve();
  EXPECT_EQ(run("-oe 18 01 -1 22").traffic, run("-o -e 18 01 -1 22").traffic) << "these are bytes";
  for (const char* line : {"--sdrdump s", "--wfru f", "--save b.bin"}) run(line);
  file_with("m.mot", "S0030000FC\nS309FFFFFF004F4B00005F\nS70500000000FA\n");
  file_with("c", "20 18 01 // it's fine\n\n# no request\n20 18 '\x01'\n");
  for (const char* line :
       {"--users -d", "--sdrdump s", "--sdr s", "--fru f", "--wfru f", "--seldump l", "--cfg c",
        "-u b.bin", "-u m.mot", "--save b.bin", "--verify b.bin", "-i 10.0.0.2 -n 255.255.254.0",
        "-g 0.0.0.0 -m 0:1:2:3:4:5 --arp=0", "--dhcp --imac", "--sp1=a --sp2", "-e 18 0x01",
        "--open --user --verif b.bin", "-h"}) {
    const Heard heard = run_for_all(line);
    EXPECT_EQ(heard.strict.told(), "0") << line;
    EXPECT_EQ(heard.strict.deeds(), heard.script.deeds()) << line;
  }
}

void check_steps(const std::vector<Telling>& steps) {
  for (const Telling& step : steps) {
    serve();
    expect_told(step);
  }
}

TEST(Step, that_fails_at_the_bmc_is_told_with_the_completion_code) {
  file_with("s", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 06\n01 00 51 01 01 AA\n)\n");
  file_with("c", "20 18 01\n20 18 46 01\n");
  const std::string denied = ": completion code D4 (insufficient privilege)";
  check_steps(
      {{"shorten netfn=6 cmd=1 value=5", "--users",
        "the BMC's identity: a response with 4 of 11 data bytes"},
       {"refuse netfn=6 cmd=47 skip=1 value=d4", "--sp1=a --sp3=b",
        "the password of user ID 4" + denied},
       {"refuse netfn=6 cmd=46 skip=2 value=d4", "--users", "the name of user ID 3" + denied},
       {"refuse netfn=6 cmd=46 value=d4", "--cfg c", "line 2" + denied},
       {"refuse netfn=6 cmd=46 value=d4", "-e 18 46 01", "the raw request" + denied},
       {"answer netfn=6 cmd=46", "-e 18 46 01", "the raw request: no response"},
       {"refuse netfn=0c cmd=1 times=2 value=d4", "-i 1.2.3.4",
        "setting the IP address source" + denied + "\nsetting the IP address" + denied},
       {"refuse netfn=0c cmd=1 value=d4", "-m 0:1:2:3:4:5", "setting the MAC address" + denied},
       {"refuse netfn=0c cmd=1 value=d4", "--arp=1", "setting the ARP control" + denied},
       {"refuse netfn=0c cmd=1 skip=1 value=d4", "-n 255.0.0.0", "setting the net mask" + denied},
       {"refuse netfn=0c cmd=1 skip=1 value=d4", "-g 1.2.3.4",
        "setting the gateway address" + denied},
       {"refuse netfn=0c cmd=1 value=d4", "--dhcp", "setting the IP address source" + denied},
       {"refuse netfn=3e cmd=84 value=c1", "--imac",
        "the card's own MAC address: completion code C1 (invalid command)"},
       {"refuse netfn=0c cmd=2 value=d4", "-d", "reading the IP address" + denied, false, 255},
       {"", "-a",
        "no network interface with an address has the BMC's MAC address 00:0E:0C:44:10:01"},
       {"refuse netfn=0a cmd=20 value=d4", "--sdrdump d",
        "the size of the sensor records" + denied},
       {"refuse netfn=0a cmd=23 value=d4", "--sdrdump d",
        "reading the sensor record 0000" + denied},
       {"refuse netfn=0a cmd=27 value=d4", "--sdr s", "erasing the sensor records" + denied},
       {"refuse netfn=0a cmd=25 skip=1 value=c4", "--sdr s",
        "writing the sensor record 0001: completion code C4 (out of space)"},
       {"refuse netfn=6 cmd=2 value=d4", "--sdr s", "the reset of the BMC" + denied},
       {"refuse netfn=0a cmd=40 value=d4", "--seldump d", "the event log's size" + denied},
       {"refuse netfn=0a cmd=43 value=d4", "--seldump d", "the event log's record 0000" + denied},
       {"refuse netfn=0a cmd=11 value=d4", "--wfru d",
        "inventory device 0, common header at 0: completion code D4 (insufficient privilege)", true,
        1}});
}

TEST(Step, that_fails_for_an_inventory_is_told) {
  serve();
  run("--wfru w");
  file_with("long", "_FRU\n_DEV_ID 00\n_SEE_CHASSIS\n01 02 17\nC9\n'ACME'\nC1\n");
  check_steps(
      {{"refuse netfn=0a cmd=10 value=cb", "--fru w",
        "the size of inventory device 0: completion code CB (not present)", false, 1},
       {"refuse netfn=0a cmd=12 skip=1 value=80", "--fru w",
        "writing inventory device 0 at 16: completion code 80 (the command's own code)", false, 1},
       {"", "--fru long",
        "long: line 5: a field of 9 bytes is longer than the 5 that are left: 'ACME?'", true, 1}});
}

TEST(Step, that_fails_for_the_firmware_is_told) {
  file_with("image", std::string(0x1000, 'x'));
  file_with("other", std::string(0x0FFF, '.') + "x");
  check_steps(
      {{"refuse netfn=8 cmd=2 value=d4", "--save d",
        "entering the downloader: completion code D4 (insufficient privilege)\n"
        "d: the flash update information: completion code C1 (invalid command)"},
       {"refuse netfn=8 cmd=1 value=d4", "-u image",
        "image: the flash update information: completion code D4 (insufficient privilege)", true},
       {"refuse netfn=8 cmd=4 skip=1 value=c0", "-u image",
        "image: writing the flash at FFFFFF10: completion code C0 (node busy)", true},
       {"answer netfn=8 cmd=5 bytes=0002", "-u image",
        "image: the card cannot program the block at FFFFFF00", true},
       {"refuse netfn=8 cmd=5 times=8 value=c0", "-u image",
        "image: the card does not take the block at FFFFFF00", true},
       {"shorten netfn=8 cmd=3 value=4", "--save d",
        "d: reading the flash at FFFFF000: an unexpected response", true},
       {"", "--verify other", "other: 1 bytes of the flash are not those of the image", true},
       {"", "--verify absent", "absent: No such file or directory", true},
       {"", "-u absent", "absent: No such file or directory", true},
       {"", "-u .", ".: it is not a regular file", true},
       {"", "--save .", ".: Is a directory", true},
       {"", "--save /dev/full", "/dev/full: No space left on device", true},
       {"refuse netfn=6 cmd=2 value=d4; refuse netfn=6 cmd=3 value=d5", "--save d",
        "leaving the downloader: completion code D5 (not possible in the present state)"},
       {"refuse netfn=6 cmd=1 skip=1 times=0 value=d2", "--save d",
        "leaving the downloader: the BMC does not come back"}});
  sim::reset(sim::Kind::plain);
  EXPECT_EQ(run("--strict -u image").told(), "qarn: the ports have no daughter card\n1");
}

TEST(Reason, of_a_file_that_cannot_be_used_is_told_to_people_too) {
  file_with("bad", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 04\n)\n");
  file_with("none", "_FRU\n");
  file_with("few", "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01\n");
  check_steps({{"", "--seldump absent/d", "absent/d: No such file or directory", true},
               {"", "--seldump /dev/full", "/dev/full: No space left on device", true},
               {"", "--sdrdump .", ".: Is a directory", true},
               {"", "--wfru absent/d", "absent/d: No such file or directory", true, 1},
               {"", "--sdr absent", "absent: No such file or directory", true},
               {"", "--sdr .", ".: Is a directory", true},
               {"", "--fru absent", "absent: No such file or directory", true, 1},
               {"", "--fru none", "none: it has no _DEV_ID line", true, 1},
               {"", "--fru few", "few: line 4: the common section has fewer than 8 bytes", true, 1},
               {"", "--cfg absent", "absent: No such file or directory", true},
               {"", "--cfg .", ".: Is a directory", true}});
  EXPECT_EQ(run("--nrst --sdr bad", {.terminals = "2"}).terminal,
            "qarn: bad: line 3: record length under 05\n");
}

TEST(Sign, of_a_flash_that_is_no_whole_portion_is_none) {
  serve_card({.base = 0xFFFF0000, .size = 0x1800, .start = 0xFFFF0000, .block = 64, .chunk = 16});
  const std::string saved = path_of("odd.bin");
  run("--save " + saved);
  for (const char* option : {"--strict --verify ", "--strict -u "})
    EXPECT_EQ(run(option + saved).told(), "0") << option;
}

TEST(Reason, of_a_way_to_the_bmc_that_fails_is_told) {
  expect_told({"", "-e 18" + repeated(130, " 01"),
               "the request is too long for the ports: use --open", true, 255});
  machine().root = false;
  expect_told({"", "--open -d", "/dev/ipmi0: Permission denied", true, 255});
  machine().ports = {};
  expect_told({"", "-d", "no BMC answers at the ports: is this root? else try --open", false, 255});
  machine().devices = {};
  expect_told(
      {"", "--open -d", "none of them is there: load the kernel's module ipmi_devintf", true, 255});
}

TEST(Strict, is_not_given_in_any_other_way_and_tells_of_a_line_that_is_not_understood) {
  for (const char* line : {"--strict=yes -d", "-strict -d"}) EXPECT_EQ(run(line).status, 1);
  EXPECT_TRUE(run("--nothing --strict")
                  .told()
                  .ends_with("\nqarn: warning: the command line is not understood: nothing was done"
                             "\n1"));
}

}  // namespace

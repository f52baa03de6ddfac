// Signs of a mistake and failed steps: told on a terminal or with --strict, and to nobody else;
// what
// --strict makes of them.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/firmware_support.h"

namespace {

using sim::machine;

const std::string BANNER = "BMC Utility on Linux version 1.1.3\n";

// A card with one sensor record, an inventory and a flash of one portion, and the faults.
void serve(const char* faults = "") {
  serve_card({.base = 0xFFFFF000, .size = 0x1000, .start = 0xFFFFFF00, .block = 64, .chunk = 16});
  auto& records = machine().bmc.sdr.records;
  while (records.size() > 1) records.erase(std::prev(records.end()));
  machine().bmc.faults = sim::faults(faults);
}

// In the folder of the test's files, so that they have short names.
RunResult run_there(const std::string& line, const std::string& terminals = "") {
  return run(line,
             {.terminals = terminals, .prepare = [] { EXPECT_EQ(chdir(path_of("").c_str()), 0); }});
}

// What a run does, but for standard error.
std::string deeds(const RunResult& result) {
  return result.out + "status " + std::to_string(result.status) + "\n" + result.traffic;
}

struct Sign {
  std::string line;
  std::string warning;    // what stands after "qarn: warning: "; several with line ends between
  std::string file = {};  // content of the file "f"
};

std::string warnings(const std::string& text) {
  std::istringstream lines(text);
  std::string all;
  for (std::string line; std::getline(lines, line);) all += "qarn: warning: " + line + "\n";
  return all;
}

// Without --strict a script's run is as it always was, and a person's differs only by what the
// terminal shows; with it the BMC is not touched.
void check_sign(const Sign& sign) {
  SCOPED_TRACE(sign.line + "\n" + sign.file);
  file_with("f", sign.file);
  serve();
  const RunResult script = run_there(sign.line);
  EXPECT_EQ(script.err, "");
  serve();
  const RunResult person = run_there(sign.line, "2");
  EXPECT_EQ(deeds(person), deeds(script));
  EXPECT_EQ(person.terminal.find(warnings(sign.warning)), 0U) << person.terminal;
  serve();
  const RunResult strict = run_there("--strict " + sign.line);
  EXPECT_EQ(strict.err, warnings(sign.warning));
  EXPECT_EQ(deeds(strict), BANNER + "status 1\n");
}

TEST(Sign, of_a_mistake_on_the_command_line_is_told) {
  const Sign signs[] = {
      {"--users left over", "no option takes the word left\nno option takes the word over"},
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
      {"-sp1=secret", "-sp is read as letters: a password option has two dashes"},
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
      {"-users", "-users is read as letters: a long name has two dashes"},
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
      {"-m 0:1:2:3:4:5x", "the MAC address 0:1:2:3:4:5x is more than six numbers joined by colons"},
      {"--arp=2", "the ARP control 2 is neither 0 nor 1"},
      {"-r on", "the ARP control on is neither 0 nor 1"},
      {"-e 18 101", "the word 101 after -e is no byte from 0 to FF"},
      {"-e 18 1G", "the word 1G after -e is no byte from 0 to FF"}};
  for (const Sign& sign : signs) check_sign(sign);
}

TEST(Sign, of_a_mistake_in_a_file_is_told_before_the_bmc_is_touched) {
  const std::string type = "_SDR_TYPE 01\n_REC_LEN 06\n";
  const std::string fru =
      "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01 00 01 00 00 00 00 FE\n_SEE_CHASSIS\n01 02 17\n";
  const Sign signs[] = {
      {"--sdr f",
       "f: it has no opening line\nf: it has no closing line\nf: it has no record or request",
       "Remember:\n don't\n"},
      {"--sdr f", "f: line 1: it has no opening line\nf: it has no record or request",
       "_SDR_TYPE 01\n)\n"},
      {"--sdr f", "f: it has no closing line", "_SDR (\n" + type + "01 00 51 01 01 AA"},
      {"--sdr f", "f: line 5: a record is closed before it is complete",
       "_SDR (\n" + type + "01 00 51 01 01\n)\n"},
      {"--sdr f", "f: line 4 and 1 more: a character is no hexadecimal digit",
       "_SDR (\n_SDR_TYPE 01\n_REC_LEN 07\n01 00 51 01 02 AG\n0H\n)\n"},
      {"--sdr f", "f: line 5: a comment begins inside quotes",
       "_SDR (\n" + type + "01 00 51 01 01 // it's no quote\n'A#'\n)\n"},
      {"--sdr f", "f: line 4 and 1 more: a line belongs to no record and no section",
       "_SDR (\n_SDR_TYPE 01\n# _REC_LEN 06\n01 00 51 01 01 AA\n" + type + "01 00 51 01 01 AA\n)"},
      {"--fru f", "f: line 3: a line belongs to no record and no section",
       "_FRU\n_DEV_ID 00\n_SEE_BORD\n"},
      {"--exact --fru f", "f: line 4: a line is too long and is read as several",
       "_FRU\n_DEV_ID 00\n_SEE_INTERNAL\n" + repeated(300, "1") + "\n"},
      {"--cfg f", "f: line 1: a byte of one digit takes the next one's first digit",
       "20 30 2 01 03 00\n"},
      {"--cfg f", "f: line 2: a request has fewer than 3 bytes", "20 18 01\n20 18\n"},
      {"--sdr f", "f: line 4: a quote is not closed",
       "_SDR (\n_SDR_TYPE 01\n_REC_LEN 07\n01 00 51 01 02 'A\n)\n"},
      {"--sdr f", "f: line 4: a line has more bytes than are left of its record",
       "_SDR (\n" + type + "01 00 51 01 01 'AB'\n)\n"},
      {"--fru f", "f: line 11: there is text after the end mark C1",
       fru + "C0\nC0\nC1\n00\n'x'\nC1\n00\n"},
      {"--fru f", "f: line 12: records that begin with type 00 are not written; use --exact",
       fru + "C0\nC0\nC1\n00\n_SEE_MULTIREC\n00 82 00 00 7E\n"},
      {"--fru f", "f: the internal use area of the common section is not given; use --exact",
       "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01 02 00 00 00 00 00 FD\n_SEE_INTERNAL\n00\n"},
      {"--exact --fru f", "f: line 12: a character is no hexadecimal digit",
       fru + "C0\nC1\n00 00 00\n00\n_SEE_PRODUCT\n01 02 0g C0 C0 C0 C0 C0 C0 C0 C1 00 00 00 00\n"},
      {"--sdr f.dat", "f.dat: it has no record or request"},
      {"--fru f", "f: it has no opening line", fru.substr(5) + "C0\nC0\nC1\n00\n"},
      {"--fru f",
       "f: line 7: a field ends in the middle of a quoted piece: its length does not fit its text",
       fru + "C1 '1@'\nC0\nC1\n00\n"},
      {"--fru f", "f: line 7: a comment begins inside quotes", fru + "C3 'Fan #1'\nC0\nC1\n00\n"},
      {"--fru f", "f: line 2: a character is no hexadecimal digit",
       "_FRU\n_DEV_ID x0\n" + fru.substr(16) + "C0\nC0\nC1\n00\n"},
      {"--cfg f", "f: it has no record or request", "# 20 18 01\n"},
      {"--cfg f", "f: line 2: a character is no hexadecimal digit", "20 18 01\n20 18 1o\n"},
      {"-u f.mot", "f.mot: line 2: the checksum of a record is wrong",
       "S309FFFFFF004F4B00005F\nS309FFFFFF044F4B00005C\nS70500000000FA\n"},
      {"-u f.mot",
       "f.mot: line 1 and 1 more: a line is no S-record\n"
       "f.mot: line 3: a data record of type S1 or S2 is left out\n"
       "f.mot: line 5: the count of data records (S5) is wrong",
       "# S0\n S309FFFFFF004F4B00005F\nS10500000000FA\nS309FFFFFF044F4B00005B\nS5030002FA\n"
       "S70500000000FA\n"},
      {"--verify f.mot", "f.mot: it has no end record (S7)", "S309FFFFFF004F4B00005F\n"}};
  for (const Sign& sign : signs) {
    file_with("f.mot", sign.file);
    file_with("f.dat", sign.file);
    check_sign(sign);
  }
}

// A run whose standard input is a pipe that holds the text.
RunResult run_piped(const std::string& line, const std::string& text) {
  return run(line, {.prepare = [&] {
               int ends[2];
               EXPECT_EQ(pipe(ends), 0);
               EXPECT_EQ(write(ends[1], text.data(), text.size()),
                         static_cast<ssize_t>(text.size()));
               close(ends[1]);
               dup2(ends[0], STDIN_FILENO);
             }});
}

TEST(Sign, of_a_mistake_in_a_file_that_is_read_once_is_told_before_anything_is_written) {
  const RunResult records = run_piped("--strict --sdr /dev/stdin", "_SDR (\n)\n");
  EXPECT_EQ(records.err, warnings("/dev/stdin: it has no record or request"));
  EXPECT_EQ(records.sent + std::to_string(records.status), "1");
  const RunResult script = run_piped("--strict --cfg /dev/stdin", "20 18 01\n20 18 0l\n20 18 01\n");
  EXPECT_EQ(script.err, warnings("/dev/stdin: line 2: a character is no hexadecimal digit"));
  EXPECT_EQ(script.sent + std::to_string(script.status), "18 01\n1");
}

TEST(Sign, of_an_image_that_is_larger_than_the_flash_is_told_before_the_first_chunk) {
  const std::string line = "f: the image goes on after the end of the flash";
  for (const char* option : {"-u f", "--verify f"}) {
    file_with("f", std::string(0x1001, '.'));
    serve();
    const RunResult script = run_there(option);
    EXPECT_EQ(script.err, "") << option;
    serve();
    const RunResult person = run_there(option, "2");
    EXPECT_EQ(deeds(person), deeds(script));
    EXPECT_NE(person.terminal.find(warnings(line)), std::string::npos) << person.terminal;
    serve();
    const RunResult strict = run_there(std::string("--strict ") + option);
    EXPECT_EQ(strict.err, warnings(line));
    EXPECT_EQ(strict.status, 1);
    EXPECT_EQ(in_words(strict.sent), "enter sleep 2000000 information " + RESET) << option;
  }
}

TEST(Sign, is_not_seen_in_what_is_right) {
  serve();
  EXPECT_EQ(run("-oe 18 01 -1 22").traffic, run("-o -e 18 01 -1 22").traffic) << "these are bytes";
  machine().bmc.faults.clear();
  run_there("--sdrdump s");
  run_there("--wfru f");
  run_there("--save b.bin");
  file_with("m.mot", "S0030000FC\nS309FFFFFF004F4B00005F\nS70500000000FA\n");
  file_with("c", "20 18 01 // it's fine\n\n# no request\n20 18 '\x01'\n");
  for (const char* line :
       {"--users -d", "--sdrdump s", "--sdr s", "--fru f", "--wfru f", "--seldump l", "--cfg c",
        "-u b.bin", "-u m.mot", "--save b.bin", "--verify b.bin", "-i 10.0.0.2 -n 255.255.254.0",
        "-g 0.0.0.0 -m 0:1:2:3:4:5 --arp=0", "--dhcp --imac", "--sp1=a --sp2", "-e 18 0x01",
        "--open --user --verif b.bin", "-h"}) {
    machine().bmc.faults.clear();
    const RunResult strict = run_there(std::string("--strict ") + line);
    EXPECT_EQ(std::to_string(strict.status) + strict.err, "0") << line;
    EXPECT_EQ(deeds(run_there(line)), deeds(strict)) << line;
  }
}

struct Failure {
  const char* faults;
  std::string line;
  std::string says;  // after "qarn: ", several with line ends between
  bool to_people = false;
  int status = 0;  // without --strict
};

void check_failure(const Failure& failure) {
  SCOPED_TRACE(failure.line + " " + failure.faults);
  std::istringstream lines(failure.says);
  std::string says;
  for (std::string line; std::getline(lines, line);) says += "qarn: " + line + "\n";
  serve(failure.faults);
  const RunResult script = run_there(failure.line);
  EXPECT_EQ(script.err, "");
  EXPECT_EQ(script.status, failure.status);
  serve(failure.faults);
  const RunResult person = run_there(failure.line, "2");
  EXPECT_EQ(deeds(person), deeds(script));
  EXPECT_EQ(person.terminal.find(says) != std::string::npos, failure.to_people) << person.terminal;
  serve(failure.faults);
  const RunResult strict = run_there("--strict " + failure.line);
  EXPECT_EQ(strict.err, says);
  EXPECT_EQ(strict.out + strict.traffic, script.out + script.traffic);
  EXPECT_EQ(strict.status, failure.status == 0 ? 2 : failure.status);
}

TEST(Step, that_fails_at_the_bmc_is_told_with_the_completion_code) {
  file_with("s", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 06\n01 00 51 01 01 AA\n)\n");
  file_with("c", "20 18 01\n20 18 46 01\n");
  const std::string denied = ": completion code D4 (insufficient privilege)";
  const Failure failures[] = {
      {"shorten netfn=6 cmd=1 value=5", "--users",
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
      {"refuse netfn=0c cmd=2 value=d4", "-d",
       "reading the IP address" + denied +
           "\nthe LAN may be another channel: try --lan=2 or --lan=8",
       false, 255},
      {"", "-a",
       "no network interface with an address has the BMC's MAC address 00:0E:0C:44:10:01"},
      {"refuse netfn=0a cmd=20 value=d4", "--sdrdump d", "the size of the sensor records" + denied},
      {"refuse netfn=0a cmd=23 value=d4", "--sdrdump d", "reading the sensor record 0000" + denied},
      {"refuse netfn=0a cmd=27 value=d4", "--sdr s", "erasing the sensor records" + denied},
      {"refuse netfn=0a cmd=25 skip=1 value=c4", "--sdr s",
       "writing the sensor record 0001: completion code C4 (out of space)"},
      {"refuse netfn=6 cmd=2 value=d4", "--sdr s", "the reset of the BMC" + denied},
      {"refuse netfn=0a cmd=40 value=d4", "--seldump d", "the event log's size" + denied},
      {"refuse netfn=0a cmd=43 value=d4", "--seldump d", "the event log's record 0000" + denied},
      {"refuse netfn=0a cmd=11 value=d4", "--wfru d",
       "inventory device 0, common header at 0: completion code D4 (insufficient privilege)", true,
       1}};
  for (const Failure& failure : failures) check_failure(failure);
}

TEST(Step, that_fails_for_an_inventory_is_told) {
  serve();
  run_there("--wfru w");
  check_failure({"refuse netfn=0a cmd=10 value=cb", "--fru w",
                 "the size of inventory device 0: completion code CB (not present)", false, 1});
  check_failure({"refuse netfn=0a cmd=12 skip=1 value=80", "--fru w",
                 "writing inventory device 0 at 16: completion code 80 (the command's own code)",
                 false, 1});
  file_with("long", "_FRU\n_DEV_ID 00\n_SEE_CHASSIS\n01 02 17\nC9\n'ACME'\nC1\n");
  check_failure({"", "--fru long",
                 "long: line 5: a field of 9 bytes is longer than the 5 that are left: 'ACME?'",
                 true, 1});
}

TEST(Step, that_fails_for_the_firmware_is_told) {
  file_with("image", std::string(0x1000, 'x'));
  file_with("other", std::string(0x0FFF, '.') + "x");
  const Failure failures[] = {
      {"refuse netfn=8 cmd=2 value=d4", "--save d",
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
       "leaving the downloader: the BMC does not come back"}};
  for (const Failure& failure : failures) check_failure(failure);
  machine() = sim::Machine{};
  sim::reset(sim::Kind::plain);
  const RunResult plain = run_there("--strict -u image");
  EXPECT_EQ(std::to_string(plain.status) + plain.err, "1qarn: the ports have no daughter card\n");
}

TEST(Reason, of_a_file_that_cannot_be_used_is_told_to_people_too) {
  file_with("bad", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 04\n)\n");
  file_with("none", "_FRU\n");
  file_with("few", "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01\n");
  const Failure failures[] = {
      {"", "--seldump absent/d", "absent/d: No such file or directory", true},
      {"", "--seldump /dev/full", "/dev/full: No space left on device", true},
      {"", "--sdrdump .", ".: Is a directory", true},
      {"", "--wfru absent/d", "absent/d: No such file or directory", true, 1},
      {"", "--sdr absent", "absent: No such file or directory", true},
      {"", "--sdr .", ".: Is a directory", true},
      {"", "--fru absent", "absent: No such file or directory", true, 1},
      {"", "--fru none", "none: it has no _DEV_ID line", true, 1},
      {"", "--fru few", "few: line 4: the common section has fewer than 8 bytes", true, 1},
      {"", "--cfg absent", "absent: No such file or directory", true},
      {"", "--cfg .", ".: Is a directory", true}};
  for (const Failure& failure : failures) check_failure(failure);
  serve();
  EXPECT_EQ(run_there("--nrst --sdr bad", "2").terminal,
            "qarn: bad: line 3: record length under 05\n");
}

TEST(Sign, of_a_flash_that_is_no_whole_portion_is_none) {
  serve_card({.base = 0xFFFF0000, .size = 0x1800, .start = 0xFFFF0000, .block = 64, .chunk = 16});
  const std::string saved = path_of("odd.bin");
  run("--save " + saved);
  for (const char* option : {"--verify ", "-u "}) {
    const RunResult result = run(std::string("--strict ") + option + saved);
    EXPECT_EQ(result.err + std::to_string(result.status), "0") << option;
  }
}

TEST(Reason, of_a_way_to_the_bmc_that_fails_is_told) {
  const std::string long_request = "-e 18" + repeated(130, " 01");
  serve();
  EXPECT_EQ(run(long_request, {.terminals = "2"}).terminal,
            "qarn: the request is too long for the ports: use --open\n");
  EXPECT_EQ(run(long_request).err, "");
  machine().ports = {};
  const RunResult none = run("--strict -d");
  EXPECT_EQ(none.err, "qarn: no BMC answers at the ports: is this root? else try --open\n");
  EXPECT_EQ(none.status, 255);
  machine().devices = {};
  EXPECT_EQ(run("--strict --open -d").err,
            "qarn: none of them is there: load the kernel's module ipmi_devintf\n");
  EXPECT_EQ(run("--open -d").err, "");
  serve();
  machine().root = false;
  const RunResult denied = run("--open -d", {.terminals = "2"});
  EXPECT_EQ(denied.terminal, "qarn: /dev/ipmi0: Permission denied\n");
  EXPECT_EQ(denied.status, 255);
}

TEST(Strict, tells_of_output_that_was_lost_and_stands_anywhere_on_the_line) {
  serve();
  const auto full = [] { EXPECT_NE(std::freopen("/dev/full", "w", stdout), nullptr); };
  const RunResult lost = run("-d --stric", {.prepare = full});
  EXPECT_EQ(lost.err, "qarn: standard output could not be written: No space left on device\n");
  EXPECT_EQ(lost.status, 2);
  EXPECT_EQ(run("--strict=yes -d").status, 1);
  EXPECT_EQ(run("-strict -d").status, 1);
  const RunResult unknown = run("--nothing --strict");
  EXPECT_TRUE(unknown.err.ends_with(
      "qarn: warning: the command line is not understood: nothing was done\n"));
  EXPECT_EQ(unknown.status, 1);
}

}  // namespace

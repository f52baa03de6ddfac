// Signals at every request of every action: what is finished, what is not begun, how the run ends.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "tests/harness.h"
#include "transport/kcs_intf.h"

namespace {

using sim::machine;

const int SIGNALS[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT};

// A card with a flash of two small blocks, one sensor record of two parts and a small inventory.
void small_server() {
  sim::reset(sim::Kind::card);
  sim::Card& card = machine().bmc.card;
  card.flash_size = 0x1000;
  card.update_start = card.flash_base + 0x0F00;
  machine().bmc.fru.devices = {{uint8_t{0}, sim::fru_device(sim::example_fru_image(), 128)}};
  auto& records = machine().bmc.sdr.records;
  while (records.size() > 2) records.erase(std::prev(records.end()));
}

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream words(line);
  return {std::istream_iterator<std::string>(words), {}};
}

// The requests among the lines of a transcript.
std::vector<std::string> requests_of(const std::string& traffic) {
  std::istringstream lines(traffic);
  std::vector<std::string> requests;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("sleep")) requests.push_back(line);
  }
  return requests;
}

sim::State contents() {
  sim::State state;
  store(machine().bmc, state);
  return state;
}

std::string joined(const std::vector<std::string>& lines, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; i++) text += lines[i] + "\n";
  return text;
}

// A long run of requests that differ in their address only is tried at every 32nd of them;
// QARN_TEST_ALL in the environment: at all.
bool is_tried(const std::vector<std::string>& requests, size_t k) {
  const auto kind = [&](size_t i) { return i < requests.size() ? requests[i].substr(0, 5) : ""; };
  const bool in_row = k > 0 && kind(k - 1) == kind(k) && kind(k) == kind(k + 1);
  return !in_row || k % 32 == 5 || requests.size() < 40 || std::getenv("QARN_TEST_ALL") != nullptr;
}

// The two ways that an action may take once a signal has come.
struct Expected {
  const char* goes_on_from;  // the first request from which on it goes to its end; "": none
  std::string leaves_by;     // what it still sends when it ends before the next request
};

struct Interrupted : testing::Test {
  // A signal at each request of a run of these words in turn, one of the four after the other.
  void check(const std::string& line, const Expected& expected) {
    const std::vector<std::string> words = words_of(line);
    small_server();
    const std::vector<std::string> whole = requests_of(run(words).traffic);
    const sim::State done = contents();
    size_t boundary = whole.size();
    for (size_t i = whole.size(); i-- > 0 && expected.goes_on_from[0] != '\0';) {
      if (whole[i].starts_with(expected.goes_on_from)) boundary = i;
    }
    for (size_t k = 0; k < whole.size(); k++) {
      if (!is_tried(whole, k)) continue;
      const int number = SIGNALS[k % 4];
      small_server();
      machine().bmc.faults = sim::faults("signal skip=" + std::to_string(k) +
                                         " value=" + sim::hex_text({static_cast<uint8_t>(number)}));
      const RunResult result = run(words);
      const auto sent = requests_of(result.traffic);
      const bool goes_on = k >= boundary;
      const std::string leaves_by = goes_on || k == 0 ? "" : expected.leaves_by;
      EXPECT_EQ(joined(sent, sent.size()),
                joined(whole, goes_on ? whole.size() : k + 1) + leaves_by)
          << line << ", signal " << number << " at request " << k;
      EXPECT_EQ(result.status, 128 + number) << line << ", request " << k;
      machine().bmc.faults.clear();
      run(words);
      EXPECT_EQ(contents(), done) << line << ": the next run does not repair what request " << k
                                  << " left";
    }
  }
};
TEST_F(Interrupted, reading_passwords_and_setters_end_before_the_next_request) {
  const std::string script = file_with("four.cfg", "20 18 01\n20 18 46 02\n20 28 40\n20 28 20\n");
  const std::string dump = path_of("dump");
  for (const std::string& line :
       {std::string("-d --sp1=new --users -e 18 01"),
        std::string("--sp0 --sp4=x -m 0:1:2:3:4:5 --dhcp --arp=1"), "--cfg " + script,
        "--sdrdump " + dump, "--seldump " + dump, "--wfru " + dump}) {
    check(line, {"", ""});
  }
}

TEST_F(Interrupted, a_pair_of_lan_settings_is_finished) {
  check("-i 10.0.0.2", {"30 01 01 04", ""});
  check("-g 10.0.0.1", {"30 01 01 04", ""});
}

TEST_F(Interrupted, records_go_in_whole_once_the_erase_has_begun) {
  small_server();
  const std::string records = path_of("records");
  run({"--sdrdump", records});
  check("--sdr " + records, {"28 27", ""});
}

TEST_F(Interrupted, an_inventory_goes_in_whole_once_its_first_bytes_are_written) {
  small_server();
  const std::string inventory = path_of("inventory");
  run({"--wfru", inventory});
  check("--fru " + inventory, {"28 12", ""});
}

TEST_F(Interrupted, the_card_never_stays_in_its_downloader) {
  small_server();
  const std::string image = path_of("image");
  run({"--save", image});
  const std::string leaves_by = "18 02\n18 01\n18 01\n";
  check("--save " + path_of("other"), {"18 02", leaves_by});
  check("--verify " + image, {"18 02", leaves_by});
  check("-u " + image, {"20 04", leaves_by});
}

TEST(Waiting, for_a_bmc_that_does_not_answer_ends_ten_seconds_after_a_signal_at_the_earliest) {
  KCS_bounds = {1, 300000};
  const std::string left = "qarn: no answer from the BMC for 10 seconds: ";
  for (const std::string way : {"--nrst", "--open"}) {
    small_server();
    machine().bmc.faults = sim::faults("signal cmd=46 value=2; silent cmd=46");
    const RunResult result = run({"--users", way});
    EXPECT_EQ(result.status, 128 + SIGINT) << way;
    EXPECT_EQ(result.err,
              "qarn: Interrupt: the request under way is finished first, so that the "
              "BMC's interface stays usable\n" +
                  left + "the last request may not have been carried out\n")
        << way;
  }
}

TEST(Turn, is_waited_for_while_another_run_uses_the_bmc_and_given_up_after_a_minute) {
  small_server();
  machine().lock_holder = 4711;
  machine().lock_until_us = 2500000;
  const std::string waits =
      "qarn: another run, process 4711, uses the BMC: waiting up to 60 seconds for it\n";
  RunResult result = run({"-e", "18", "01"});
  EXPECT_EQ(result.err, waits);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.traffic, "sleep 1000000\nsleep 1000000\nsleep 1000000\n18 01\n18 01\n");
  machine().lock_until_us = UINT64_MAX;
  for (const char* way : {"--nrst", "--open"}) {
    result = run({way, "-d"});
    EXPECT_EQ(result.err, waits + "qarn: the other run still uses the BMC: nothing was done\n");
    EXPECT_EQ(result.status, 255) << way;
  }
}

TEST(Ports, that_belong_to_a_driver_are_named_before_they_are_touched) {
  sim::reset(sim::Kind::plain);
  machine().port_owners =
      "0000-0cf7 : PCI Bus 0000:00\n  0ca2-0ca3 : IPI0001:00\n    0ca2-0ca2 : ipmi_si\n";
  EXPECT_EQ(run({"--users"}).err,
            "qarn: the ports CA3 and CA2 belong to the kernel's driver ipmi_si: use --open\n");
  EXPECT_EQ(run({"--users", "--open"}).err, "");
  sim::reset(sim::Kind::card);
  machine().root = false;
  machine().lockdown = "none [integrity] confidentiality\n";
  EXPECT_EQ(run({"--users"}).err, "");
  EXPECT_EQ(run({"--users"}, true).err,
            "qarn: the kernel is locked down and keeps programs from the ports: use --open\n");
}

}  // namespace

// Signals at every request of every action: what is finished, what is not begun, how the run ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "tests/harness.h"

namespace {

using sim::machine;
using Requests = std::vector<std::string>;

const int SIGNALS[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT};
const Requests LEAVES_DOWNLOADER = {"18 02", "18 01", "18 01"};

// A card with a flash of two small blocks, one sensor record of two parts and a small inventory.
void small_server() {
  sim::reset(sim::Kind::card);
  sim::Card& card = machine().bmc.card;
  card.flash_size = 0x1000;
  card.update_start = card.flash_base + 0x0F00;
  setting("INTERFACES", "eth0,00:0e:0c:44:10:01,10.0.0.7");
  machine().bmc.fru.devices = {{uint8_t{0}, sim::fru_device(sim::example_fru_image(), 128)}};
  auto& records = machine().bmc.sdr.records;
  records.erase(std::next(records.begin(), 2), records.end());
}

// The file that the option makes from a fresh server.
std::string made_by(const std::string& option) {
  small_server();
  std::string name = "made" + option;
  std::erase(name, ' ');
  run(option + " " + path_of(name));
  return path_of(name);
}

Requests requests_of(const std::string& traffic) {
  std::istringstream lines(traffic);
  Requests requests;
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

struct Outcome {
  Requests sent;
  int status;
  sim::State left;   // in the BMC
  std::string dump;  // the file "dump", which was an older one
};

// What a run on a fresh server comes to, while these faults act.
Outcome outcome(const std::string& line, const std::string& faults = "") {
  small_server();
  machine().bmc.faults = sim::faults(faults);
  const std::string dump = file_with("dump", "older");
  const RunResult result = run(line);
  machine().bmc.faults.clear();
  return {requests_of(result.traffic), result.status, contents(), content_of(dump)};
}

// All requests are tried when QARN_TEST_ALL is in the environment; otherwise every 32nd of many in
// a row that differ only in their address.
bool everything() {
  return std::getenv("QARN_TEST_ALL") != nullptr;
}

bool is_tried(const Requests& requests, size_t k) {
  const auto kind = [&](size_t i) { return i < requests.size() ? requests[i].substr(0, 5) : ""; };
  const bool in_row = k > 0 && kind(k - 1) == kind(k) && kind(k) == kind(k + 1);
  return !in_row || k % 32 == 5 || requests.size() < 40 || everything();
}

void report(size_t points, const std::string& line) {
  if (everything()) std::printf("%zu points: %s\n", points, line.c_str());
}

// What an action does once a signal has come.
struct Expected {
  const char* goes_on_from = "never";  // from this request on it is carried out to its end
  Requests leaves_by = {};             // what it sends before it ends, when it is not
  const char* pair = "none";           // the first request of two that belong together
};

// One signal at request `k`; the next run, without a signal, must make everything good.
void check_one(const std::string& line, const Outcome& whole, const Expected& expected, size_t k,
               int number) {
  const auto first = whole.sent.begin();
  const auto begins = [](const std::string& request, const char* with) {
    return request.starts_with(with);
  };
  const bool goes_on = std::any_of(first, first + static_cast<long>(k) + 1, [&](const auto& sent) {
    return begins(sent, expected.goes_on_from);
  });
  Requests sent = whole.sent;
  if (!goes_on) {
    sent.resize(begins(sent[k], expected.pair) ? k + 2 : k + 1);
    if (k > 0) std::ranges::copy(expected.leaves_by, std::back_inserter(sent));
  }
  const std::string what = line + ", signal at request " + std::to_string(k) + ": ";
  const std::string hex = sim::hex_text({static_cast<uint8_t>(number)});
  const Outcome ended = outcome(line, "signal value=" + hex + " skip=" + std::to_string(k));
  EXPECT_EQ(ended.sent, sent) << what;
  EXPECT_EQ(ended.status, 128 + number) << what;
  EXPECT_TRUE(ended.dump == (goes_on ? whole.dump : "older")) << what;
  run(line);
  EXPECT_EQ(contents(), whole.left) << "the next run does not repair " << what;
}

// A signal at each request of a run in turn, one of the four after the other or, with
// QARN_TEST_ALL, each of them.
void check(const std::string& line, const Expected& expected) {
  const Outcome whole = outcome(line);
  size_t points = 0;
  for (size_t k = 0; k < whole.sent.size(); k++) {
    if (!is_tried(whole.sent, k)) continue;
    for (const int number : SIGNALS) {
      if (!everything() && number != SIGNALS[k % std::size(SIGNALS)]) continue;
      check_one(line, whole, expected, k, number);
      points++;
    }
  }
  report(points, line);
}

TEST(Interrupted, reading_passwords_and_setters_end_before_the_next_request) {
  const std::string script = file_with("four.cfg", "20 18 01\n20 18 46 02\n20 28 40\n20 28 20\n");
  const std::string dump = path_of("dump");
  for (const std::string& line :
       {std::string("-d --sp1=new --users -e 18 01"),
        std::string("--sp0 --sp4=x -m 0:1:2:3:4:5 --dhcp --arp=1"), std::string("--imac"),
        "--cfg " + script, "--sdrdump " + dump, "--seldump " + dump, "--wfru " + dump,
        "--exact --sdrdump " + dump, "--exact --wfru " + dump}) {
    check(line, {});
  }
}

TEST(Interrupted, a_pair_of_lan_settings_is_finished) {
  check("-i 10.0.0.2", {.pair = "30 01 01 04"});
  check("-g 10.0.0.1 --arp=1", {.pair = "30 01 01 04"});
  check("--open -n 255.0.0.0 -i 10.0.0.2", {.pair = "30 01 01 04"});
  check("-a", {.pair = "30 01 01 03"});
}

TEST(Interrupted, records_go_in_whole_once_the_erase_has_begun) {
  const std::string records = made_by("--sdrdump");
  check("--sdr " + records, {.goes_on_from = "28 27"});
  check("--open --sdr " + records, {.goes_on_from = "28 27"});
}

TEST(Interrupted, an_inventory_goes_in_whole_once_its_first_bytes_are_written) {
  const std::string inventory = made_by("--wfru");
  check("--fru " + inventory, {.goes_on_from = "28 12"});
  check("--open --fru " + inventory, {.goes_on_from = "28 12"});
  check("--exact --fru " + made_by("--exact --wfru"), {.goes_on_from = "28 12"});
  small_server();
  machine().bmc.faults = sim::faults("signal cmd=12 value=2; refuse cmd=12 skip=1 value=80");
  EXPECT_TRUE(run("--fru " + inventory).out.ends_with("Update FRU fail\n"));
}

TEST(Interrupted, the_card_never_stays_in_its_downloader) {
  const std::string image = made_by("--save");
  check("--save " + path_of("dump"), {"18 02", LEAVES_DOWNLOADER});
  check("--verify " + image, {"18 02", LEAVES_DOWNLOADER});
  check("-u " + image, {"20 04", LEAVES_DOWNLOADER});
  check("--open -u " + image, {"20 04", LEAVES_DOWNLOADER});
}

// The reader of standard output goes away at each request in turn, or at every third of those that
// are tried.
TEST(Interrupted, a_reader_that_goes_away_changes_nothing) {
  const std::string image = made_by("--save");
  const std::string dump = path_of("dump");
  for (const std::string& line :
       {std::string("-d --sp1=new --users -e 18 01"), std::string("--debug -i 10.0.0.2"),
        "--sdr " + made_by("--sdrdump"), "--fru " + made_by("--wfru"), "-u " + image,
        "--verify " + image, "--save " + dump, "--sdrdump " + dump, "--seldump " + dump,
        "--wfru " + dump}) {
    const Outcome whole = outcome(line);
    for (size_t k = 0; k < whole.sent.size(); k++) {
      if (!everything() && (k % 3 != 0 || !is_tried(whole.sent, k))) continue;
      const Outcome unread = outcome(line, "close_output skip=" + std::to_string(k));
      EXPECT_EQ(unread.sent, whole.sent) << line << ", request " << k;
      EXPECT_EQ(unread.status, whole.status) << line << ", request " << k;
      EXPECT_EQ(unread.left, whole.left) << line << ", request " << k;
      EXPECT_TRUE(unread.dump == whole.dump) << line << ", request " << k;
    }
    report(whole.sent.size(), line);
  }
}

}  // namespace

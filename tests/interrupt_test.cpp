// Signals at every request of every action: what is finished, what is not begun, how the run ends.
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
  const std::string dump = file_with("dump", "older");
  const RunResult result = run(line, {faults});
  return {requests_of(result.traffic), result.status, contents(), content_of(dump)};
}

// All requests are tried when everything() is; otherwise every 32nd of many in a row that differ
// only in their address.
bool is_tried(const Requests& requests, size_t k) {
  const auto kind = [&](size_t i) { return i < requests.size() ? requests[i].substr(0, 5) : ""; };
  const bool in_row = k > 0 && kind(k - 1) == kind(k) && kind(k) == kind(k + 1);
  return !in_row || k % 32 == 5 || requests.size() < 40 || everything();
}

// What an action does once a signal has come.
struct Expected {
  const char* goes_on_from = "never";  // from this request on it is carried out to its end
  Requests leaves_by = {};             // what it sends before it ends, when it is not
  const char* pair = "none";           // the first request of two that belong together
};

// A signal at each request of a run in turn, one of the four after the other or, with
// QARN_TEST_ALL, each of them. The next run, without a signal, must make everything good.
void check(const std::string& line, const Expected& expected) {
  const Outcome whole = outcome(line);
  bool goes_on = false;
  for (size_t k = 0; k < whole.sent.size(); k++) {
    goes_on = goes_on || whole.sent[k].starts_with(expected.goes_on_from);
    if (!is_tried(whole.sent, k)) continue;
    Requests sent = whole.sent;
    if (!goes_on) {
      sent.resize(sent[k].starts_with(expected.pair) ? k + 2 : k + 1);
      if (k > 0) std::ranges::copy(expected.leaves_by, std::back_inserter(sent));
    }
    for (const int number : SIGNALS) {
      if (!everything() && number != SIGNALS[k % std::size(SIGNALS)]) continue;
      const std::string fault = "signal value=" + sim::hex_text({static_cast<uint8_t>(number)}) +
                                " skip=" + std::to_string(k);
      SCOPED_TRACE(line + ": " + fault);
      const Outcome ended = outcome(line, fault);
      EXPECT_EQ(ended.sent, sent);
      EXPECT_EQ(ended.status, 128 + number);
      EXPECT_TRUE(ended.dump == (goes_on ? whole.dump : "older"));
      run(line);
      EXPECT_EQ(contents(), whole.left) << "the next run repairs it";
      if (everything()) std::puts((line + ": " + fault).c_str());
    }
  }
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
  const char faults[] = "signal cmd=12 value=2; refuse cmd=12 skip=1 value=80";
  EXPECT_TRUE(run("--fru " + inventory, {faults}).out.ends_with("Update FRU fail\n"));
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
      SCOPED_TRACE(line + ", request " + std::to_string(k));
      const Outcome unread = outcome(line, "close_output skip=" + std::to_string(k));
      EXPECT_EQ(unread.sent, whole.sent);
      EXPECT_EQ(unread.status, whole.status);
      EXPECT_EQ(unread.left, whole.left);
      EXPECT_TRUE(unread.dump == whole.dump);
      if (everything()) std::puts((line + ": unread from request " + std::to_string(k)).c_str());
    }
  }
}

}  // namespace

// Signals at every request of every action: what is finished, what is not begun, how the run ends.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>

#include "tests/harness.h"
#include "transport/kcs_intf.h"

int qarn_main(int argc, char** argv);

namespace {

using sim::machine;

const int SIGNALS[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT};

// A card with a flash of two small blocks, one sensor record of two parts and a small inventory.
void small_server() {
  sim::reset(sim::Kind::card);
  sim::Card& card = machine().bmc.card;
  card.flash_size = 0x1000;
  card.update_start = card.flash_base + 0x0F00;
  machine().interfaces.push_back({"eth0", {0, 0x0E, 0x0C, 0x44, 0x10, 1}, {10, 0, 0, 7}});
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

// Of many requests in a row that differ only in their address every 32nd is tried, or all of them
// when QARN_TEST_ALL is in the environment.
bool everything() {
  return std::getenv("QARN_TEST_ALL") != nullptr;
}

bool is_tried(const std::vector<std::string>& requests, size_t k) {
  const auto kind = [&](size_t i) { return i < requests.size() ? requests[i].substr(0, 5) : ""; };
  const bool in_row = k > 0 && kind(k - 1) == kind(k) && kind(k) == kind(k + 1);
  return !in_row || k % 32 == 5 || requests.size() < 40 || everything();
}

// What an action does once a signal has come.
struct Expected {
  const char* goes_on_from;  // from this request on it is carried out to its end; "": never
  std::string leaves_by;     // what it sends before it ends, when it is not
  const char* pair = "-";    // the first request of two that belong together
};

// One run without a fault: its arguments, and what it left.
struct Whole {
  std::vector<std::string> words;
  std::vector<std::string> sent;
  int status;
  sim::State left;
  std::string dump;  // the file that the last word names
};

Whole whole_run(const std::vector<std::string>& words) {
  small_server();
  const RunResult result = run(words);
  return {words, requests_of(result.traffic), result.status, contents(), content_of(words.back())};
}

// The same arguments on a fresh server, with a fault at request `k`.
RunResult run_with(const Whole& whole, const std::string& fault, size_t k) {
  small_server();
  machine().bmc.faults = sim::faults(fault + " skip=" + std::to_string(k));
  return run(whole.words);
}

struct Interrupted : testing::Test {
  // One signal at request `k`; the next run, without a signal, must make everything good.
  void check_one(const Whole& whole, const Expected& expected, size_t boundary, size_t k,
                 int number) {
    const std::string older = whole.dump == "(no file)" ? whole.dump : "older";
    if (older == "older") file_with("dump", older);
    const RunResult result =
        run_with(whole, "signal value=" + sim::hex_text({static_cast<uint8_t>(number)}), k);
    const auto sent = requests_of(result.traffic);
    const bool goes_on = k >= boundary;
    const std::string leaves_by = goes_on || k == 0 ? "" : expected.leaves_by;
    const size_t ends = goes_on ? whole.sent.size() : k + 1;
    const std::string what = joined(whole.words, whole.words.size()) + "signal " +
                             std::to_string(number) + " at request " + std::to_string(k);
    EXPECT_EQ(
        joined(sent, sent.size()),
        joined(whole.sent, whole.sent[k].starts_with(expected.pair) ? k + 2 : ends) + leaves_by)
        << what;
    EXPECT_EQ(result.status, 128 + number) << what;
    if (whole.words.back() == path_of("dump") && !goes_on) {
      EXPECT_TRUE(content_of(path_of("dump")) == older) << what;
    }
    machine().bmc.faults.clear();
    run(whole.words);
    EXPECT_EQ(contents(), whole.left) << "the next run does not repair " << what;
    points++;
  }

  // A signal at each request of a run in turn, one of the four after the other or, with
  // QARN_TEST_ALL, each of them.
  void check(const std::string& line, const Expected& expected) {
    const Whole whole = whole_run(words_of(line));
    size_t boundary = whole.sent.size();
    for (size_t i = whole.sent.size(); i-- > 0 && expected.goes_on_from[0] != '\0';) {
      if (whole.sent[i].starts_with(expected.goes_on_from)) boundary = i;
    }
    for (size_t k = 0; k < whole.sent.size(); k++) {
      if (!is_tried(whole.sent, k)) continue;
      for (size_t i = 0; i < std::size(SIGNALS); i++) {
        if (everything() || i == k % std::size(SIGNALS)) {
          check_one(whole, expected, boundary, k, SIGNALS[i]);
        }
      }
    }
    report(line);
  }

  // The reader of standard output goes away at each request in turn, or at every third of those
  // that are tried: nothing else changes.
  void check_unread(const std::string& line) {
    const Whole whole = whole_run(words_of(line));
    for (size_t k = 0; k < whole.sent.size(); k++) {
      if (!everything() && (k % 3 != 0 || !is_tried(whole.sent, k))) continue;
      const RunResult result = run_with(whole, "close_output", k);
      EXPECT_EQ(requests_of(result.traffic), whole.sent) << line << ", request " << k;
      EXPECT_EQ(result.status, whole.status) << line << ", request " << k;
      EXPECT_EQ(contents(), whole.left) << line << ", request " << k;
      EXPECT_TRUE(content_of(whole.words.back()) == whole.dump) << line << ", request " << k;
      points++;
    }
    report(line);
  }

  void report(const std::string& line) {
    if (everything()) std::printf("%u points: %s\n", points, line.c_str());
    points = 0;
  }

  unsigned points = 0;
};

TEST_F(Interrupted, reading_passwords_and_setters_end_before_the_next_request) {
  const std::string script = file_with("four.cfg", "20 18 01\n20 18 46 02\n20 28 40\n20 28 20\n");
  const std::string dump = path_of("dump");
  for (const std::string& line :
       {std::string("-d --sp1=new --users -e 18 01"),
        std::string("--sp0 --sp4=x -m 0:1:2:3:4:5 --dhcp --arp=1"), std::string("--imac"),
        "--cfg " + script, "--sdrdump " + dump, "--seldump " + dump, "--wfru " + dump}) {
    check(line, {"", ""});
  }
}

TEST_F(Interrupted, a_pair_of_lan_settings_is_finished) {
  check("-i 10.0.0.2", {"", "", "30 01 01 04"});
  check("-g 10.0.0.1 --arp=1", {"", "", "30 01 01 04"});
  check("--open -n 255.0.0.0 -i 10.0.0.2", {"", "", "30 01 01 04"});
  check("-a", {"", "", "30 01 01 03"});
}

TEST_F(Interrupted, records_go_in_whole_once_the_erase_has_begun) {
  small_server();
  const std::string records = path_of("records");
  run({"--sdrdump", records});
  check("--sdr " + records, {"28 27", ""});
  check("--open --sdr " + records, {"28 27", ""});
}

TEST_F(Interrupted, an_inventory_goes_in_whole_once_its_first_bytes_are_written) {
  small_server();
  const std::string inventory = path_of("inventory");
  run({"--wfru", inventory});
  check("--fru " + inventory, {"28 12", ""});
  check("--open --fru " + inventory, {"28 12", ""});
  for (const auto& [fault, outcome] :
       {std::pair{"", "Update successfully\n"},
        std::pair{"; refuse cmd=12 skip=1 value=80", "Update FRU fail\n"}}) {
    small_server();
    machine().bmc.faults = sim::faults(std::string("signal cmd=12 value=2") + fault);
    EXPECT_TRUE(run({"--fru", inventory}).out.ends_with(outcome)) << fault;
  }
}

TEST_F(Interrupted, the_card_never_stays_in_its_downloader) {
  small_server();
  const std::string image = path_of("image");
  run({"--save", image});
  const std::string leaves_by = "18 02\n18 01\n18 01\n";
  check("--save " + path_of("dump"), {"18 02", leaves_by});
  check("--verify " + image, {"18 02", leaves_by});
  check("-u " + image, {"20 04", leaves_by});
  check("--open -u " + image, {"20 04", leaves_by});
}

TEST_F(Interrupted, a_reader_that_goes_away_changes_nothing) {
  small_server();
  const std::string records = path_of("records");
  run({"--sdrdump", records});
  const std::string inventory = path_of("inventory");
  run({"--wfru", inventory});
  const std::string image = path_of("image");
  run({"--save", image});
  const std::string dump = path_of("dump");
  for (const std::string& line :
       {std::string("-d --sp1=new --users -e 18 01"), std::string("--debug -i 10.0.0.2"),
        "--sdr " + records, "--fru " + inventory, "-u " + image, "--verify " + image,
        "--save " + dump, "--sdrdump " + dump, "--seldump " + dump, "--wfru " + dump}) {
    check_unread(line);
  }
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

struct Ended {
  int signal;
  std::string err;  // standard error
};

// A run that gets SIGTERM while it waits for a file or for standard input, which say nothing.
Ended killed_while_waiting(std::vector<std::string> words) {
  small_server();
  int silent[2];
  EXPECT_EQ(pipe2(silent, O_CLOEXEC), 0);
  const std::string errors = file_with("killed.err", "");
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(silent[0], STDIN_FILENO);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
    dup2(open(errors.c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    words.insert(words.begin(), "qarn");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    std::exit(qarn_main(static_cast<int>(words.size()), arguments.data()));
  }
  usleep(50000);
  kill(child, SIGTERM);
  int status = 0;
  for (unsigned left = 100; left > 0 && waitpid(child, &status, WNOHANG) != child; left--) {
    if (left == 1) kill(child, SIGKILL);
    usleep(50000);
  }
  close(silent[0]);
  close(silent[1]);
  return {status, content_of(errors)};
}

TEST(Waiting, for_the_other_end_of_a_fifo_ends_with_a_signal) {
  const std::string fifo = path_of("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const char* option :
       {"--sdr", "--fru", "--cfg", "--sdrdump", "--wfru", "--seldump", "--save"}) {
    EXPECT_EQ(killed_while_waiting({option, fifo}).signal, SIGTERM) << option;
  }
}

TEST(Waiting, for_a_password_ends_with_a_signal_before_the_bmc_is_touched) {
  const Ended ended = killed_while_waiting({"--sp1", "--prompt"});
  EXPECT_EQ(ended.signal, SIGTERM);
  EXPECT_EQ(ended.err, "qarn: Terminated: ended before the BMC was touched\n");
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

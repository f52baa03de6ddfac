// What the process is to those around it: signals of every kind, a stop, limits, a terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "platform/platform.h"
#include "tests/harness.h"

int qarn_main(int argc, char** argv);

namespace {

// Starts "qarn WORDS..." in a child; `prepare` runs in it first.
pid_t start(std::vector<std::string> words, const std::function<void()>& prepare) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  prepare();
  words.insert(words.begin(), "qarn");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  std::exit(qarn_main(static_cast<int>(words.size()), arguments.data()));
}

int status_of(pid_t child, int options = 0) {
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, options), child);
  return status;
}

void print_into(const std::string& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(file, STDOUT_FILENO);
  dup2(file, STDERR_FILENO);
}

// Runs with a terminal as all three streams; each time it asks, one of the lines is typed: what the
// terminal shows.
std::string shown_on_terminal(const std::vector<std::string>& words,
                              const std::vector<std::string>& typed) {
  int ours = -1;
  int theirs = -1;
  EXPECT_EQ(openpty(&ours, &theirs, nullptr, nullptr, nullptr), 0);
  const pid_t child = start(words, [&] {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(theirs, stream);
    close(ours);
  });
  std::string shown;
  char byte = 0;
  for (const std::string& line : typed) {
    while (!shown.ends_with(": ") && read(ours, &byte, 1) == 1) shown += byte;
    EXPECT_EQ(write(ours, (line + "\n").data(), line.size() + 1), ssize_t(line.size() + 1));
    shown += '|';
  }
  close(theirs);
  while (read(ours, &byte, 1) == 1) shown += byte;
  close(ours);
  status_of(child);
  return shown;
}

TEST(Process, every_signal_that_would_end_it_waits_for_the_end_of_an_update) {
  sim::reset(sim::Kind::card);
  const std::string image = path_of("image");
  run({"--save", image});
  for (const int number : {SIGALRM, SIGUSR1, SIGXCPU, SIGPWR, SIGIO, SIGRTMIN + 3}) {
    sim::reset(sim::Kind::card);
    sim::machine().bmc.faults = sim::faults("signal netfn=8 cmd=4 skip=9 value=" +
                                            sim::hex_text({static_cast<uint8_t>(number)}));
    const RunResult result = run({"-u", image});
    EXPECT_EQ(result.status, 128 + number);
    EXPECT_NE(result.out.find("Exit Downloader......OK\n"), std::string::npos) << number;
  }
}

TEST(Process, a_signal_that_was_ignored_at_the_start_stays_ignored) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.faults = sim::faults("signal value=1");
  std::signal(SIGHUP, SIG_IGN);
  const RunResult result = run({"-d"});
  std::signal(SIGHUP, SIG_DFL);
  EXPECT_EQ(std::to_string(result.status) + result.err, "0");
}

TEST(Process, a_signal_after_the_last_request_is_said_too) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.faults = sim::faults("signal cmd=2 value=f");
  EXPECT_EQ(run({"-e", "18", "02"}).err, "qarn: Terminated: the run had come to its end\n");
}

TEST(Process, a_stop_from_the_terminal_comes_between_two_requests) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.faults = sim::faults("signal skip=1 value=14");
  const pid_t child = start({"--users"}, [] {
    setpgid(0, 0);  // the kernel stops nobody in a group that no shell could continue
    print_into(path_of("stopped"));
  });
  const int stopped = status_of(child, WUNTRACED);
  EXPECT_TRUE(WIFSTOPPED(stopped));
  const std::string before = content_of(path_of("stopped"));
  EXPECT_NE(before.find("User ID 1"), std::string::npos) << "the request was finished";
  EXPECT_EQ(before.find("User ID 2"), std::string::npos);
  kill(child, SIGCONT);
  EXPECT_EQ(status_of(child), 0);
}

TEST(Process, a_limit_of_file_size_ends_a_dump_but_not_the_run) {
  sim::reset(sim::Kind::card);
  const std::string path = file_with("flash", "older");
  const pid_t child = start({"--save", path}, [] {
    print_into(path_of("limited"));
    const rlimit limit = {6000, 6000};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
  EXPECT_EQ(status_of(child), 0);
  EXPECT_EQ(content_of(path), "older");
  EXPECT_NE(content_of(path_of("limited")).find("Exit Downloader......OK\n"), std::string::npos);
}

TEST(Process, a_signal_ends_the_wait_for_another_run) {
  sim::reset(sim::Kind::card);
  sim::machine().lock_holder = 4711;
  const pid_t child = start({"-d"}, [] {
    print_into(path_of("turn"));
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigprocmask(SIG_BLOCK, &term, nullptr);
    raise(SIGTERM);
  });
  EXPECT_EQ(status_of(child), SIGTERM);
  const std::string says = content_of(path_of("turn"));
  EXPECT_TRUE(says.ends_with("qarn: Terminated: ended before the BMC was touched\n")) << says;
}

TEST(Process, a_signal_that_has_come_ends_a_later_wait_too) {
  int silent[2];
  ASSERT_EQ(pipe2(silent, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    platform::signals_hold();
    raise(SIGTERM);
    platform::signals_let_in(true);
    platform::signals_let_in(false);
    platform::signals_let_in(true);
    char byte = 0;
    ::alarm(20);  // what would end it without the reminder: as SIGALRM is noted, by another errno
    const bool ended = read(silent[0], &byte, 1) < 0 && errno == EINTR;
    std::_Exit(ended && platform::signals_pending() == SIGTERM ? 0 : 1);
  }
  EXPECT_EQ(status_of(child), 0);
  close(silent[0]);
  close(silent[1]);
}

TEST(Process, a_failing_interface_in_mid_update_says_what_is_left_on_a_terminal) {
  sim::reset(sim::Kind::card);
  const std::string image = path_of("image");
  run({"--save", image});
  for (const bool terminal : {false, true}) {
    sim::reset(sim::Kind::card);
    sim::machine().bmc.faults = sim::faults("write_error netfn=8 cmd=4 skip=9 times=0 value=1");
    const RunResult result = run({"-u", image}, terminal);
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.err.find("the firmware is only half updated") != std::string::npos, terminal);
  }
}

TEST(Process, a_terminal_is_shown_no_control_character_of_a_user_name) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.faults = sim::faults("answer cmd=46 bytes=001b5b326a41009b");
  EXPECT_NE(shown_on_terminal({"--users"}, {}).find("User ID 1\t:\t\t?[2jA\r\n"),
            std::string::npos);
  EXPECT_NE(run({"--users"}).out.find("User ID 1\t:\t\t\x1B[2jA\n"), std::string::npos);
}

TEST(Process, a_password_is_asked_for_unseen_and_twice) {
  sim::reset(sim::Kind::card);
  const std::string shown = shown_on_terminal({"--sp1", "--prompt"}, {"secret", "secrex"});
  EXPECT_NE(shown.find("the two passwords differ"), std::string::npos) << shown;
  EXPECT_EQ(shown.find("secre"), std::string::npos) << shown;
}

}  // namespace

// What the process is to those around it: signals of every kind, a stop, limits, waits, another
// run, a driver.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/kcs_intf.h"

namespace {

using sim::machine;

constexpr char ENDED_BEFORE[] = "qarn: Terminated: ended before the BMC was touched\n143";

TEST(Process, every_signal_that_would_end_it_waits_for_the_end_of_an_update) {
  const std::string image = path_of("image");
  run("--save " + image);
  for (const int number : {SIGALRM, SIGUSR1, SIGXCPU, SIGPWR, SIGIO, SIGRTMIN + 3}) {
    const std::string hex = sim::hex_text({static_cast<uint8_t>(number)});
    const RunResult result = run("-u " + image, {"signal netfn=8 cmd=4 skip=9 value=" + hex});
    EXPECT_EQ(result.status, 128 + number);
    EXPECT_TRUE(result.out.ends_with("Exit Downloader......OK\n")) << number;
  }
}

TEST(Process, a_signal_that_was_ignored_at_the_start_stays_ignored) {
  const auto ignore = [] { std::signal(SIGHUP, SIG_IGN); };
  EXPECT_EQ(run("-d", {.faults = "signal value=1", .prepare = ignore}).told(), "0");
}

TEST(Process, a_signal_after_the_last_request_is_said_too) {
  EXPECT_EQ(run("-e 18 02", {"signal cmd=2 value=f"}).err,
            "qarn: Terminated: the run had come to its end\n");
}

TEST(Process, a_stop_from_the_terminal_comes_between_two_requests) {
  // The kernel stops nobody in a group that no shell could continue.
  const RunResult result =
      run("--users", {.faults = "signal skip=1 value=14", .prepare = [] { setpgid(0, 0); }});
  EXPECT_NE(result.stopped.find("User ID 1"), std::string::npos) << "the request was finished";
  EXPECT_EQ(result.stopped.find("User ID 2"), std::string::npos);
  EXPECT_EQ(result.status, 0);
}

TEST(Process, a_limit_of_file_size_ends_a_dump_but_not_the_run) {
  const std::string path = file_with("flash", "older");
  const auto limit_files = [] {
    const rlimit limit = {6000, 6000};
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  const RunResult result = run("--save " + path, {.prepare = limit_files});
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.ends_with("Exit Downloader......OK\n"));
  EXPECT_EQ(content_of(path), "older");
}

TEST(Process, a_signal_that_has_come_ends_a_later_wait_too) {
  const auto is_ended = [] {
    int silent[2];
    EXPECT_EQ(pipe(silent), 0);
    platform::signals_hold();
    raise(SIGTERM);
    platform::signals_let_in(true);
    platform::signals_let_in(false);
    platform::signals_let_in(true);
    ::alarm(20);  // would end it without the reminder
    char byte = 0;
    return read(silent[0], &byte, 1) < 0 && errno == EINTR && ::alarm(0) > 10;
  };
  EXPECT_EXIT(std::_Exit(is_ended() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(Process, a_signal_that_is_ignored_at_the_start_does_not_count_when_signals_are_let_in) {
  const auto is_ignored = [] {
    signal(SIGHUP, SIG_IGN);
    platform::signals_hold();
    platform::signals_let_in(true);
    raise(SIGHUP);
    platform::signals_let_in(false);
    return platform::signals_pending() == 0;
  };
  EXPECT_EXIT(std::_Exit(is_ignored() ? 0 : 1), testing::ExitedWithCode(0), "");
}

#ifndef __SANITIZE_ADDRESS__
TEST(Process, an_index_past_the_end_is_said_and_ends_it) {
  const std::string_view text = "index";
  const char said[] = "^qarn: an index is past the end: this is a fault of qarn\n$";
  EXPECT_EXIT(std::putchar(text[text.size()]), testing::KilledBySignal(SIGABRT), said);
  EXPECT_EXIT(text.substr(text.size() + 1), testing::KilledBySignal(SIGABRT), said);
}
#endif

TEST(Waiting, for_a_bmc_that_does_not_answer_ends_ten_seconds_after_a_signal_at_the_earliest) {
  KCS_bounds = {1, 300000};
  for (const char* line : {"--users", "--users --open"}) {
    EXPECT_EQ(run(line, {"signal cmd=46 value=2; silent cmd=46"}).told(),
              "qarn: Interrupt: the request under way is finished first, so that the BMC's "
              "interface stays usable\nqarn: no answer from the BMC for 10 seconds: the last "
              "request may not have been carried out\n130")
        << line;
  }
}

TEST(Waiting, of_more_than_three_seconds_is_shown_on_a_terminal_and_gone_afterwards) {
  KCS_bounds = {1, 300000};
  const auto shown = [](const std::string& what, unsigned last) {
    std::string lines;
    for (unsigned second = 4; second <= last; second++) {
      lines += "\0337\033[?7l\033[Kwaiting for " + what + ": " + std::to_string(second) +
               " s\033[?7h\0338";
    }
    return lines + "\033[K";
  };
  const std::string answer = "an answer from the BMC";
  const auto told = [](const std::string& line, const std::string& faults) {
    return run(line, {.faults = faults, .terminals = "2"}).terminal;
  };
  EXPECT_EQ(told("--users", "late cmd=46 value=3"), "");
  EXPECT_EQ(told("--users", "late cmd=46 value=c"),
            "\0337\033[?7l\033[Kwaiting for an answer from the BMC: 3 s\033[?7h\0338" +
                shown(answer, 12));
  EXPECT_EQ(told("--users --open", "late cmd=46 value=6"), shown(answer, 6));
  EXPECT_EQ(run("--users", {"late cmd=46 value=c"}).err, "") << "this is no terminal";
  EXPECT_EQ(told("--debug --users", "late cmd=46 value=c"), "") << "requests are traced there";
  EXPECT_EQ(
      told("--sdr " + file_with("s", "_SDR (\n_SDR_TYPE 01\n_REC_LEN 05\n01 00 51 01 00\n)\n"), ""),
      "\033[KSDR 1/1\r\033[K" + shown("the BMC to restart", 8));
  EXPECT_EQ(told("--save " + path_of("saved"), ""), shown("the card to start", 8));
}

TEST(Waiting, is_not_shown_by_a_run_in_the_background) {
  // Another group gets the terminal; an end of the run as its owner would drop what was shown.
  const auto leave_terminal = [] {
    setsid();
    ioctl(STDERR_FILENO, TIOCSCTTY, 0);
    std::atexit([] { ioctl(STDERR_FILENO, TIOCNOTTY); });
    const pid_t front = fork();
    if (front == 0) _exit(0);
    setpgid(front, front);
    tcsetpgrp(STDERR_FILENO, front);
  };
  const RunResult result =
      run("--users --open",
          {.faults = "late cmd=46 value=6", .terminals = "2", .prepare = leave_terminal});
  EXPECT_EQ(result.terminal + std::to_string(result.status), "0");
}

TEST(Waiting, has_left_the_terminal_when_a_stop_comes) {
  const auto show_stop = [] {
    std::signal(SIGTSTP, [](int) { EXPECT_EQ(write(STDERR_FILENO, "stop", 4), 4); });
  };
  // It comes at the first look for the card, and counts before the second.
  const RunResult result =
      run("--save " + path_of("saved"),
          {.faults = "signal cmd=1 skip=2 value=14", .terminals = "2", .prepare = show_stop});
  EXPECT_TRUE(result.terminal.ends_with("start: 8 s\033[?7h\0338\033[Kstop")) << result.terminal;
}

TEST(Waiting, for_the_other_end_of_a_fifo_ends_with_a_signal) {
  const std::string fifo = new_fifo("fifo");
  for (const std::string option :
       {"--sdr ", "--fru ", "--cfg ", "--sdrdump ", "--wfru ", "--seldump ", "--save "}) {
    EXPECT_EQ(run(option + fifo, {.signal = SIGTERM}).status, 128 + SIGTERM) << option;
  }
}

TEST(Waiting, for_a_password_ends_with_a_signal_before_the_bmc_is_touched) {
  const std::string silent = new_fifo("silent");
  const auto say_nothing = [&] { dup2(open(silent.c_str(), O_RDWR | O_CLOEXEC), STDIN_FILENO); };
  EXPECT_EQ(run("--sp1 --prompt", {.signal = SIGTERM, .prepare = say_nothing}).told(),
            ENDED_BEFORE);
}

TEST(Turn, is_waited_for_while_another_run_uses_the_bmc_and_given_up_after_a_minute) {
  setting("LOCK", "4711");
  setting("LOCK_UNTIL", "3");
  const std::string waits =
      "qarn: another run, process 4711, uses the BMC: waiting up to 60 seconds for it\n";
  const RunResult waited = run("-e 18 01");
  EXPECT_EQ(waited.told(), waits + "0");
  EXPECT_EQ(waited.traffic, repeated(3, "sleep 1000000\n") + "18 01\n18 01\n");
  setting("LOCK_UNTIL", "1000000");
  for (const char* line : {"-d", "-d --open"})
    EXPECT_EQ(run(line).told(),
              waits + "qarn: the other run still uses the BMC: nothing was done\n255");
  const auto be_told_to_end = [] {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    raise(SIGTERM);
  };
  EXPECT_EQ(run("-d", {.prepare = be_told_to_end}).told(), waits + ENDED_BEFORE);
}

TEST(Ports, that_belong_to_a_driver_are_named_before_they_are_touched) {
  sim::reset(sim::Kind::plain);
  setting("PORT_OWNERS", "0000-0cf7 : PCI Bus\n  0ca2-0ca3 : IPI0001:00\n    0ca2-0ca2 : ipmi_si");
  EXPECT_EQ(run("--users").err,
            "qarn: the ports CA3 and CA2 belong to the kernel's driver ipmi_si: use --open\n");
  EXPECT_EQ(run("--users --open").err, "");
  sim::reset(sim::Kind::card);
  setting("USER", "nobody");
  setting("LOCKDOWN", "none [integrity] confidentiality");
  EXPECT_EQ(run("--users").err, "");
  EXPECT_EQ(run("--users", {.terminals = "2"}).terminal,
            "qarn: the kernel is locked down and keeps programs from the ports: use --open\n");
}

}  // namespace

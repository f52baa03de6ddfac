// The process around a whole command.
#include "fuzz/process.h"

#include <fcntl.h>
#include <getopt.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <iterator>
#include <utility>

#include "base/dump_file.h"
#include "base/process_end.h"
#include "base/progress.h"
#include "firmware/flash.h"
#include "fuzz/fuzz.h"

int qarn_main(int argc, char** argv);

namespace {

// Port reads, or looks for a signal, that a run may take.
constexpr unsigned MOST_WORK = 200000;
constexpr int ENDING_SIGNALS[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGTSTP};

// Thrown where a process would end, or where the machine would be switched off.
struct Ended {
  int status;
};
struct Given_up {};

fuzz::Process now;
std::vector<void (*)()> at_end;
volatile sig_atomic_t noted = 0;
unsigned looks = 0;

// Only the simulator's own signals are a part of the input.
void note(int number, siginfo_t* from, void*) {
  if (from->si_code != SI_TKILL) _exit(128 + number);
  if (number != SIGTSTP) noted = number;
}

bool names(const std::string& streams, int stream) {
  return streams.find(static_cast<char>('0' + stream)) != std::string::npos;
}

// Standard input and output of a run, and the fuzzer's own before and after.
struct Streams {
  int input = dup(STDIN_FILENO);
  int output = dup(STDOUT_FILENO);
  FILE* error = stderr;
  char* text = nullptr;  // of the run's standard error
  size_t length = 0;

  Streams() {
    std::fflush(stdout);
    take(STDIN_FILENO, fuzz::INPUT, O_RDONLY | O_CREAT);
    take(STDOUT_FILENO, now.full ? "/dev/full" : fuzz::OUTPUT, O_RDWR | O_CREAT | O_TRUNC);
    // The handle stays: sanitizers report to it.
    stderr = open_memstream(&text, &length);
  }

  ~Streams() {
    std::fflush(stdout);
    __fpurge(stdout);
    std::clearerr(stdout);
    give_back(STDIN_FILENO, input);
    give_back(STDOUT_FILENO, output);
    std::fclose(stderr);
    stderr = error;
    std::free(text);
  }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

  static void take(int stream, const char* path, int flags) {
    const int handle = open(path, flags | O_CLOEXEC, 0600);
    fuzz::require(handle >= 0 && dup2(handle, stream) == stream);
    close(handle);
    if (names(now.closed, stream)) close(stream);
  }

  static void give_back(int stream, int handle) {
    close(stream);
    if (handle < 0) return;
    dup2(handle, stream);
    close(handle);
  }

  std::string said() {
    std::fflush(stderr);
    return {text, length};
  }
};

// While it lives, the ending signals are noted.
struct Signals {
  struct sigaction before[std::size(ENDING_SIGNALS)];

  Signals() {
    struct sigaction action {};
    action.sa_sigaction = note;
    action.sa_flags = SA_SIGINFO;
    for (size_t i = 0; i < std::size(before); i++)
      sigaction(ENDING_SIGNALS[i], &action, &before[i]);
  }
  ~Signals() {
    for (size_t i = 0; i < std::size(before); i++)
      sigaction(ENDING_SIGNALS[i], &before[i], nullptr);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
};

int status_of(const std::function<int()>& part) {
  try {
    return part();
  } catch (const Ended& ended) {
    return ended.status;
  }
}

// The way that exit goes, which a signal may cut short.
int end(int status) {
  while (!at_end.empty()) {
    void (*last)() = std::exchange(at_end.back(), nullptr);
    at_end.pop_back();
    const int cut = status_of([&] { return last(), -1; });
    if (cut >= 0) return cut;
  }
  return status;
}

// What a new process would have afresh.
void forget_run(bool saving) {
  at_end.clear();
  noted = 0;
  looks = 0;
  progress_end();
  if (saving) fp = nullptr;  // it was the dump
  close_image();
  flashfilename = "";
  driverHandle = -1;
  optind = 0;
}

}  // namespace

namespace fuzz {

Result run(const Process& process, std::vector<std::string> words, bool saving) {
  now = process;
  words.insert(words.begin(), "qarn");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  forget_run(false);
  Result result = {};
  {
    const Signals signals;
    Streams streams;
    try {
      result.gave = 0xFF & status_of([&] {
                      return qarn_main(static_cast<int>(words.size()), arguments.data());
                    });
      result.status = end(result.gave);
      require(noted == 0 || result.status == 128 + noted);
    } catch (const Given_up&) {
      result.given_up = true;
      dump_abandon();
    }
    result.err = streams.said();
  }
  forget_run(saving);
  return result;
}

}  // namespace fuzz

void at_process_end(void (*last)()) {
  at_end.push_back(last);
}

void end_process(int status) {
  throw Ended{status};
}

// Of the C library: the fuzzer's own streams do not count, and a disk takes long.
extern "C" int isatty(int stream) noexcept {
  return names(now.terminals, stream) ? 1 : 0;
}

extern "C" int fsync(int) {
  return 0;
}

namespace platform {

void signals_hold() {
  std::signal(SIGPIPE, SIG_IGN);
}

int signals_pending() {
  if (++looks > MOST_WORK || sim::machine().port_reads > MOST_WORK) throw Given_up{};
  if (looks > now.looks && noted == 0) noted = now.signal;
  return noted;
}

void signals_stop_here() {
}

void signals_let_in(bool) {
}

int terminal_echo(bool) {
  return names(now.terminals, STDIN_FILENO) ? 0 : -1;
}

int core_off() {
  return 0;
}

void raise_default(int number) {
  throw Ended{128 + number};
}

}  // namespace platform

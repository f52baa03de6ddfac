// A whole command in a process of its own: a child of the fuzz target's.
#include <fcntl.h>
#include <sanitizer/common_interface_defs.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "fuzz/command.h"

// Some builds have none of these.
#pragma weak __sanitizer_print_stack_trace
#pragma weak __sanitizer_set_death_callback
extern uint8_t edges_begin[] __asm__("__start___sancov_cntrs") __attribute__((weak));
extern uint8_t edges_end[] __asm__("__stop___sancov_cntrs") __attribute__((weak));

int qarn_main(int argc, char** argv);

// What callers of the procedures that CMakeLists.txt names get instead, and how to get there.
int note_options(int, char**, Options*) __asm__("__wrap__Z13parse_optionsiPPcP7Options");
int parse(int, char**, Options*) __asm__("__real__Z13parse_optionsiPPcP7Options");
int count_look() __asm__("__wrap__ZN8platform15signals_pendingEv");
int pending() __asm__("__real__ZN8platform15signals_pendingEv");
int set_echo(bool) __asm__("__wrap__ZN8platform13terminal_echoEb");
void check_and_raise(int) __asm__("__wrap__ZN8platform13raise_defaultEi");
void raise_last(int) __asm__("__real__ZN8platform13raise_defaultEi");

namespace {

namespace files = std::filesystem;

constexpr char FOLDER[] = "command-run";
constexpr unsigned MOST_WORK = 200000;  // port reads, or looks for a signal

// What a child leaves to its parent.
struct Left {
  bool over;   // and nothing was found
  int signal;  // that ends it; 0: none
  uint8_t edges[0x10000];
};
Left* const left = static_cast<Left*>(
    mmap(nullptr, sizeof(Left), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

fuzz::Run run;  // the child's own
unsigned looks = 0;

void leave(int signal) {
  std::copy(edges_begin, edges_end, left->edges);
  left->signal = signal;
  left->over = true;
}

void check(int signal) {
  std::fflush(nullptr);
  run.err = fuzz::content_of("/proc/self/fd/2");
  run.command.signal = 0;
  looks = 0;
  sim::machine().port_reads = 0;
  fuzz::require(pending() == signal);
  fuzz::check(run);
  leave(signal);
}

void check_at_exit() {
  check(0);
  _exit(0);
}

void take(int stream, const char* path, int flags) {
  const int handle = open(path, flags | O_CLOEXEC, 0600);
  fuzz::require(handle >= 0 && dup2(handle, stream) == stream);
  close(handle);
}

void enter_folder() {
  files::remove_all(FOLDER);
  files::create_directories(files::path(FOLDER) / "folder");
  files::current_path(FOLDER);
  for (const auto& [name, content] : run.command.files) fuzz::file(name.c_str(), content);
  std::error_code ignored;  // a file of the input may have the name of a link
  files::remove(fuzz::HARD_LINKS[1]);
  files::create_symlink("dump", "link", ignored);
  files::create_symlink("absent", "nowhere", ignored);
  files::create_symlink("loop", "loop", ignored);
  const char* hard = fuzz::file(fuzz::HARD_LINKS[0], fuzz::OLDER);
  files::create_hard_link(hard, fuzz::HARD_LINKS[1], ignored);
  take(STDIN_FILENO, fuzz::STREAMS[STDIN_FILENO], O_RDONLY | O_CREAT);
  const char* output = run.command.full ? "/dev/full" : fuzz::STREAMS[STDOUT_FILENO];
  take(STDOUT_FILENO, output, O_RDWR | O_CREAT | O_TRUNC);
  take(STDERR_FILENO, fuzz::STREAMS[STDERR_FILENO], O_RDWR | O_CREAT | O_TRUNC);
}

// What a fault of the program says is for the parent, which ends by it.
void show_faults() {
  std::signal(SIGABRT, [](int) {
    if (__sanitizer_print_stack_trace != nullptr) __sanitizer_print_stack_trace();
  });
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(nullptr);
}

[[noreturn]] void live() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  platform::core_off();
  enter_folder();
  show_faults();
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO}) {
    if (fuzz::names(run.command.closed, stream)) close(stream);
  }
  std::atexit(check_at_exit);
  char name[] = "qarn";
  std::vector<char*> words = {name};
  for (std::string& word : run.command.words) words.push_back(word.data());
  words.push_back(nullptr);
  std::exit(qarn_main(static_cast<int>(words.size()) - 1, words.data()));
}

}  // namespace

void fuzz::run(const Command& command) {
  *left = {};
  const pid_t child = fork();
  if (child == 0) {
    ::run.command = command;
    live();
  }
  int status = 0;
  while (TEMP_FAILURE_RETRY(waitpid(child, &status, WUNTRACED)) == child && WIFSTOPPED(status)) {
    kill(child, SIGCONT);
  }
  if (!left->over || left->signal != (WIFSIGNALED(status) ? WTERMSIG(status) : 0)) {
    const std::string said = content_of(files::path(FOLDER) / STREAMS[STDERR_FILENO]);
    std::fprintf(stderr, "%s\nThe child's wait status is %x.\n", said.c_str(), status);
    std::abort();
  }
  std::copy_n(left->edges, edges_end - edges_begin, edges_begin);
}

int note_options(int argc, char** argv, Options* options) {
  // The first of the exit handlers, before one that raises a signal.
  on_exit([](int status, void*) { run.gave = status & 0xFF; }, nullptr);
  const int result = parse(argc, argv, options);
  run.parsed = result == OPTIONS_ACCEPTED;
  run.options = *options;
  return result;
}

int count_look() {
  if (++looks == run.command.looks + 1 && run.command.signal != 0) raise(run.command.signal);
  if (looks <= MOST_WORK && sim::machine().port_reads <= MOST_WORK) return pending();
  leave(0);
  _exit(0);
}

int set_echo(bool) {
  return isatty(STDIN_FILENO) - 1;
}

void check_and_raise(int signal) {
  check(signal);
  raise_last(signal);
}

// Of the C library: a terminal is what the input says, and a disk takes long.
extern "C" int isatty(int stream) noexcept {
  return fuzz::names(run.command.terminals, stream) ? 1 : 0;
}

extern "C" int fsync(int) {
  return 0;
}

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

namespace files = std::filesystem;

// Only a build with sanitizers, or with a fuzzer, has these.
#pragma weak __sanitizer_set_death_callback
extern uint8_t edges_begin[] __asm__("__start___sancov_cntrs") __attribute__((weak));
extern uint8_t edges_end[] __asm__("__stop___sancov_cntrs") __attribute__((weak));

int qarn_main(int argc, char** argv);

// What the callers of four procedures get instead (CMakeLists.txt), and how that gets there.
int note_options(int, char**, Options*) __asm__("__wrap__Z13parse_optionsiPPcP7Options");
int parse(int, char**, Options*) __asm__("__real__Z13parse_optionsiPPcP7Options");
int count_look() __asm__("__wrap__ZN8platform15signals_pendingEv");
int pending() __asm__("__real__ZN8platform15signals_pendingEv");
void check_and_raise(int) __asm__("__wrap__ZN8platform13raise_defaultEi");
void raise_last(int) __asm__("__real__ZN8platform13raise_defaultEi");
int set_echo(bool) __asm__("__wrap__ZN8platform13terminal_echoEb");

namespace {

constexpr char FOLDER[] = "folder";
constexpr char ERRORS[] = "errors";
constexpr unsigned MOST_WORK = 200000;  // port reads, or looks for a signal

// What a child leaves to its parent.
struct Left {
  bool over;   // and nothing was found
  int signal;  // that ends it; 0: none
  uint8_t edges[0x10000];
};
Left* const left = static_cast<Left*>(
    mmap(nullptr, sizeof(Left), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

fuzz::Command command;  // of the child
unsigned looks = 0;

void leave(int signal) {
  std::copy(edges_begin, edges_end, left->edges);
  left->signal = signal;
  left->over = true;
}

void check(int signal) {
  std::fflush(nullptr);
  command.err = fuzz::content_of("/proc/self/fd/2");
  fuzz::require(pending() == signal);
  command.signal = 0;
  looks = 0;
  sim::machine().port_reads = 0;
  fuzz::check(command);
  leave(signal);
}

void take(int stream, const char* path) {
  const int handle = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  fuzz::require(handle >= 0 && dup2(handle, stream) == stream);
  close(handle);
  if (fuzz::is_among(command.closed, '0' + stream)) close(stream);
}

void make_files() {
  for (const char* path : {FOLDER, ERRORS, "output"}) files::remove_all(path);
  files::create_directories(files::path(FOLDER) / "folder");
  take(STDERR_FILENO, ERRORS);
  take(STDOUT_FILENO, command.full ? "/dev/full" : "output");
  files::current_path(FOLDER);
  for (const auto& [name, content] : command.files) fuzz::file(name.c_str(), content);
  take(STDIN_FILENO, "stdin");
  std::error_code ignored;  // a file of the input may have the name of a link
  files::create_symlink("dump", "link", ignored);
  files::create_symlink("absent", "nowhere", ignored);
  files::create_symlink("loop", "loop", ignored);
  files::remove(fuzz::HARD_LINKS[1]);
  files::create_hard_link(fuzz::file(fuzz::HARD_LINKS[0], fuzz::OLDER), fuzz::HARD_LINKS[1]);
}

[[noreturn]] void live() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::signal(SIGABRT, SIG_DFL);  // the fuzzer is to hear of what ends it from the parent
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(nullptr);
  platform::core_off();
  make_files();
  std::atexit([] {
    check(0);
    _exit(0);
  });
  std::vector<char*> words;
  command.words.insert(command.words.begin(), "qarn");
  for (std::string& word : command.words) words.push_back(word.data());
  words.push_back(nullptr);
  std::exit(qarn_main(static_cast<int>(words.size()) - 1, words.data()));
}

}  // namespace

void fuzz::run(const Command& given) {
  left->over = false;
  left->signal = 0;
  const pid_t child = fork();
  if (child == 0) {
    command = given;
    live();
  }
  int status = 0;
  while (TEMP_FAILURE_RETRY(waitpid(child, &status, WUNTRACED)) == child && WIFSTOPPED(status)) {
    kill(child, SIGCONT);
  }
  if (!left->over || left->signal != (WIFSIGNALED(status) ? WTERMSIG(status) : 0)) {
    std::fprintf(stderr, "%s\nIts wait status: %x\n", content_of(ERRORS).c_str(), status);
    std::abort();
  }
  std::copy_n(left->edges, edges_end - edges_begin, edges_begin);
}

int note_options(int argc, char** argv, Options* options) {
  // It is called before the handler that raises a signal.
  on_exit([](int status, void*) { command.gave = status & 0xFF; }, nullptr);
  const int result = parse(argc, argv, options);
  command.parsed = result == OPTIONS_ACCEPTED;
  command.options = *options;
  return result;
}

int count_look() {
  if (looks++ == command.looks) raise(static_cast<int>(command.signal));
  if (looks <= MOST_WORK && sim::machine().port_reads <= MOST_WORK) return pending();
  leave(0);
  _exit(0);
}

void check_and_raise(int signal) {
  check(signal);
  raise_last(signal);
}

// What the parent has freed and keeps would make each fork slower.
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=1:thread_local_quarantine_size_kb=64";
}

extern "C" int isatty(int stream) noexcept {
  return fuzz::is_among(command.terminals, '0' + stream) ? 1 : 0;
}

int set_echo(bool) {
  return isatty(STDIN_FILENO) - 1;
}

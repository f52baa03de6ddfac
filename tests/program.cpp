// The program of the tests in Python: qarn on the simulated server, with short waits, a limit of
// file size that can be set, allocations that fail, and files that SIGURG makes unreadable. A run
// that ends with the kernel's device open, or a standard stream closed, has a status of its own.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "sim/machine.h"
#include "textfile/lines.h"
#include "transport/kcs_intf.h"

int qarn_main(int argc, char** argv);

namespace {

constexpr int LEFT_IN_DISORDER = 99;

unsigned long number_in(const char* variable, unsigned long otherwise) {
  const char* value = std::getenv(variable);
  return value != nullptr ? std::strtoul(value, nullptr, 10) : otherwise;
}

unsigned long allocations = 0;
const unsigned long failing = number_in("QARN_TEST_FAILING_ALLOCATION", 0);

// Each handle that only reads becomes that of a folder.
void make_files_unreadable(int) {
  const int folder = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int handle = STDERR_FILENO + 1; handle < folder; handle++)
    if ((fcntl(handle, F_GETFL) & O_ACCMODE) == O_RDONLY) dup2(folder, handle);
}

}  // namespace

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return ++allocations == failing ? nullptr : operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return ++allocations == failing ? nullptr : operator new[](size);
}

int main(int argc, char** argv) {
  KCS_bounds = {static_cast<unsigned>(number_in("QARN_TEST_POLLS", 20)),
                static_cast<unsigned>(number_in("QARN_TEST_PASSES", 3))};
  file_limit = number_in("QARN_TEST_FILE_LIMIT", file_limit);
  std::atexit([] {
    if (allocations >= failing && failing != 0) std::fputs("allocation failed\n", stderr);
  });
  std::signal(SIGURG, make_files_unreadable);
  sim::machine();
  const int status = qarn_main(argc, argv);
  bool in_order = !sim::machine().device_is_open;
  for (const int stream : {0, 1, 2}) in_order = in_order && fcntl(stream, F_GETFD) >= 0;
  return in_order ? status : LEFT_IN_DISORDER;
}

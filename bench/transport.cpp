// What one request costs: port accesses, processor time, and the whole process.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "bench/memory.h"
#include "bench/paths.h"

namespace {

constexpr uint8_t DEVICE_ID[] = {0x20, 0x18, 0x01};

struct Accesses {
  uint64_t reads = 0;
  uint64_t writes = 0;
  uint64_t total() const {
    return reads + writes;
  }
};

// Port accesses of one request of `length` bytes with `answered` bytes of completion code and data.
Accesses accesses_of(unsigned length, unsigned answered) {
  start_on_ports();
  sim::machine().bmc.faults = {
      {.kind = sim::FaultKind::answer, .times = 0, .bytes = sim::Bytes(answered)}};
  sim::machine().port_reads = sim::machine().port_writes = 0;
  uint8_t request[64] = {0x20, 0x18, 0x01};
  Response response;
  exchange({request, length}, &response);
  return {sim::machine().port_reads, sim::machine().port_writes};
}

// A NetFn/LUN byte, a command and 16 bytes of answer: Get Device ID.
void get_device_id(benchmark::State& state) {
  start_on_ports();
  Response response;
  for (auto _ : state) {
    exchange(DEVICE_ID, &response);
    benchmark::DoNotOptimize(response);
  }
  const Accesses cost = accesses_of(3, 16);
  const uint64_t total = cost.total();
  state.counters["port_reads"] = static_cast<double>(cost.reads);
  state.counters["port_writes"] = static_cast<double>(cost.writes);
  state.counters["per_request_byte"] = static_cast<double>(accesses_of(4, 16).total() - total);
  state.counters["per_response_byte"] = static_cast<double>(accesses_of(3, 17).total() - total);
}
BENCHMARK(get_device_id);

std::string sibling(const char* program) {
  char self[1024] = {};
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  const std::string path(self, length > 0 ? static_cast<size_t>(length) : 0);
  const std::string folder = path.substr(0, path.rfind('/'));
  return folder.substr(0, folder.rfind('/')) + "/" + program;
}

// Runs "qarn-sim -e 18 01" in the process that fork has made.
[[noreturn]] void become(const std::string& program) {
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  execl(program.c_str(), "qarn", "-e", "18", "01", static_cast<char*>(nullptr));
  _exit(127);
}

// The most memory that the process has at once, in kB; 0 when that cannot be seen. It is stopped
// just before its end, because the peak that rusage reports afterwards includes this process's own.
double peak_of(const std::string& program) {
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    become(program);
  }
  int status = 0;
  double peak = 0;
  if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return 0;
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACEEXIT);
  while (ptrace(PTRACE_CONT, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
         WIFSTOPPED(status)) {
    peak = kib_of("/proc/" + std::to_string(child) + "/status", "VmHWM:");
  }
  return peak;
}

// The whole process; its simulated machine included.
void whole_process(benchmark::State& state) {
  const std::string program = sibling("qarn-sim");
  for (auto _ : state) {
    const auto before = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) become(program);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
      state.SkipWithError("qarn-sim did not run");
      break;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - before;
    state.SetIterationTime(taken.count());
  }
  state.counters["peak_kB"] = peak_of(program);
}
BENCHMARK(whole_process)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

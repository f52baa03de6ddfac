// S-record parsing, and what an update, a save and a verification cost on the wire.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "bench/paths.h"
#include "firmware/flash.h"
#include "firmware/srecord.h"

namespace {

int print_nothing(const char*, ...) {
  return 0;
}

// Records of 16 data bytes that cover `size` bytes from `address` on.
std::string records(uint32_t address, uint32_t size) {
  std::string text;
  for (uint32_t i = 0; i < size; i += 16) {
    char line[64];
    std::snprintf(line, sizeof line, "S315%08X000102030405060708090A0B0C0D0E%02X00\r\n",
                  address + i, i >> 4 & 0xFF);
    text += line;
  }
  return text;
}

void parse(benchmark::State& state) {
  std::string text = records(0, 1 << 20);
  FILE* file = fmemopen(text.data(), text.size(), "r");
  const bool whole = state.range(0) == 0;
  for (auto _ : state) {
    std::rewind(file);
    srecord_begin(file);
    unsigned line = 0;
    uint64_t end = 0;
    if (whole) benchmark::DoNotOptimize(srecord_fault(file, &line, &end));
    data.eof = 0;
    while (!whole && data.eof == 0) srecord_fill(&data);
  }
  std::fclose(file);
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
  state.SetLabel(whole ? "check" : "portions");
}
BENCHMARK(parse)->Arg(0)->Arg(1);

unsigned requests() {
  unsigned count = 0;
  const std::string text = sim::transcript();
  for (size_t at = text.find("20 0"); at != std::string::npos; at = text.find("\n20 0", at + 1)) {
    count++;
  }
  return count;
}

// Requests per KiB of flash, and processor time a request, the simulated card's included.
void walk(benchmark::State& state, int (*action)(), double kib) {
  flashprintf = print_nothing;
  const std::string path = "/tmp/qarn_bench_" + std::to_string(getpid()) + ".mot";
  flashfilename = path.c_str();
  FILE* file = std::fopen(path.c_str(), "we");
  if (file == nullptr) return state.SkipWithError("no file");
  std::fputs(records(0xFFF04000, 0xC000).c_str(), file);
  std::fclose(file);
  double sent = 0;
  for (auto _ : state) {
    start_on_device(sim::Kind::card);
    enter_downloader();
    action();
    sent = requests();
  }
  std::remove(path.c_str());
  state.counters["requests/KiB"] = sent / kib;
  state.counters["time/request"] = benchmark::Counter(
      sent, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

int save() {
  flashfilename = "/dev/null";
  read_flash();
  return 1;
}
BENCHMARK_CAPTURE(walk, update, program_firmware, 48.0);
BENCHMARK_CAPTURE(walk, save, save, 64.0);

// Nothing differs: the card holds the image.
int update_and_verify() {
  return program_firmware() == 1 && verify_firmware() == 1;
}
BENCHMARK_CAPTURE(walk, update_and_verify, update_and_verify, 48.0);

}  // namespace

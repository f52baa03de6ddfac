// The largest event log there can be: what reading, formatting and writing it costs.
#include "sel/sel.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <fstream>
#include <thread>

#include "bench/memory.h"
#include "bench/paths.h"

namespace {

void fill_log() {
  start_on_device(sim::Kind::card);
  auto& records = sim::machine().bmc.sel.records;
  records.assign(sim::SEL_MOST, {0, 0, 0x02, 0x10, 0x20, 0x30, 0x65, 0x20, 0, 4, 1, 2, 3, 4, 5, 6});
  for (unsigned id = 0; id < sim::SEL_MOST; id++) {
    records[id][0] = static_cast<uint8_t>(id);
    records[id][1] = static_cast<uint8_t>(id >> 8);
  }
}

// The most memory that reading the log takes at once. A first read has made the simulator's own
// buffers as large as they get.
double peak_bytes() {
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);  // as in a fresh process: freed blocks are given back
  fill_log();
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts over
  const double before = kib_of("/proc/self/status", "VmRSS:");
  SelList list{};
  get_sel(&list);
  return (kib_of("/proc/self/status", "VmHWM:") - before) * 1024;
}

// The transactions alone, for comparison: the same requests, nothing made of the responses.
void BM_transactions(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    fill_log();
    state.ResumeTiming();
    for (unsigned id = 0; id < sim::SEL_MOST; id++) {
      const uint8_t request[] = {
          0x20, 0x28, 0x43, 0, 0, static_cast<uint8_t>(id), static_cast<uint8_t>(id >> 8), 0, 0xFF};
      Response response;
      benchmark::DoNotOptimize(exchange(request, &response));
    }
  }
  state.SetItemsProcessed(state.iterations() * int64_t{sim::SEL_MOST});
}
BENCHMARK(BM_transactions)->Unit(benchmark::kMillisecond);

void BM_get_sel(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    fill_log();
    state.ResumeTiming();
    SelList list{};
    if (get_sel(&list) != 1 || list.count != sim::SEL_MOST) state.SkipWithError("log not read");
    benchmark::DoNotOptimize(list.records.get());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{sim::SEL_MOST});
  // A new thread has a heap of its own: it cannot use again what other benchmarks have freed.
  double peak = 0;
  std::thread([&peak] { peak = peak_bytes(); }).join();
  state.counters["peak_bytes_an_entry"] = peak / sim::SEL_MOST;
}
BENCHMARK(BM_get_sel)->Unit(benchmark::kMillisecond);

void BM_SelToFile2(benchmark::State& state) {
  fill_log();
  SelList list{};
  get_sel(&list);
  for (auto _ : state) {
    if (SelToFile2("/dev/null", &list) != 1) state.SkipWithError("file not written");
  }
  state.SetItemsProcessed(state.iterations() * int64_t{sim::SEL_MOST});
}
BENCHMARK(BM_SelToFile2)->Unit(benchmark::kMillisecond);

}  // namespace

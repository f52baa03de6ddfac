// Sensor data records: the text of a full repository, and requests per record.
#include "sdr/sdr.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench/paths.h"

namespace {

const std::string FILE_NAME = "/tmp/qarn_bench_" + std::to_string(getpid()) + ".sdr";
const char* const PATH = FILE_NAME.c_str();

// `count` full sensor records of 59 bytes.
void fill(sdr_repository* repository, uint32_t count) {
  constexpr uint8_t BODY = 54;
  repository->psdr_entry = std::make_unique<sdr_entry[]>(count);
  repository->room = count;
  repository->record_count = count;
  for (uint32_t i = 0; i < count; i++) {
    sdr_entry& entry = repository->psdr_entry[i];
    entry = {static_cast<uint8_t>(i),          static_cast<uint8_t>(i >> 8), 0x51, 0x01, BODY,
             std::make_unique<uint8_t[]>(BODY)};
    entry.sdr_data[42] = 0xCB;
    std::snprintf(reinterpret_cast<char*>(&entry.sdr_data[43]), 11, "Sensor %u", i % 1000);
  }
}

void count_text(benchmark::State& state) {
  const auto size = static_cast<int64_t>(std::filesystem::file_size(PATH));
  state.SetBytesProcessed(state.iterations() * size);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_WriteText(benchmark::State& state) {
  sdr_repository repository{};
  fill(&repository, static_cast<uint32_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(SdrToFile(PATH, &repository));
  count_text(state);
  std::filesystem::remove(PATH);
}
BENCHMARK(BM_WriteText)->Arg(655)->Arg(6553)->Arg(65535)->Unit(benchmark::kMillisecond);

void BM_ReadText(benchmark::State& state) {
  sdr_repository repository{};
  fill(&repository, static_cast<uint32_t>(state.range(0)));
  SdrToFile(PATH, &repository);
  for (auto _ : state) benchmark::DoNotOptimize(FileToSdr(PATH, &repository));
  count_text(state);
  std::filesystem::remove(PATH);
}
BENCHMARK(BM_ReadText)->Arg(655)->Arg(6553)->Arg(65535)->Unit(benchmark::kMillisecond);

// The whole road to the simulated BMC and back, through the kernel's device.
void BM_RequestsPerRecord(benchmark::State& state) {
  sdr_repository repository{};
  uint64_t requests = 0;
  for (auto _ : state) {
    start_on_device(sim::Kind::card);
    if (init_sdr(&repository) != 1) state.SkipWithError("cannot be read");
    for (const char c : sim::transcript()) requests += c == '\n';
  }
  const double records = repository.record_count * static_cast<double>(state.iterations());
  state.counters["requests/record"] = static_cast<double>(requests) / records;
}
BENCHMARK(BM_RequestsPerRecord);

}  // namespace

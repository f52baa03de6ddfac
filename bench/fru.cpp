// FRU: parse and build of a large image, the text form there and back, requests of the actions.
#include "fru/fru.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "bench/paths.h"

namespace {

// What follows the common header.
std::span<const uint8_t> area_of(const sim::Bytes& image) {
  return std::span(image).subspan(FRU_HEADER_SIZE);
}

// A header and a product area of 2032 bytes, 2040 bytes in all: 31 longest fields and one that
// fills the area.
sim::Bytes large_image() {
  sim::Bytes image = {1, 0, 0, 0, 1, 0, 0, 0xFE, 1, 254, 0};
  for (unsigned field = 0; field < 32; field++) {
    const size_t length = field < 31 ? FRU_TEXT_LIMIT : 42;
    image.push_back(static_cast<uint8_t>(0xC0 | length));
    image.insert(image.end(), length, 'x');
  }
  image.push_back(0xC1);
  image.push_back(GetChecksum(area_of(image)));
  return image;
}

std::string scratch(const char* name) {
  return "/tmp/qarn_bench_" + std::to_string(getpid()) + name;
}

void parse_product(benchmark::State& state) {
  const sim::Bytes image = large_image();
  const auto area = area_of(image);
  for (auto _ : state) {
    fru_info fru;
    fru_fault fault;
    if (GetProduct(area, area.size() - 1, &fru, &fault) != 1) {
      state.SkipWithError("not parsed");
    }
    destroy_fru_info(&fru);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(image.size()));
}
BENCHMARK(parse_product);

void build_image(benchmark::State& state) {
  const sim::Bytes image = large_image();
  const auto area = area_of(image);
  fru_info fru;
  fru_fault fault;
  GetProduct(area, area.size() - 1, &fru, &fault);
  uint8_t room[FRU_IMAGE_ROOM];
  std::span<const uint8_t> built;
  for (auto _ : state) {
    built = build_fru_image(&fru, room);
    benchmark::DoNotOptimize(room);
  }
  if (!std::ranges::equal(image, built)) state.SkipWithError("another image");
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(built.size()));
  destroy_fru_info(&fru);
}
BENCHMARK(build_image);

// Serves the image as FRU device 0 through the kernel's device.
void serve_image(const sim::Bytes& image) {
  start_on_device(sim::Kind::plain);
  sim::machine().bmc.fru.devices[0] = sim::fru_device(image, image.size());
}

double requests_so_far() {
  const std::string lines = sim::transcript();
  return static_cast<double>(std::count(lines.begin(), lines.end(), '\n'));
}

// A dump file is written and read back; counted are the requests of a dump and of an update.
void text_round_trip(benchmark::State& state, const sim::Bytes& image) {
  const std::string path = scratch(".fru");
  serve_image(image);
  fru_dev dev;
  init_fru_dev(&dev);
  get_fru_dev(&dev);
  const double dumped = requests_so_far();
  for (auto _ : state) {
    fru_dev back;
    if (FruToFile(path.c_str(), &dev) != 1 || FileToFru(path.c_str(), &back) != 1) {
      state.SkipWithError("no round trip");
    }
    destroy_fru_dev(&back);
  }
  write_fru_dev(&dev);
  state.counters["dump_requests"] = dumped;
  state.counters["update_requests"] = requests_so_far() - dumped;
  destroy_fru_dev(&dev);
  unlink(path.c_str());
}
BENCHMARK_CAPTURE(text_round_trip, example_112, sim::example_fru_image())
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(text_round_trip, large_2040, large_image())->Unit(benchmark::kMicrosecond);

}  // namespace

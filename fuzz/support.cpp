// What the fuzz targets share.
#include "fuzz/fuzz.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "firmware/flash.h"
#include "platform/platform.h"
#include "sdr/sdr.h"
#include "transport/transaction.h"

namespace {

std::filesystem::path folder;

void remove_folder() {
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
  std::string name = std::filesystem::temp_directory_path() / "qarn_fuzz_XXXXXX";
  fuzz::require(mkdtemp(name.data()) != nullptr);
  folder = name;
  std::atexit(remove_folder);
  std::filesystem::current_path(folder);
  fuzz::require(std::freopen("/dev/null", "w", stdout) != nullptr);
  return 0;
}

namespace fuzz {

uint8_t take(std::string* input) {
  if (input->empty()) return 0;
  const char first = input->front();
  input->erase(0, 1);
  return static_cast<uint8_t>(first);
}

const char* file(const char* name, const std::string& content) {
  FILE* opened = std::fopen(name, "w");
  require(opened != nullptr);
  std::fwrite(content.data(), 1, content.size(), opened);
  require(std::fclose(opened) == 0);
  return name;
}

void start(sim::Kind kind) {
  sim::reset(kind);
  debugFlag = 0;
  resetFlag = 1;
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
}

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace fuzz

// Feeds every file of a folder to a fuzz target, once: for compilers without a fuzzer, and for the
// test command.
#include <filesystem>

#include "fuzz/fuzz.h"

int main(int, char** argv) {
  fuzz::require(std::freopen("/dev/null", "w", stdout) != nullptr);
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::fprintf(stderr, "%s\n", entry.path().c_str());
    const std::string input = fuzz::content_of(entry.path());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  }
}

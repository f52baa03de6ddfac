// Feeds every file of a folder to a fuzz target, once: for compilers without a fuzzer, and for the
// test command.
#include <filesystem>
#include <iterator>

#include "fuzz/fuzz.h"

int main(int, char** argv) {
  fuzz::require(std::freopen("/dev/null", "w", stdout) != nullptr);
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::fprintf(stderr, "%s\n", entry.path().c_str());
    std::ifstream stream(entry.path(), std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(stream), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  }
}

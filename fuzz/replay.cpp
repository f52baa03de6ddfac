// Feeds every file of the folders it is given to a fuzz target, once: for compilers without a
// fuzzer, and for the test command.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz.h"

int main(int argc, char** argv) {
  unsigned count = 0;
  LLVMFuzzerInitialize(&argc, &argv);
  for (int i = 1; i < argc; i++) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::fprintf(stderr, "%s\n", entry.path().c_str());
      std::ifstream stream(entry.path(), std::ios::binary);
      const std::string input{std::istreambuf_iterator<char>(stream), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
      count++;
    }
  }
  return count > 0 ? 0 : 1;
}

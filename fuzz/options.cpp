// Fuzz target: command lines, their words separated by NUL.
#include "frontend/options.h"

#include <getopt.h>

#include <cstring>

#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string line = std::string("qarn\0", 5) + fuzz::start(bytes, size);
  std::vector<char*> words;
  for (size_t at = 0; at < line.size(); at += std::strlen(&line[at]) + 1)
    words.push_back(&line[at]);
  words.push_back(nullptr);
  opterr = 0;
  optind = 0;  // starts over
  Options options{};
  parse_options(static_cast<int>(words.size()) - 1, words.data(), &options);
  // No sanitizer sees it when one password runs into the next in the same array.
  for (const auto& password : options.password)
    fuzz::require(std::memchr(password, 0, sizeof password) != nullptr);
  fuzz::require(options.raw_count <= RAW_ROOM && sim::transcript().empty());
  return 0;
}

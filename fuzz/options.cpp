// Fuzz target: command lines, their words separated by NUL.
#include "frontend/options.h"

#include <getopt.h>

#include <cstring>
#include <vector>

#include "firmware/flash.h"
#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string line = std::string("qarn\0", 5) + std::string(bytes, bytes + size);
  std::vector<char*> words;
  for (size_t at = 0; at < line.size(); at += std::strlen(&line[at]) + 1) {
    words.push_back(&line[at]);
  }
  const int count = static_cast<int>(words.size());
  words.push_back(nullptr);

  fuzz::start(sim::Kind::card);
  opterr = 0;
  optind = 0;  // starts over
  Options options{};
  const int result = parse_options(count, words.data(), &options);
  fuzz::require(result >= OPTIONS_ACCEPTED && result <= 1);
  fuzz::require(options.raw_count <= RAW_ROOM);
  fuzz::require(options.raw == 0 || options.raw_count >= 3);
  fuzz::require(options.fru_update == 0 || options.fru_dump == 0);
  for (const auto& text : options.password)
    fuzz::require(std::memchr(text, 0, sizeof text) != nullptr);
  for (const auto& text :
       {options.sdr_path, options.fru_path, options.sel_path, options.script_path, flashfilename}) {
    fuzz::require(std::memchr(text, 0, VALUE_LIMIT + 1) != nullptr);
  }
  for (const auto& text :
       {options.ip, options.mac, options.gateway, options.netmask, options.arp}) {
    fuzz::require(std::memchr(text, 0, LAN_VALUE_LIMIT + 1) != nullptr);
  }
  uint8_t mac[6];
  fuzz::require(options.set_mac == 0 || parse_mac(options.mac, mac));
  fuzz::require(sim::transcript().empty());
  return 0;
}

// What the firmware tests share: images as text, the card, and what its three actions come to.
#pragma once

#include <cstdio>
#include <map>
#include <sstream>

#include "tests/harness.h"

// Bytes that differ from place to place.
inline std::string noise(size_t count) {
  std::string bytes;
  while (bytes.size() < count) bytes += static_cast<char>(bytes.size() * 40503 >> 8);
  return bytes;
}

// Erased bytes up to `size`.
inline std::string padded(std::string bytes, size_t size) {
  bytes.resize(size, '\xFF');
  return bytes;
}

// S3 records of 16 data bytes at most, with a checksum that is wrong.
inline std::string srecords(uint32_t address, const std::string& bytes) {
  if (bytes.empty()) return "";
  const std::string part = bytes.substr(0, 16);
  char head[40];
  std::snprintf(head, sizeof head, "S3%02zX%08X", part.size() + 5, address);
  std::string line = head;
  for (const char byte : part) line += sim::hex_text({static_cast<uint8_t>(byte)});
  return line + "00\r\n" + srecords(address + 16, bytes.substr(part.size()));
}

// At the top of the address space: two blocks, after eight bytes that an update leaves alone.
struct Flash {
  uint32_t base = 0xFFFFFFF0, size = 16, start = 0xFFFFFFF8;
  uint8_t block = 4, chunk = 1;
};

// A fresh card; its flash holds a '.' in each byte.
inline void serve_card(const Flash& flash) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.card = {.flash_base = flash.base,
                             .flash_size = flash.size,
                             .update_start = flash.start,
                             .block_size = flash.block,
                             .chunk_size = flash.chunk,
                             .flash = sim::Bytes(flash.size, '.')};
}

inline std::string flash_content() {
  const sim::Bytes& bytes = sim::machine().bmc.card.flash;
  return {bytes.begin(), bytes.end()};
}

// Each request by its name, without its data; a pause as it is.
inline std::string in_words(const std::string& traffic) {
  const std::map<std::string, std::string> names = {
      {"20 01", "information"}, {"20 02", "enter"},     {"20 03", "read"},
      {"20 04", "chunk"},       {"20 05", "end"},       {"18 01", "identity"},
      {"18 02", "cold_reset"},  {"18 03", "warm_reset"}};
  std::istringstream lines(traffic);
  std::string words;
  for (std::string line; std::getline(lines, line); words += ' ') {
    const auto name = names.find(line.substr(0, 5));
    words += name != names.end() ? name->second : line;
  }
  return words;
}

// The requests and pauses of the way out of the downloader.
inline const std::string RESET =
    "cold_reset sleep 4000000 sleep 2000000 identity sleep 2000000 identity ";

inline std::string between(const std::string& head, const std::string& text,
                           const std::string& tail) {
  const bool whole = text.starts_with(head) && text.substr(head.size()).ends_with(tail);
  EXPECT_TRUE(whole) << text << "\nis not within:\n" << head << "...\n" << tail;
  return whole ? text.substr(head.size(), text.size() - head.size() - tail.size()) : "";
}

// What an action says, then what it asks, between its way into the downloader and its way out. Of
// an update that fails the last line is "FAIL".
inline std::string outcome(const std::string& option, const std::string& path,
                           const Start& start = {}) {
  const std::map<std::string, std::string> titles = {{"-u", "Update Firmware with"},
                                                     {"--save", "Read firmware and Save to"},
                                                     {"--verify", "Verify firmware with the"}};
  const RunResult result = run(option + " " + path, start);
  std::string said = between(titles.at(option) + " File " + path + "\nEnter Downloader......OK\n",
                             result.said, "reset and wait\nExit Downloader......OK\n");
  const std::string failure = "can't find file " + path + "\n";
  if (option == "-u") said = between("Flashing now\n", said, "");
  if (said.ends_with(failure)) said.replace(said.size() - failure.size(), failure.size(), "FAIL\n");
  return said + between("enter sleep 2000000 ", in_words(result.sent), RESET);
}

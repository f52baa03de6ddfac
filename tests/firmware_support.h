// What the firmware tests share: images as text, the card, and the three actions.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <sstream>

#include "firmware/flash.h"
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

// What the flash holds.
inline std::string flash_content() {
  const sim::Bytes& bytes = sim::machine().bmc.card.flash;
  return {bytes.begin(), bytes.end()};
}

inline std::string repeated(size_t count, const std::string& text) {
  return count == 0 ? "" : text + repeated(count - 1, text);
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

// What one of the three actions says and asks between its way into the downloader and its way out,
// while these faults act.
struct Action {
  std::string option;
  std::string title;
  std::string path;
  std::string exit_said = "OK\n";
  std::string exit_asked = RESET;

  void says(const std::string& said, const std::string& asked,
            const std::string& faults = "") const {
    sim::machine().bmc.faults = sim::faults(faults);
    const RunResult result = run({option, path});
    EXPECT_EQ(after_identity(result.out), title + " File " + path + "\nEnter Downloader......OK\n" +
                                              said + "reset and wait\nExit Downloader......" +
                                              exit_said);
    EXPECT_EQ(in_words(after_identity(result.traffic)), "enter sleep 2000000 " + asked + exit_asked)
        << said;
  }
};

inline Action save(const std::string& path) {
  return {.option = "--save", .title = "Read firmware and Save to", .path = path};
}

inline Action verification(const std::string& path) {
  return {.option = "--verify", .title = "Verify firmware with the", .path = path};
}

inline void updates(const std::string& path, const std::string& said, const std::string& asked,
                    const std::string& faults = "") {
  const Action update = {.option = "-u", .title = "Update Firmware with", .path = path};
  update.says("Flashing now\n" + said, asked, faults);
}

inline void fails_to_update(const std::string& path, const std::string& said,
                            const std::string& asked, const std::string& faults = "") {
  updates(path, said + "can't find file " + path + "\n", asked, faults);
}

// What the firmware tests share: images built by hand, as text.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>

#include "firmware/flash.h"
#include "tests/harness.h"

// Bytes that tell where they stand.
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

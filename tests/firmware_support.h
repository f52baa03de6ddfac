// What the firmware tests share: images built by hand.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "firmware/flash.h"
#include "tests/harness.h"

using sim::Bytes;

inline Bytes noise(size_t count, uint32_t seed = 1) {
  Bytes bytes;
  for (size_t i = 0; i < count; i++) {
    seed = seed * 1664525 + 1013904223;
    bytes.push_back(static_cast<uint8_t>(seed >> 24));
  }
  return bytes;
}

inline std::string text_of(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

// S3 records of at most `length` data bytes each, with a checksum that is wrong.
inline std::string srecords(uint32_t address, const Bytes& bytes, size_t length = 16,
                            const std::string& line_end = "\r\n") {
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += length) {
    const size_t count = std::min(length, bytes.size() - i);
    char head[16];
    std::snprintf(head, sizeof head, "S3%02zX%08zX", count + 5, address + i);
    text += head;
    for (size_t j = i; j < i + count; j++) text += sim::hex_text({bytes[j]});
    text += "00" + line_end;
  }
  return text;
}

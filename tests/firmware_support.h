// What the firmware tests share: images built by hand.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

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

// At most `count` bytes from `offset` on.
inline Bytes slice(const Bytes& bytes, size_t offset, size_t count) {
  const size_t end = std::min(offset + count, bytes.size());
  return Bytes(bytes.data() + offset, bytes.data() + end);
}

// `size` erased bytes but for pieces at their offsets.
inline Bytes erased_but(size_t size, const std::vector<std::pair<size_t, Bytes>>& pieces) {
  Bytes bytes(size, 0xFF);
  for (const auto& [offset, piece] : pieces) {
    std::copy(piece.begin(), piece.end(), bytes.data() + offset);
  }
  return bytes;
}

// S3 records of at most `length` data bytes each, with a checksum that is wrong.
inline std::string srecords(uint32_t address, const Bytes& bytes, size_t length = 16,
                            const std::string& line_end = "\r\n") {
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += length) {
    const Bytes part = slice(bytes, i, length);
    char head[40];
    std::snprintf(head, sizeof head, "S3%02zX%08zX", part.size() + 5, address + i);
    text += head;
    for (const uint8_t byte : part) text += sim::hex_text({byte});
    text += "00" + line_end;
  }
  return text;
}

inline void name_image(const std::string& path) {
  std::snprintf(flashfilename, sizeof flashfilename, "%s", path.c_str());
}

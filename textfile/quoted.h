// Bytes as text that every reader of definition files turns back into the same bytes.
#pragma once
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// Set by the front end: 1 with --exact, when what is dumped must come back without any loss.
extern int exactFlag;

// The most characters that put_quoted stores for so many bytes.
inline constexpr std::size_t quoted_room(std::size_t count) {
  return 4 * count + 2;
}

// Stores quoted pieces of printable characters, and hexadecimal digits for each byte that would not
// come back from within quotes: "'Fan '23'1'". Returns what was stored; empty for no bytes. `room`
// has quoted_room(bytes.size()) characters at least.
std::string_view put_quoted(std::span<const uint8_t> bytes, std::span<char> room);

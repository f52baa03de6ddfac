// Text that people write and read: hexadecimal bytes, numbers, lists.
#pragma once
#include "sim/types.h"

namespace sim {

// The bytes in upper-case hexadecimal, joined by blanks (or without them when `separator` is "").
std::string hex_text(const Bytes& bytes, const char* separator = " ");
// Bytes from hexadecimal digits without blanks: false when the text is anything else.
bool parse_hex(const std::string& text, Bytes& bytes);

// The whole text as a number of that base, at most `limit`: false when it is anything else.
bool parse_number(const std::string& text, int base, uint32_t limit, uint32_t& number);

// The parts between separators; those that are empty or blank are left out.
std::vector<std::string> split(const std::string& text, char separator);

}  // namespace sim

// Hexadecimal bytes, numbers and lists as text.
#include "sim/text.h"

#include <charconv>
#include <sstream>

namespace sim {

namespace {

int hex_digit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

}  // namespace

std::string hex_text(const Bytes& bytes, const char* separator) {
  constexpr char DIGITS[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 3);
  for (const uint8_t byte : bytes) {
    if (!text.empty()) text += separator;
    text += DIGITS[byte >> 4];
    text += DIGITS[byte & 0x0F];
  }
  return text;
}

bool parse_hex(const std::string& text, Bytes& bytes) {
  Bytes parsed;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const int high = hex_digit(text[i]);
    const int low = hex_digit(text[i + 1]);
    if (high < 0 || low < 0) return false;
    parsed.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  if (text.size() % 2 != 0) return false;
  bytes = parsed;
  return true;
}

bool parse_number(const std::string& text, int base, uint32_t limit, uint32_t& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && stop == end && number <= limit;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    if (part.find_first_not_of(' ') != std::string::npos) parts.push_back(part);
  }
  return parts;
}

}  // namespace sim

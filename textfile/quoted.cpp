// Bytes as text that comes back.
#include "textfile/quoted.h"

int exactFlag = 0;

namespace {

constexpr uint8_t FIRST_PRINTABLE = 0x20;
constexpr uint8_t LAST_PRINTABLE = 0x7E;

// A quote ends its piece; a number sign, or two slashes, begin a comment even inside quotes.
bool is_quotable(std::span<const uint8_t> bytes, std::size_t index) {
  const uint8_t byte = bytes[index];
  if (byte < FIRST_PRINTABLE || byte > LAST_PRINTABLE || byte == '\'' || byte == '#') return false;
  const bool slash_before = index > 0 && bytes[index - 1] == '/';
  const bool slash_after = index + 1 < bytes.size() && bytes[index + 1] == '/';
  return byte != '/' || (!slash_before && !slash_after);
}

}  // namespace

std::string_view put_quoted(std::span<const uint8_t> bytes, std::span<char> room) {
  static const char DIGITS[] = "0123456789ABCDEF";
  std::size_t length = 0;
  bool quoted = false;
  for (std::size_t i = 0; i < bytes.size(); i++) {
    const bool quotable = is_quotable(bytes, i);
    if (quotable != quoted) room[length++] = '\'';
    quoted = quotable;
    if (quotable) {
      room[length++] = static_cast<char>(bytes[i]);
    } else {
      room[length++] = DIGITS[bytes[i] >> 4];
      room[length++] = DIGITS[bytes[i] & 0x0F];
    }
  }
  if (quoted) room[length++] = '\'';
  return {room.data(), length};
}

// One line of a definition file: clean it, match its keyword, convert its bytes.
#include "textfile/tokenizer.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr char QUOTE = '\'';
constexpr int NO_VALUE = -1;

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

// Where the comment of `line` begins, or its length when it has none. The last character of a line
// begins none.
std::size_t find_comment(std::string_view line) {
  for (std::size_t i = 0; i + 1 < line.size(); i++) {
    if (line[i] == '#' || (line[i] == '/' && line[i + 1] == '/')) return i;
  }
  return line.size();
}

bool is_skipped(char c) {
  return is_blank(c) || c == '\r' || c == '\n' || c == '#';
}

// Letters after F count on (G is 16); other characters are digits without a value.
int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
  if (c >= 'a' && c <= 'z') return c - 'a' + 10;
  return NO_VALUE;
}

}  // namespace

void process_string(const char* line, std::span<char> cleaned) {
  if (cleaned.empty()) return;
  cleaned[0] = '\0';
  const std::string_view text = line;
  std::size_t start = 0;
  while (start < text.size() && is_blank(text[start])) start++;
  std::size_t past = find_comment(text);
  while (past > start && is_blank(text[past - 1])) past--;
  // A single character does not count: mostly it is the line end.
  if (past < start + 2) return;
  const std::string_view kept = text.substr(start, std::min(past - start, cleaned.size() - 1));
  std::ranges::copy(kept, cleaned.begin());
  cleaned[kept.size()] = '\0';
}

int start_with(const char* text, const char* keyword) {
  if (text[0] == '\0' || keyword[0] == '\0') return 0;
  return strncasecmp(text, keyword, std::strlen(keyword)) == 0 ? 1 : 0;
}

unsigned get_content(const char* text, std::span<uint8_t, CONTENT_SIZE> out) {
  std::ranges::fill(out, uint8_t{0});
  unsigned count = 0;
  uint8_t accumulator = 0;
  bool second = false;  // the next digit completes a pair
  bool quoted = false;
  for (; *text != '\0'; text++) {
    if (*text == QUOTE) {
      quoted = !quoted;
      continue;
    }
    if (!quoted && is_skipped(*text)) continue;
    const int value = digit_value(*text);
    if (!quoted && second) {
      accumulator = static_cast<uint8_t>(accumulator << 4 | std::max(value, 0));
      // The last byte, even if quoted text came between the two digits.
      out[count - 1] = accumulator;
      second = false;
      continue;
    }
    if (count == CONTENT_SIZE) break;
    if (!quoted) {
      if (value != NO_VALUE) accumulator = static_cast<uint8_t>(value);
      second = true;
    }
    out[count++] = quoted ? static_cast<uint8_t>(*text) : accumulator;
  }
  return count;
}

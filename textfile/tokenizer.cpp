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

// Stores the bytes, and of each the quoted piece.
unsigned convert(const char* text, std::span<uint8_t, CONTENT_SIZE> out,
                 std::span<uint16_t, CONTENT_SIZE> pieces) {
  std::ranges::fill(out, uint8_t{0});
  unsigned count = 0;
  uint8_t accumulator = 0;
  bool second = false;  // the next digit completes a pair
  bool quoted = false;
  uint16_t piece = 0;
  for (; *text != '\0'; text++) {
    if (*text == QUOTE) {
      quoted = !quoted;
      if (quoted) piece++;
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
    pieces[count] = quoted ? piece : uint16_t{0};
    out[count++] = quoted ? static_cast<uint8_t>(*text) : accumulator;
  }
  return count;
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
  uint16_t unused[CONTENT_SIZE];
  return convert(text, out, unused);
}

void get_pieces(const char* text, std::span<uint16_t, CONTENT_SIZE> pieces) {
  uint8_t unused[CONTENT_SIZE];
  convert(text, unused, pieces);
}

bool has_other_digit(const char* text) {
  bool quoted = false;
  for (; *text != '\0'; text++) {
    if (*text == QUOTE) quoted = !quoted;
    const bool digit = static_cast<unsigned>(digit_value(*text)) < 16;
    if (!quoted && !digit && *text != QUOTE && !is_skipped(*text)) return true;
  }
  return false;
}

bool has_quoted_comment(const char* line) {
  const std::string_view text = line;
  const size_t start = find_comment(text);
  return start < text.size() && std::ranges::count(text.substr(0, start), QUOTE) % 2 == 1;
}

bool has_split_byte(const char* text) {
  bool quoted = false;
  bool half = false;  // a byte has its first digit
  for (; *text != '\0'; text++) {
    if (*text == QUOTE) quoted = !quoted;
    if (quoted || *text == QUOTE) continue;
    if (half && is_blank(*text) && digit_value(text[std::strspn(text, " \t")]) != NO_VALUE)
      return true;
    if (digit_value(*text) != NO_VALUE) half = !half;
  }
  return false;
}

bool has_open_quote(const char* text) {
  return std::ranges::count(std::string_view(text), QUOTE) % 2 == 1;
}

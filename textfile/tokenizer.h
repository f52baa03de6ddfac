// One line of a definition file: clean it, match its keyword, convert its bytes. A blank is a space
// or a tab.
#pragma once
#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr unsigned CONTENT_SIZE = 1024;

// Writes `line` without leading blanks, comment ("//" or "#" to the end of the line, quoted or not)
// and blanks before it into `cleaned`; what does not fit is cut. A line that carries nothing gives
// the empty text.
void process_string(const char* line, std::span<char> cleaned);

// 1 when `text` begins with `keyword`, whatever the case of its letters; else 0.
int start_with(const char* text, const char* keyword);

// Converts pairs of hexadecimal digits and quoted text into bytes. `out` is cleared first; returns
// how many were stored, at most CONTENT_SIZE.
unsigned get_content(const char* text, std::span<uint8_t, CONTENT_SIZE> out);

// Signs of a mistake in a line, whole or cleaned: a character where a digit must be that is no
// hexadecimal digit; a comment that begins between two quotes; a quote that is not closed.
bool has_other_digit(const char* text);
bool has_quoted_comment(const char* line);
bool has_open_quote(const char* text);
// Or a blank that parts the two digits of a byte: "1 02" is 10 and 02's last digit.
bool has_split_byte(const char* text);

// For each byte that get_content stores: the number, from 1, of the quoted piece that it stands in,
// 0 outside of quotes.
void get_pieces(const char* text, std::span<uint16_t, CONTENT_SIZE> pieces);

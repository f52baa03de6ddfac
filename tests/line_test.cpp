// What no file can show of its lines.
#include <gtest/gtest.h>

#include <algorithm>

#include "textfile/tokenizer.h"

TEST(Line, is_cut_where_there_is_no_room_and_has_zeros_after_its_bytes) {
  char cleaned[5];
  process_string("\t 20 18 01\n", cleaned);
  EXPECT_STREQ(cleaned, "20 1");
  uint8_t bytes[CONTENT_SIZE];
  const std::string digits(2 * CONTENT_SIZE + 8, '3');
  for (const std::string& text : {digits, "'" + digits}) {
    EXPECT_EQ(get_content(text.c_str(), bytes), CONTENT_SIZE);
    EXPECT_EQ(std::ranges::count(bytes, '3'), CONTENT_SIZE);
  }
  EXPECT_EQ(get_content("'#", bytes), 1U);
  EXPECT_EQ(bytes[0], '#');
  EXPECT_EQ(std::ranges::count(bytes, 0), CONTENT_SIZE - 1);
}

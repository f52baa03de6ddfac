// The image reader: names, portions, S-records in every shape, images that are refused.
#include <sys/stat.h>

#include "tests/firmware_support.h"

namespace {

using Portions = std::vector<std::pair<uint32_t, Bytes>>;  // base, bytes

// All portions up to the one that ends the image.
Portions portions_of(const std::string& name, const std::string& content) {
  Portions portions;
  name_image(file_with(name, content));
  console_of([&] {
    if (init_data(&data) != 1) return;
    while (data.eof == 0 && portions.size() < 100) {
      read_data(&data);
      EXPECT_EQ(data.pos, data.base);
      portions.push_back({data.base, Bytes(data.bytes, data.bytes + PORTION_SIZE)});
    }
    close_image();
  });
  return portions;
}

std::string refusal_of(const std::string& path) {
  name_image(path);
  return console_of([] {
    EXPECT_EQ(init_data(&data), 0);
    EXPECT_EQ(fp, nullptr);
  });
}

std::string refusal_of_records(const std::string& content) {
  return refusal_of(file_with("fw.mot", content));
}

TEST(Image, NameDecidesHowItIsRead) {
  const std::string record = srecords(0x1000, {0x41});
  for (const char* name : {"fw.MOT", "fw.mot.bak", "fw.bin", "fw", ".mot.mot", "fw.mot.bin"}) {
    EXPECT_EQ(portions_of(name, record).at(0).second[0], 'S') << name;
  }
  for (const char* name : {"fw.mot", ".mot", "fw.bin.mot"}) {
    EXPECT_EQ(portions_of(name, record).at(0).second[0], 0x41) << name;
  }
}

// Whatever the length of a record and the end of a line, and whether the last line has one.
TEST(Image, ContiguousRecordsFillPortions) {
  const uint32_t base = 0xFFF04000;
  const Bytes bytes = noise(8192 + 700);
  const Portions expected = {{base, slice(bytes, 0, 4096)},
                             {base + 4096, slice(bytes, 4096, 4096)},
                             {base + 8192, erased_but(4096, {{0, slice(bytes, 8192, 700)}})}};
  for (const size_t length : {16U, 32U, 100U, 250U}) {
    for (const char* line_end : {"\r\n", "\n", "\r"}) {
      const std::string content =
          "S0030000FC" + (line_end + srecords(base, bytes, length, line_end));
      const std::string cut = content.substr(0, content.find_last_not_of("\r\n") + 1);
      EXPECT_EQ(portions_of("fw.mot", content), expected) << length;
      EXPECT_EQ(portions_of("fw.mot", cut), expected) << length;
    }
  }
}

TEST(Image, GapIsErasedAndALongOneClosesThePortion) {
  const Bytes start = noise(1000);
  const Bytes near = noise(10, 2);
  const Bytes far = noise(16, 3);
  std::string content =
      srecords(0x10000, start) + srecords(0x10000 + 4000, near) + srecords(0x10000 + 5000, far);
  content.resize(content.size() - 2);  // its line is the last one, without an end
  EXPECT_EQ(portions_of("fw.mot", content),
            (Portions{{0x10000, erased_but(4096, {{0, start}, {4000, near}})},
                      {0x10000 + 5000, erased_but(4096, {{0, far}})}}));
}

TEST(Image, OtherLinesAndEmptyRecordsAddNothing) {
  const std::string others =
      "S00600004844521B\r\nS1051000AABB00\r\nS206100000AACC00\r\n\r\nnote\r\nS30500000000FA\r\n"
      "S5030001FB\r\nS70500000000FA\r\n";
  EXPECT_EQ(portions_of("fw.mot", others), (Portions{{0, erased_but(4096, {})}}));
  EXPECT_EQ(portions_of("fw.mot", others + "S3070001F000abCD00 \t\r\n" + others),
            (Portions{{0x1F000, erased_but(4096, {{0, {0xAB, 0xCD}}})}}));
}

TEST(Image, RecordThatCannotBePlacedIsRefusedWithItsLine) {
  const std::pair<std::string, std::string> cases[] = {
      {"S30600001000AA00\nS306000010G1BB00\n", "line 2: a character is not a hexadecimal digit"},
      {"S30600001000A-00\n", "line 1: a character is not a hexadecimal digit"},
      {"S3 600001000AA00\n", "line 1: a character is not a hexadecimal digit"},
      {"\n\r\n\rS3040000100000\n", "line 4: the byte count is below 5"},
      {"S30700001000AA00\n", "line 1: the line is shorter than its byte count"},
      {"S30600001000AABB00\n", "line 1: the line is longer than its byte count"},
      {"S30600001000AA00\nS30600000FFFBB00\n", "line 2: the data is out of ascending order"},
      {"S30700001000AABB00\nS30600001001CC00\n", "line 2: the data is out of ascending order"},
      {"S307FFFFFFFFAABB00\n", "line 1: the data runs past the last address"},
  };
  for (const auto& [content, reason] : cases) {
    EXPECT_EQ(refusal_of_records(content), "cannot use the image: " + reason + "\n");
  }
  EXPECT_NE(refusal_of_records(std::string("S306000010\0000AA00\n", 18)), "");
  EXPECT_NE(refusal_of_records("S3FF" + std::string(100000, '0')), "");
  const std::string record = srecords(0x1000, noise(4), 16, "");
  for (size_t length = 2; length < record.size(); length++) {
    EXPECT_EQ(refusal_of_records(srecords(0, noise(3)) + record.substr(0, length)),
              "cannot use the image: line 2: the line is shorter than its byte count\n");
  }
}

TEST(Image, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
  const std::string fifo = path_of("fifo.mot");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, path_of(""), std::string("/dev/zero")}) {
    EXPECT_EQ(refusal_of(path), "cannot open the data file: " + path +
                                    "\ncannot use the image: it is not a regular file\n");
  }
  EXPECT_EQ(refusal_of("missing"), "cannot open the data file: missing\n");
}

}  // namespace

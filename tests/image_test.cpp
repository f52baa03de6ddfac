// The image reader: names, portions, S-records in every shape, images that are refused.
#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "tests/firmware_support.h"

namespace {

struct Portion {
  uint32_t base;
  int eof;
  Bytes bytes;
};

void name_image(const std::string& path) {
  std::snprintf(flashfilename, sizeof flashfilename, "%s", path.c_str());
}

// All portions up to the one that ends the image; `out` holds what was printed.
std::vector<Portion> portions_of(const std::string& name, const std::string& content,
                                 std::string* out = nullptr) {
  std::vector<Portion> portions;
  name_image(file_with(name, content));
  const std::string printed = console_of([&] {
    if (init_data(&data) != 1) return;
    while (data.eof == 0 && portions.size() < 100) {
      read_data(&data);
      EXPECT_EQ(data.pos, data.base);
      portions.push_back({data.base, data.eof, Bytes(data.bytes, data.bytes + PORTION_SIZE)});
    }
    close_image();
  });
  if (out != nullptr) *out = printed;
  return portions;
}

Bytes padded(Bytes bytes) {
  bytes.resize(PORTION_SIZE, 0xFF);
  return bytes;
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
    EXPECT_EQ(portions_of(name, record).at(0).bytes[0], 'S') << name;
  }
  for (const char* name : {"fw.mot", ".mot", "fw.bin.mot"}) {
    EXPECT_EQ(portions_of(name, record).at(0).bytes[0], 0x41) << name;
  }
}

TEST(Image, RawFileEndsWithThePortionThatRunsIntoItsEnd) {
  const Bytes bytes = noise(PORTION_SIZE + 100);
  std::string out;
  std::vector<Portion> portions = portions_of("fw", text_of(bytes), &out);
  ASSERT_EQ(portions.size(), 2u);
  EXPECT_EQ(portions[1].base, PORTION_SIZE);
  EXPECT_EQ(portions[1].bytes, padded(Bytes(bytes.begin() + PORTION_SIZE, bytes.end())));
  EXPECT_EQ(out, "..");

  portions = portions_of("fw", text_of(noise(PORTION_SIZE)));
  ASSERT_EQ(portions.size(), 2u);
  EXPECT_EQ(portions[0].bytes, noise(PORTION_SIZE));
  EXPECT_EQ(portions[1].bytes, padded({}));
}

// Whatever the length of a record and the end of a line, and whether the last line has one.
TEST(Image, ContiguousRecordsFillPortions) {
  const Bytes bytes = noise(2 * PORTION_SIZE + 700);
  for (const size_t length : {16, 32, 100, 250}) {
    for (const char* line_end : {"\r\n", "\n", "\r"}) {
      for (const bool cut : {false, true}) {
        std::string content =
            "S0030000FC" + (line_end + srecords(0xFFF04000, bytes, length, line_end));
        if (cut) content.resize(content.find_last_not_of("\r\n") + 1);
        const std::vector<Portion> portions = portions_of("fw.mot", content);
        ASSERT_EQ(portions.size(), 3u) << length << " " << cut;
        Bytes read;
        for (const Portion& portion : portions) {
          EXPECT_EQ(portion.base, 0xFFF04000 + read.size());
          read.insert(read.end(), portion.bytes.begin(), portion.bytes.end());
        }
        Bytes expected = bytes;
        expected.resize(3 * PORTION_SIZE, 0xFF);
        EXPECT_EQ(read, expected) << length << " " << cut;
      }
    }
  }
}

TEST(Image, GapIsErasedAndALongOneClosesThePortion) {
  const std::string start = srecords(0x10000, noise(1000));
  const std::string near = srecords(0x10000 + 4000, noise(10, 2));
  std::string far = srecords(0x10000 + 5000, noise(20, 3));
  far.resize(far.size() - 2);  // a last line without an end
  const std::vector<Portion> portions = portions_of("fw.mot", start + near + far);
  ASSERT_EQ(portions.size(), 2u);
  Bytes first = noise(1000);
  first.resize(4000, 0xFF);
  const Bytes tail = noise(10, 2);
  first.insert(first.end(), tail.begin(), tail.end());
  EXPECT_EQ(portions[0].base, 0x10000u);
  EXPECT_EQ(portions[0].bytes, padded(first));
  EXPECT_EQ(portions[1].base, 0x10000u + 5000);
  EXPECT_EQ(portions[1].bytes, padded(noise(20, 3)));
}

TEST(Image, OtherLinesAndEmptyRecordsAddNothing) {
  const std::string others =
      "S00600004844521B\r\nS1051000AABB00\r\nS206100000AACC00\r\n\r\nnote\r\nS30500000000FA\r\n"
      "S5030001FB\r\nS70500000000FA\r\n";
  std::vector<Portion> portions = portions_of("fw.mot", others);
  ASSERT_EQ(portions.size(), 1u);
  EXPECT_EQ(portions[0].base, 0u);
  EXPECT_EQ(portions[0].bytes, padded({}));

  portions = portions_of("fw.mot", others + "S3070001F000abCD00 \t\r\n" + others);
  ASSERT_EQ(portions.size(), 1u);
  EXPECT_EQ(portions[0].base, 0x1F000u);
  EXPECT_EQ(portions[0].bytes, padded({0xAB, 0xCD}));
}

TEST(Image, RecordThatCannotBePlacedIsRefusedWithItsLine) {
  const struct {
    const char* content;
    const char* reason;
  } cases[] = {
      {"S30600001000AA00\nS306000010G1BB00\n", "line 2: a character is not a hexadecimal digit"},
      {"S30600001000A-00\n", "line 1: a character is not a hexadecimal digit"},
      {"S30600001000AA 0\n", "line 1: a character is not a hexadecimal digit"},
      {"S3 600001000AA00\n", "line 1: a character is not a hexadecimal digit"},
      {"\n\r\n\rS3040000100000\n", "line 4: the byte count is below 5"},
      {"S30700001000AA00\n", "line 1: the line is shorter than its byte count"},
      {"S30600001000AABB00\n", "line 1: the line is longer than its byte count"},
      {"S30600001000AA00\nS30600000FFFBB00\n", "line 2: the data is out of ascending order"},
      {"S30700001000AABB00\nS30600001001CC00\n", "line 2: the data is out of ascending order"},
      {"S307FFFFFFFFAABB00\n", "line 1: the data runs past the last address"},
  };
  for (const auto& entry : cases) {
    EXPECT_EQ(refusal_of_records(entry.content),
              "cannot use the image: " + std::string(entry.reason) + "\n");
  }
  const std::string nul("S306000010\0000AA00\n", 18);
  EXPECT_NE(refusal_of_records(nul), "");
  EXPECT_NE(refusal_of_records("S3FF" + std::string(100000, '0')), "");
}

TEST(Image, FileCutInsideARecordIsRefused) {
  const std::string record = srecords(0x1000, noise(4), 16, "");
  for (size_t length = 2; length < record.size(); length++) {
    EXPECT_EQ(refusal_of_records(srecords(0, noise(3)) + record.substr(0, length)),
              "cannot use the image: line 2: the line is shorter than its byte count\n")
        << length;
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

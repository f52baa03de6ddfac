// The image reader: names, portions, S-records in every shape, images that are refused or become
// unusable in the middle of an update.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include "firmware/flash.h"
#include "tests/firmware_support.h"

namespace {

std::string portion(const std::string& address, const std::string& bytes) {
  return "." + address + " " + padded(bytes, PORTION_SIZE);
}

// What the console says while an image is read, and each portion of it.
std::string reading_of(const std::string& path) {
  flashfilename = path.c_str();
  return console_of([] {
    const int opened = init_data(&data);
    EXPECT_EQ(fp != nullptr, opened == 1);
    for (int left = 9 * opened; left > 0 && data.eof == 0; left--) {
      read_data(&data);
      std::printf("%08X ", data.pos);
      std::fwrite(data.bytes, 1, PORTION_SIZE, stdout);
    }
    close_image();
  });
}

// S-records, and the portions that are read or why they are refused.
void check_readings(const std::vector<std::pair<std::string, std::string>>& cases) {
  for (const auto& [content, reads] : cases)
    EXPECT_EQ(reading_of(file_with("fw.mot", content)),
              (reads[0] == '.' ? "" : "cannot use the image: line ") + reads)
        << content;
}

TEST(Image, name_decides_how_it_is_read) {
  std::string firsts;  // of each image: the record's data, or the record itself
  for (const char* name : {".mot", "fw.bin.mot", "fw.mot.bin", ".mot.mot", "fw.MOT", "fw"})
    firsts += reading_of(file_with(name, srecords(0x1000, "d"))).at(10);
  EXPECT_EQ(firsts, "ddSSSS");
}

TEST(Image, record_is_placed_or_refused_with_its_line) {
  const std::string others = "S00600004844521B\r\nS1051000AABB00\r\n\r\nnote\r\n";
  const std::string too_short = "1: the line is shorter than its byte count\n";
  std::vector<std::pair<std::string, std::string>> cases = {
      {others, portion("00000000", "")},
      {others + "S3070001F000abCD00 \t\rS3060001F002EF00\nS3060001F003FE00\r\n" + others,
       portion("0001F000", "\xAB\xCD\xEF\xFE")},
      // A portion ends within a record.
      {"S306FFF03FFF2100\n" + srecords(0xFFF04000, noise(5000)),
       portion("FFF03FFF", "!" + noise(4095)) + portion("FFF04FFF", noise(5000).substr(4095))},
      // A gap is read as FF, after a long one a new portion begins. The last line has no line end.
      {srecords(0x10000, "start") + srecords(0x10FA0, "near") + "S306000113884600",
       portion("00010000", padded("start", 4000) + "near") + portion("00011388", "F")},
      {"S30600001000AA00\nS306000010G1BB00", "2: a character is not a hexadecimal digit\n"},
      {"S3 600001000AA00\n", "1: a character is not a hexadecimal digit\n"},
      {"\n\r\n\rS3040000100000\n", "4: the byte count is below 5\n"},
      {"S30600001000AABB00\n", "1: the line is longer than its byte count\n"},
      {std::string("S306000010\0000AA00\n", 18), too_short},
      {"S307FFFFFFFFAABB00\n", "1: the data runs past the last address\n"}};
  for (size_t length = 2; length < 16; length++)
    cases.push_back({std::string("S30600001000AA00").substr(0, length), too_short});
  check_readings(cases);
}

// Data of several records, and what the portions are then.
TEST(Image, record_is_placed_inside_its_portion_whatever_the_order) {
  const std::string below = "the record lies below the portion that is being filled\n";
  const std::string empty = "S30500001000EA\n";
  const std::string full = srecords(0x1000, noise(4096));
  check_readings(
      {{srecords(0x1000, "abc") + srecords(0x1004, "e") + srecords(0x1003, "d"),
        portion("00001000", "abcde")},
       {srecords(0x1000, "abc") + srecords(0x1000, "abc"), portion("00001000", "abc")},
       {srecords(0x1000, "abc") + srecords(0x1001, "XYZ"), portion("00001000", "aXYZ")},
       {srecords(0x1000, "abc") + srecords(0x0FFF, "x"), "2: " + below},
       // A record without data sets the base, and closes a portion.
       {empty + srecords(0x1002, "c"), portion("00001000",
                                               "\xFF\xFF"
                                               "c")},
       {srecords(0x0FFF, "a") + empty + srecords(0x1000, "b"), portion("00000FFF", "ab")},
       {srecords(0x0000, "a") + empty + srecords(0x1001, "b"),
        portion("00000000", "a") + portion("00001000",
                                           "\xFF"
                                           "b")},
       {srecords(0x0000, "a") + empty, portion("00000000", "a") + portion("00001000", "")},
       {srecords(0x1001, "a") + empty, "2: " + below},
       // A portion that is full is closed.
       {full + srecords(0x1FFF, "x"), "257: " + below},
       {full + srecords(0x2000, "x"), portion("00001000", noise(4096)) + portion("00002000", "x")},
       {srecords(0x1000, "a") + srecords(0x1FFF, "xy") + srecords(0x1001, "b"), "3: " + below},
       {srecords(0x1000, "a") + srecords(0x1FFF, "xy") + srecords(0x2000, "z"),
        portion("00001000", padded("a", 4095) + "x") + portion("00002000", "z")}});
}

std::function<void()> harm;

TEST(Update, stops_when_the_image_is_not_the_one_that_was_checked_any_more) {
  namespace fs = std::filesystem;
  const std::string other = "it is not the file that was checked";
  const Start harmed = {.faults = "signal cmd=5 value=17",
                        .prepare = [] { std::signal(SIGURG, [](int) { harm(); }); }};
  for (const std::string name : {"fw.bin", "fw.mot"}) {
    const std::string image = name == "fw.bin" ? noise(12288) : srecords(0, noise(12288));
    const std::string path = path_of(name);
    const auto change_unseen = [&] {
      const auto changed = fs::last_write_time(path);
      file_with(name, std::string(image.size(), 'x'));
      fs::last_write_time(path, changed);
    };
    const auto make_unreadable = [] {  // the file's handle becomes a folder's
      dup2(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC), fileno(fp));
    };
    const std::tuple<const char*, std::function<void()>, std::string> harms[] = {
        {"emptied", [&] { fs::resize_file(path, 0); }, other},
        {"written again as it was", [&] { file_with(name, image); }, other},
        {"other bytes, but neither longer nor newer", change_unseen, other},
        {"removed", [&] { fs::remove(path); }, other},
        {"replaced", [&] { fs::rename(file_with("other", image), path); }, other},
        {"unreadable", make_unreadable, "it cannot be read"}};
    for (const auto& [what, one, reason] : harms) {
      file_with(name, image);
      fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(1));
      serve_card({.base = 0, .size = 12288, .start = 0, .block = 64, .chunk = 64});
      harm = one;
      EXPECT_EQ(outcome("-u", path, harmed), "..cannot use the image: " + reason +
                                                 " any more\nFAIL\ninformation " +
                                                 repeated(64, "chunk sleep 2000 end "));
      EXPECT_EQ(flash_content(), noise(4096) + std::string(8192, '.')) << what;
    }
  }
}

}  // namespace

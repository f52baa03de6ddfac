// Updates, saves and verifications on the simulated card, sound and with faults.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <filesystem>

#include "tests/firmware_support.h"
#include "transport/bmc.h"

namespace {

const std::string RESET = "18 02\nsleep 4000000\nsleep 2000000\n18 01\nsleep 2000000\n18 01\n";
const std::string IMAGE = "01234567stuvwxyz";
const std::string UPDATED = "........stuvwxyz";
const std::string RAW = file_with("raw.bin", IMAGE);
// What expect tells of a block that is programmed, and of an update up to its first one.
const std::string BLOCK = "4444sleep 2000\n5";
const std::string FIRST = "1" + BLOCK;

// At the top of the address space: two blocks, after eight bytes that an update leaves alone.
struct Flash {
  uint32_t base = 0xFFFFFFF0, size = 16, start = 0xFFFFFFF8;
  uint8_t block = 4, chunk = 1;
  std::string content = "................";
};

void serve_card(const Flash& flash) {
  sim::reset(sim::Kind::card);
  sim::machine().bmc.card = {flash.base, flash.size, flash.start, flash.block, flash.chunk};
  sim::machine().bmc.card.flash.assign(flash.content.begin(), flash.content.end());
}

// What the flash holds.
std::string held() {
  const sim::Bytes& bytes = sim::machine().bmc.card.flash;
  return {bytes.begin(), bytes.end()};
}

// "qarn OPTION PATH": what it says, and what it asks of the downloader: the pauses, and the number
// alone of each request.
void expect(const std::string& faults, const std::string& option, const std::string& path,
            std::string out, const std::string& traffic = "", const std::string& left = "OK\n",
            const std::string& reset = RESET) {
  std::string title = option == "--save" ? "Read firmware and Save to" : "Verify firmware with the";
  if (option == "-u") {
    title = "Update Firmware with";
    out = "Flashing now\n" + out + (out.ends_with("OK\n") ? "" : "can't find file " + path + "\n");
  }
  sim::machine().bmc.faults = sim::faults(faults);
  const RunResult result = run({option, path});
  EXPECT_EQ(after_identity(result.out), title + " File " + path + "\nEnter Downloader......OK\n" +
                                            out + "reset and wait\nExit Downloader......" + left);
  std::string asked = after_identity(result.traffic);
  for (size_t at = 0; (at = asked.find("20 0", at)) != std::string::npos;)
    asked.replace(at, asked.find('\n', at) + 1 - at, 1, asked[at + 4]);
  EXPECT_EQ(asked, "2sleep 2000000\n" + traffic + reset) << out;
}

// Erased blocks lead to a record that begins later; all their chunks carry the block's address.
TEST(Update, sends_blocks_in_chunks) {
  serve_card({});
  EXPECT_EQ(after_identity(run({"-u", file_with("fw.mot", srecords(0xFFFFFFFC, "wxyz"))}).traffic),
            "20 02 44 4F 57 4E 4C 4F 41 44\nsleep 2000000\n20 01\n20 04 FF FF FF F8 80 FF\n"
            "20 04 FF FF FF F8 00 FF\n20 04 FF FF FF F8 00 FF\n20 04 FF FF FF F8 40 FF\n"
            "sleep 2000\n20 05\n20 04 FF FF FF FC 80 77\n20 04 FF FF FF FD 00 78\n"
            "20 04 FF FF FF FE 00 79\n20 04 FF FF FF FF 40 7A\nsleep 2000\n20 05\n" +
                RESET);
}

// Data that resumes in a later portion begins with a block. The chunks are longer than the KCS
// ports carry.
TEST(Update, ends_with_the_image_or_with_the_flash) {
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"fw", noise(1), padded(noise(1), 4096)},
      {"fw", noise(4096), padded(noise(4096), 8192)},
      {"fw", noise(0x8000), noise(0x2400)},
      {"fw.mot", srecords(0x10000, "start") + srecords(0x11400, "more"),
       padded(padded("start", 0x1400) + "more", 0x2400)}};
  for (const auto& [name, content, programmed] : cases) {
    serve_card({0x10000, 0x2400, 0x10000, 128, 128, std::string(0x2400, '.')});
    run({"-ou", file_with(name, content)});
    EXPECT_EQ(held(), programmed + std::string(0x2400 - programmed.size(), '.'));
  }
}

// An answer without a status counts as refused.
TEST(Update, sends_a_block_again_up_to_eight_times) {
  for (const std::string fault : {"refuse value=1", "shorten value=1", "answer bytes=0001"}) {
    const std::string pause = fault.starts_with("answer") ? "sleep 1000000\n" : "sleep 3000000\n";
    for (const unsigned times : {1U, 7U, 8U}) {
      serve_card({});
      std::string traffic = FIRST;
      for (unsigned i = 1; i < std::min(times + 1, 8U); i++)
        traffic += pause + "4444sleep " + std::to_string(2000 + 10000 * i) + "\n5";
      if (times < 8) traffic += BLOCK;
      expect(fault + " netfn=8 cmd=5 times=" + std::to_string(times), "-u", RAW,
             times < 8 ? ".OK\n" : ".", traffic);
      EXPECT_EQ(held() == UPDATED, times < 8);
    }
  }
}

TEST(Update, refuses_what_does_not_fit_before_the_first_chunk) {
  const auto refuses = [](const Flash& flash, const std::string& why, const std::string& image) {
    serve_card(flash);
    const std::string path = file_with(image[0] == 'S' ? "fw.mot" : "fw.bin", image);
    expect("", "-u", path, "cannot use the " + why + "\n", "1");
  };
  const std::string sizes = "flash update information: ";
  refuses({.block = 0}, sizes + "the block size is 0", IMAGE);
  refuses({.chunk = 0}, sizes + "the chunk size is 0", IMAGE);
  refuses({.chunk = 3}, sizes + "a block is not made of whole chunks", IMAGE);
  refuses({.block = 3}, sizes + "4096 bytes are not whole blocks", IMAGE);
  refuses({0, 0, 0, 128, 128}, sizes + "a chunk is too long for the KCS ports; try --open", IMAGE);
  refuses({.start = 0xFFFFFFEF}, sizes + "the update start is outside of the flash", IMAGE);
  refuses({.size = 8}, sizes + "the update start is outside of the flash", IMAGE);
  refuses({.size = 17}, sizes + "the flash runs past the last address", IMAGE);
  refuses({.start = 0xFFFFFFF9}, sizes + "the last block runs past the last address", IMAGE);
  const std::string none = "image: it has no data between update start and end of the flash";
  const Flash low = {.base = 0, .size = 0x2000, .start = 8};
  refuses(low, none, "01234567");
  refuses(low, none, "S1051000AABB00\r\n");
  refuses(low, none, srecords(0x2000, "behind the flash"));
  refuses(low, "image: data at 00000007 is below the update start 00000008", srecords(7, "x"));
  refuses(low, "image: data at 00001FFA does not begin with a block of 4 bytes",
          srecords(8, "x") + srecords(0x1FFA, "x"));
}

TEST(Actions, say_what_differs_and_what_stopped_them) {
  const std::string file = path_of("file");
  const std::string fifo = path_of("fifo.mot");
  EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string shut = "cannot open the data file: ";
  const std::string all(256, '3');
  serve_card({});
  expect("", "--verify", "missing", shut + "missing\n");
  expect("", "--verify", fifo, shut + fifo + "\ncannot use the image: it is not a regular file\n");
  expect("", "--verify", file_with("cut", "01234567......"),
         "Verify now\n.data wrong at E\ndata wrong at F\nOK\n", "1" + all);
  expect("", "--verify", file_with("fw.mot", srecords(0xFFFFFFF8, "x......x")),
         "Verify now\n.data wrong at FFFFFFF8\ndata wrong at FFFFFFFF\nOK\n", "1" + all);
  expect("", "--save", "/dev/full", "cannot write the whole flash to /dev/full\n", "1" + all);
  expect("shorten netfn=8 cmd=3 value=11", "--save", file, "cannot read the flash at FFFFFFF0\n",
         "13");
  expect("refuse netfn=8 cmd=1 value=9", "--save", file, "cannot get flash update information\n",
         "1");
  EXPECT_EQ(content_of(file), "(no file)");
  expect("shorten netfn=8 cmd=1 value=10", "-u", RAW, "cannot get flash update information\n", "1");
  serve_card({0x12345670, 16, 0x12345678});
  // Completion code 1 is good on the last chunk of a block.
  expect("answer netfn=8 cmd=4 skip=3 bytes=01", "-u", RAW, ".OK\n", FIRST + BLOCK);
  expect("answer netfn=8 cmd=4 skip=2 bytes=01", "-u", RAW, ".write data error at 1234567A\n",
         "1444");
  expect("shorten netfn=8 cmd=4 skip=4 value=0", "-u", RAW, ".Cannot write data at 1234567C\n",
         FIRST + "4");
  expect("answer netfn=8 cmd=5 bytes=0002", "-u", RAW, ".Write Error\n", FIRST);
}

std::function<void()> harm;

// Prints, and does harm once a portion of the image is in the tool's memory.
int print_and_harm(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int count = std::vprintf(format, arguments);
  va_end(arguments);
  if (std::string(format) == ".") harm();
  return count;
}

TEST(Update, ends_when_the_image_becomes_unreadable) {
  for (const std::string name : {"fw.bin", "fw.mot"}) {
    const std::string image = name == "fw.bin" ? noise(8192) : srecords(0, noise(8192));
    serve_card({0, 8192, 0, 64, 64, std::string(8192, '.')});
    const std::string path = file_with(name, image);
    flashfilename = path.c_str();
    harm = [] {  // the file's handle becomes a folder's
      const int folder = open(".", O_RDONLY | O_DIRECTORY);
      dup2(folder, fileno(fp));
      close(folder);
    };
    EXPECT_EQ(Init_Interface("KCS", 0xCAC, 0xCA8, 0), 0);
    console_of(enter_downloader);
    flashprintf = print_and_harm;
    EXPECT_EQ(console_of([] { EXPECT_EQ(program_firmware(), 0); }),
              "Flashing now\n..cannot use the image: it cannot be read any more\n");
    flashprintf = std::printf;
    EXPECT_EQ(held(), noise(4096) + std::string(4096, '.')) << name;
  }
}

TEST(Update, stops_when_the_image_is_not_the_one_that_was_checked_any_more) {
  namespace fs = std::filesystem;
  const std::string path[] = {path_of("fw.bin"), path_of("fw.mot")};
  const std::string image[] = {noise(12288), srecords(0, noise(12288))};
  const std::string first = [] {
    std::string traffic = "1";
    for (unsigned i = 0; i < 64; i++) traffic += "4sleep 2000\n5";
    return traffic;
  }();
  for (const unsigned i : {0U, 1U}) {
    const std::function<void()> harms[] = {
        [&] { fs::resize_file(path[i], 0); },
        [&] { fs::resize_file(path[i], image[i].size() - 100); },
        [&] { fs::resize_file(path[i], image[i].size() + 100); },
        [&] { file_with(path[i].substr(path_of("").size()), image[i]); },  // as long as before
        [&] {  // by a tool that hides it
          const auto changed = fs::last_write_time(path[i]);
          fs::resize_file(path[i], image[i].size() - 100);
          fs::last_write_time(path[i], changed);
        },
        [&] { fs::remove(path[i]); },
        [&] { fs::rename(file_with("other", image[i]), path[i]); }};
    for (const auto& one : harms) {
      file_with(path[i].substr(path_of("").size()), image[i]);
      fs::last_write_time(path[i], fs::file_time_type::clock::now() - std::chrono::hours(1));
      serve_card({0, 12288, 0, 64, 64, std::string(12288, '.')});
      harm = one;
      flashprintf = print_and_harm;
      expect("", "-u", path[i],
             "..cannot use the image: it is not the file that was checked any more\n", first);
      flashprintf = std::printf;
      EXPECT_EQ(held(), noise(4096) + std::string(8192, '.'));
    }
  }
}

// Requests of an update: 0 enter, 1 information, 2 to 5 chunks, 6 their end, 7 to 11 the same.
TEST(Update, is_whole_or_over_at_once_and_repaired_by_the_next) {
  for (const std::string kind : {"refuse", "power_cut"}) {
    const bool refused = kind == "refuse";
    for (const unsigned skip : {0U, 1U, 2U, 3U, 6U, 7U, 10U, 11U}) {
      serve_card({});
      sim::machine().bmc.faults =
          sim::faults(kind + " netfn=8 value=c0 skip=" + std::to_string(skip));
      const RunResult result = run({"-u", RAW});
      EXPECT_EQ(result.status == 0 && result.traffic.ends_with(RESET), refused);
      EXPECT_EQ(result.out.find(" Cannot enter") != std::string::npos, refused && skip == 0);
      // Block by block: new ones, at most one that is half new, old ones.
      const size_t end = refused && (skip == 6 || skip == 11) ? 16 : skip < 7 ? 8 : 12;
      const size_t old = 16 - end - (!refused && skip > 2 ? 4 : 0);
      EXPECT_EQ(held().erase(end, 16 - end - old), UPDATED.substr(0, end) + std::string(old, '.'));
      expect("", "-u", RAW, ".OK\n", FIRST + BLOCK);
      EXPECT_EQ(held(), UPDATED) << skip;
    }
  }
}

TEST(Exit, resets_and_waits_until_the_card_runs_normally) {
  std::string polls = "18 02\nsleep 4000000\n";
  for (unsigned i = 0; i < 10; i++) polls += "sleep 2000000\n18 01\n";
  const std::string never = "Firmware cannot return normal state\n";
  const std::string gone = "cannot open the data file: .\n";
  const std::string both = "18 02\n18 03\n";
  serve_card({});
  expect("refuse netfn=6 cmd=2 value=c3", "--save", ".", gone, "1", "OK\n", both + RESET.substr(6));
  expect("refuse netfn=6 skip=1 times=0 value=c3", "--save", ".", gone, "1",
         "Cannot exit downloader\n", both);
  expect("refuse netfn=6 cmd=1 skip=1 times=0 value=c3", "--save", ".", gone, "1", never, polls);
  expect("shorten netfn=6 cmd=1 skip=1 times=0 value=3", "--save", ".", gone, "1", never, polls);
}

TEST(Save, writes_whole_portions_that_verify_takes_back) {
  const std::string path = path_of("whole");
  for (const uint32_t size : {4096U, 5000U}) {
    serve_card({0U - size, size, 128U - size, 128, 32, noise(size)});
    const std::string dots((size + 4095) / 4096, '.');
    const std::string traffic = "1" + std::string(dots.size() * 256, '3');
    expect("", "--save", path, dots, traffic);
    EXPECT_EQ(content_of(path), padded(noise(size), dots.size() * 4096));
    expect("", "--verify", path, "Verify now\n" + dots + "OK\n", traffic);
  }
}

}  // namespace

// Updates, saves and verifications on the simulated card, sound and with faults.
#include <sys/stat.h>

#include "tests/firmware_support.h"

namespace {

// A block that is programmed, and an update up to its first one, in words.
const std::string BLOCK = "chunk chunk chunk chunk sleep 2000 end ";
const std::string FIRST = "information " + BLOCK;
// An image of the card that serve_card({}) gives, and the flash after an update with it.
const std::string IMAGE = "01234567stuvwxyz";
const std::string UPDATED = "........stuvwxyz";
const std::string RAW = file_with("raw.bin", IMAGE);

// Erased blocks lead to a record that begins later; all their chunks carry the block's address.
TEST(Update, sends_blocks_in_chunks) {
  serve_card({});
  EXPECT_EQ(after_identity(run({"-u", file_with("fw.mot", srecords(0xFFFFFFFC, "wxyz"))}).traffic),
            "20 02 44 4F 57 4E 4C 4F 41 44\nsleep 2000000\n20 01\n20 04 FF FF FF F8 80 FF\n"
            "20 04 FF FF FF F8 00 FF\n20 04 FF FF FF F8 00 FF\n20 04 FF FF FF F8 40 FF\n"
            "sleep 2000\n20 05\n20 04 FF FF FF FC 80 77\n20 04 FF FF FF FD 00 78\n"
            "20 04 FF FF FF FE 00 79\n20 04 FF FF FF FF 40 7A\nsleep 2000\n20 05\n"
            "18 02\nsleep 4000000\nsleep 2000000\n18 01\nsleep 2000000\n18 01\n");
}

// Data that resumes in a later portion begins with a block. The chunks are longer than the KCS
// ports carry.
TEST(Update, ends_with_the_image_or_with_the_flash) {
  const auto programs = [](const std::string& path, const std::string& programmed) {
    serve_card(old_flash(0x2400, 128));
    run({"-ou", path});
    EXPECT_EQ(flash_content(), programmed + std::string(0x2400 - programmed.size(), '.'));
  };
  programs(file_with("fw", noise(1)), padded(noise(1), 4096));
  programs(file_with("fw", noise(4096)), padded(noise(4096), 8192));
  programs(file_with("fw", noise(0x8000)), noise(0x2400));
  programs(file_with("fw.mot", srecords(0, "start") + srecords(0x1400, "more")),
           padded(padded("start", 0x1400) + "more", 0x2400));
}

// An answer without a status counts as refused.
TEST(Update, sends_a_block_again_up_to_eight_times) {
  const std::pair<std::string, std::string> cases[] = {{"refuse value=1", "sleep 3000000 "},
                                                       {"shorten value=1", "sleep 3000000 "},
                                                       {"answer bytes=0001", "sleep 1000000 "}};
  for (const auto& [fault, pause] : cases) {
    const std::string faults = fault + " netfn=8 cmd=5 times=";
    std::string again[8];  // what follows so many ends of the block that fail
    for (unsigned i = 1; i < 8; i++) {
      const std::string wait_us = std::to_string(2000 + 10000 * i);
      again[i] = again[i - 1] + pause + "chunk chunk chunk chunk sleep " + wait_us + " end ";
    }
    for (const unsigned times : {1U, 7U}) {
      serve_card({});
      updates(RAW, ".OK\n", FIRST + again[times] + BLOCK, faults + std::to_string(times));
      EXPECT_EQ(flash_content(), UPDATED);
    }
    serve_card({});
    fails_to_update(RAW, ".", FIRST + again[7], faults + "8");
    EXPECT_NE(flash_content(), UPDATED);
  }
}

TEST(Update, refuses_what_does_not_fit_before_the_first_chunk) {
  const auto refuses = [](const Flash& flash, const std::string& why, const std::string& image) {
    serve_card(flash);
    const std::string path = file_with(image[0] == 'S' ? "fw.mot" : "fw.bin", image);
    fails_to_update(path, "cannot use the " + why + "\n", "information ");
  };
  const std::string sizes = "flash update information: ";
  refuses({.block = 0}, sizes + "the block size is 0", IMAGE);
  refuses({.chunk = 0}, sizes + "the chunk size is 0", IMAGE);
  refuses({.chunk = 3}, sizes + "a block is not made of whole chunks", IMAGE);
  refuses({.block = 3}, sizes + "4096 bytes are not whole blocks", IMAGE);
  refuses({.block = 128, .chunk = 128}, sizes + "a chunk is too long for the KCS ports; try --open",
          IMAGE);
  refuses({.start = 0xFFFFFFEF}, sizes + "the update start is outside of the flash", IMAGE);
  refuses({.size = 8}, sizes + "the update start is outside of the flash", IMAGE);
  refuses({.size = 17}, sizes + "the flash runs past the last address", IMAGE);
  refuses({.start = 0xFFFFFFF9}, sizes + "the last block runs past the last address", IMAGE);
  const std::string none = "image: it has no data between update start and end of the flash";
  const Flash low = {.base = 0, .size = 0x2000, .start = 8};
  refuses(low, none, "01234567");
  refuses(low, none, "S1051000AABB00\r\n");
  refuses(low, none, srecords(0x2000, "after the flash"));
  refuses(low, "image: data at 00000007 is below the update start 00000008", srecords(7, "x"));
  refuses(low, "image: data at 00001FFA does not begin with a block of 4 bytes",
          srecords(8, "x") + srecords(0x1FFA, "x"));
}

TEST(Actions, say_what_differs_and_what_stopped_them) {
  const std::string fifo = path_of("fifo.mot");
  EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string shut = "cannot open the data file: ";
  serve_card({});
  verification("missing").says(shut + "missing\n", "");
  verification(fifo).says(shut + fifo + "\ncannot use the image: it is not a regular file\n", "");
  const std::string portion = "information " + repeated(256, "read ");
  verification(file_with("cut", "01234567......"))
      .says("Verify now\n.data wrong at E\ndata wrong at F\nOK\n", portion);
  verification(file_with("fw.mot", srecords(0xFFFFFFF8, "x......x")))
      .says("Verify now\n.data wrong at FFFFFFF8\ndata wrong at FFFFFFFF\nOK\n", portion);
  save("/dev/full").says("cannot write the whole flash to /dev/full\n", portion);
  const std::string file = path_of("file");
  save(file).says("cannot read the flash at FFFFFFF0\n", "information read ",
                  "shorten netfn=8 cmd=3 value=11");
  const std::string unknown = "cannot get flash update information\n";
  save(file).says(unknown, "information ", "refuse netfn=8 cmd=1 value=9");
  EXPECT_EQ(content_of(file), "(no file)");
  fails_to_update(RAW, unknown, "information ", "shorten netfn=8 cmd=1 value=10");
}

TEST(Update, ends_with_the_address_of_the_chunk_or_block_that_is_not_taken) {
  serve_card({.base = 0x12345670, .start = 0x12345678});
  // Completion code 1 is good on the last chunk of a block.
  updates(RAW, ".OK\n", FIRST + BLOCK, "answer netfn=8 cmd=4 skip=3 bytes=01");
  fails_to_update(RAW, ".write data error at 1234567A\n", "information chunk chunk chunk ",
                  "answer netfn=8 cmd=4 skip=2 bytes=01");
  fails_to_update(RAW, ".Cannot write data at 1234567C\n", FIRST + "chunk ",
                  "shorten netfn=8 cmd=4 skip=4 value=0");
  fails_to_update(RAW, ".Write Error\n", FIRST, "answer netfn=8 cmd=5 bytes=0002");
}

// Block by block the flash holds new bytes, then at most one block that is half new, then old ones.
TEST(Update, is_whole_or_over_at_once_and_repaired_by_the_next) {
  const struct {
    const char* request;
    const char* fault;
    const char* when_refused;  // the flash from the update's start on
    const char* when_power_is_cut;
  } cases[] = {{"enter", "skip=0", "........", "........"},
               {"information", "skip=1", "........", "........"},
               {"first chunk", "skip=2", "........", "........"},
               {"second chunk", "skip=3", "........", "s\xFF......"},
               {"end of the first block", "skip=6", "stuvwxyz", "st......"},
               {"first chunk of the second block", "skip=7", "stuv....", "stuv...."},
               {"last chunk", "skip=10", "stuv....", "stuvwx.."},
               {"end of the last block", "skip=11", "stuvwxyz", "stuvwx.."}};
  const auto update = [](const std::string& faults, const std::string& programmed) {
    serve_card({});
    sim::machine().bmc.faults = sim::faults(faults);
    const RunResult result = run({"-u", RAW});
    EXPECT_EQ(flash_content(), "........" + programmed) << faults;
    updates(RAW, ".OK\n", FIRST + BLOCK);
    EXPECT_EQ(flash_content(), UPDATED) << faults;
    return result;
  };
  for (const auto& [request, fault, when_refused, when_power_is_cut] : cases) {
    const RunResult refused = update(std::string("refuse netfn=8 value=c0 ") + fault, when_refused);
    EXPECT_EQ(refused.status, 0) << request;
    EXPECT_TRUE(in_words(refused.traffic).ends_with(RESET)) << request;
    const bool outside = refused.out.find(" Cannot enter downloader\n") != std::string::npos;
    EXPECT_EQ(outside, request == std::string("enter"));
    EXPECT_EQ(update(std::string("power_cut netfn=8 ") + fault, when_power_is_cut).status, 137);
  }
}

TEST(Exit, resets_and_waits_until_the_card_runs_normally) {
  const std::string polls = "cold_reset sleep 4000000 " + repeated(10, "sleep 2000000 identity ");
  const std::string never = "Firmware cannot return normal state\n";
  serve_card({});
  const auto leaves = [](const std::string& said, const std::string& asked, const char* faults) {
    save(".").says_and_leaves("cannot open the data file: .\n", "information ", said, asked,
                              faults);
  };
  leaves("OK\n", "cold_reset warm_" + RESET.substr(5), "refuse netfn=6 cmd=2 value=c3");
  leaves("Cannot exit downloader\n", "cold_reset warm_reset ",
         "refuse netfn=6 skip=1 times=0 value=c3");
  leaves(never, polls, "refuse netfn=6 cmd=1 skip=1 times=0 value=c3");
  leaves(never, polls, "shorten netfn=6 cmd=1 skip=1 times=0 value=3");
}

TEST(Save, writes_whole_portions_that_verify_takes_back) {
  const std::string path = path_of("whole");
  const auto takes_portions = [&](uint32_t size, unsigned portions) {
    serve_card({.base = 0U - size,
                .size = size,
                .start = 128U - size,
                .block = 128,
                .chunk = 32,
                .content = noise(size)});
    const std::string asked = "information " + repeated(portions * 256, "read ");
    const std::string dots(portions, '.');
    save(path).says(dots, asked);
    EXPECT_EQ(content_of(path), padded(noise(size), portions * 4096));
    verification(path).says("Verify now\n" + dots + "OK\n", asked);
  };
  takes_portions(4096, 1);
  takes_portions(5000, 2);
}

}  // namespace

// Updates, saves and verifications on the simulated card, sound and with faults.
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
  EXPECT_EQ(run("-u " + file_with("fw.mot", srecords(0xFFFFFFFC, "wxyz"))).sent,
            "20 02 44 4F 57 4E 4C 4F 41 44\nsleep 2000000\n20 01\n20 04 FF FF FF F8 80 FF\n"
            "20 04 FF FF FF F8 00 FF\n20 04 FF FF FF F8 00 FF\n20 04 FF FF FF F8 40 FF\n"
            "sleep 2000\n20 05\n20 04 FF FF FF FC 80 77\n20 04 FF FF FF FD 00 78\n"
            "20 04 FF FF FF FE 00 79\n20 04 FF FF FF FF 40 7A\nsleep 2000\n20 05\n"
            "18 02\nsleep 4000000\nsleep 2000000\n18 01\nsleep 2000000\n18 01\n");
}

// Data that resumes in a later portion begins with a block. The chunks are longer than the KCS
// ports carry.
TEST(Update, ends_with_the_image_or_with_the_flash) {
  const auto programs = [](const char* name, const std::string& image, const std::string& flash) {
    serve_card({.base = 0, .size = 0x2400, .start = 0, .block = 128, .chunk = 128});
    run("-ou " + file_with(name, image));
    EXPECT_EQ(flash_content(), flash + std::string(0x2400 - flash.size(), '.'));
  };
  programs("fw", noise(1), padded(noise(1), 4096));
  programs("fw", noise(4096), padded(noise(4096), 8192));
  programs("fw", noise(0x8000), noise(0x2400));
  programs("fw.mot", srecords(0, "start") + srecords(0x1400, "more"),
           padded(padded("start", 0x1400) + "more", 0x2400));
  programs("fw.mot", srecords(0, "a") + srecords(0x80, "late") + srecords(1, "early"),
           padded(padded("aearly", 0x80) + "late", 0x1000));
}

// An answer without a status counts as refused.
TEST(Update, sends_a_block_again_up_to_eight_times) {
  const std::pair<std::string, std::string> cases[] = {{"refuse value=1", "sleep 3000000 "},
                                                       {"shorten value=1", "sleep 3000000 "},
                                                       {"answer bytes=0001", "sleep 1000000 "}};
  for (const auto& [fault, pause] : cases) {
    const std::string faults = fault + " netfn=8 cmd=5 times=";
    std::string asked = FIRST;
    for (unsigned failures = 1; failures < 8; failures++) {
      const std::string wait_us = std::to_string(2000 + 10000 * failures);
      asked += pause + "chunk chunk chunk chunk sleep " + wait_us + " end ";
      serve_card({});
      EXPECT_EQ(outcome("-u", RAW, {faults + std::to_string(failures)}), ".OK\n" + asked + BLOCK);
      EXPECT_EQ(flash_content(), UPDATED);
    }
    serve_card({});
    EXPECT_EQ(outcome("-u", RAW, {faults + "8"}), ".FAIL\n" + asked);
    EXPECT_NE(flash_content(), UPDATED);
  }
}

TEST(Update, refuses_what_does_not_fit_before_the_first_chunk) {
  const std::string sizes = "flash update information: ";
  const std::string none = "image: it has no data between update start and end of the flash";
  const Flash low = {.base = 0, .size = 0x2000, .start = 8};
  const std::tuple<Flash, std::string, std::string> cases[] = {
      {{.block = 0}, sizes + "the block size is 0", IMAGE},
      {{.chunk = 0}, sizes + "the chunk size is 0", IMAGE},
      {{.chunk = 3}, sizes + "a block is not made of whole chunks", IMAGE},
      {{.block = 3}, sizes + "4096 bytes are not whole blocks", IMAGE},
      {{.block = 128, .chunk = 128},
       sizes + "a chunk is too long for the KCS ports; try --open",
       IMAGE},
      {{.start = 0xFFFFFFEF}, sizes + "the update start is outside of the flash", IMAGE},
      {{.size = 8}, sizes + "the update start is outside of the flash", IMAGE},
      {{.size = 17}, sizes + "the flash runs past the last address", IMAGE},
      {{.start = 0xFFFFFFF9}, sizes + "the last block runs past the last address", IMAGE},
      {low, none, "01234567"},
      {low, none, srecords(0x2000, "after the flash")},
      {low, none, "S30500000008F2\n"},
      {low, "image: data at 00000007 is below the update start 00000008", srecords(7, "x")},
      {low, "image: data at 00001FFA does not begin with a block of 4 bytes",
       srecords(8, "x") + srecords(0x1FFA, "x")}};
  for (const auto& [flash, why, image] : cases) {
    serve_card(flash);
    EXPECT_EQ(outcome("-u", file_with(image[0] == 'S' ? "fw.mot" : "fw.bin", image)),
              "cannot use the " + why + "\nFAIL\ninformation ");
  }
}

TEST(Verify, names_the_address_of_each_byte_that_differs) {
  const std::string portion = "information " + repeated(256, "read ");
  serve_card({});
  EXPECT_EQ(outcome("--verify", file_with("cut", "01234567......")),
            "Verify now\n.data wrong at E\ndata wrong at F\nOK\n" + portion);
  EXPECT_EQ(outcome("--verify", file_with("fw.mot", srecords(0xFFFFFFF8, "x......x"))),
            "Verify now\n.data wrong at FFFFFFF8\ndata wrong at FFFFFFFF\nOK\n" + portion);
}

TEST(Actions, name_what_stopped_them) {
  const std::string fifo = new_fifo("fifo.mot");
  const std::string file = path_of("file");
  const std::string unknown = "cannot get flash update information\n";
  serve_card({});
  EXPECT_EQ(outcome("--verify", "missing"), "cannot open the data file: missing\n");
  EXPECT_EQ(outcome("--verify", fifo), "cannot open the data file: " + fifo +
                                           "\ncannot use the image: it is not a regular file\n");
  EXPECT_EQ(outcome("--save", "."), "cannot open the data file: .\ninformation ");
  EXPECT_EQ(outcome("--save", "/dev/full"),
            "cannot write the whole flash to /dev/full\ninformation " + repeated(256, "read "));
  EXPECT_EQ(outcome("--save", file, {"shorten netfn=8 cmd=3 value=11"}),
            "cannot read the flash at FFFFFFF0\ninformation read ");
  EXPECT_EQ(outcome("--save", file, {"refuse netfn=8 cmd=1 value=9"}), unknown + "information ");
  EXPECT_EQ(content_of(file), "(no file)");
  EXPECT_EQ(outcome("-u", RAW, {"shorten netfn=8 cmd=1 value=10"}), unknown + "FAIL\ninformation ");
}

TEST(Update, ends_with_the_address_of_the_chunk_or_block_that_is_not_taken) {
  serve_card({.base = 0x12345670, .start = 0x12345678});
  // Completion code 1 is good on the last chunk of a block.
  EXPECT_EQ(outcome("-u", RAW, {"answer netfn=8 cmd=4 skip=3 bytes=01"}), ".OK\n" + FIRST + BLOCK);
  EXPECT_EQ(outcome("-u", RAW, {"answer netfn=8 cmd=4 skip=2 bytes=01"}),
            ".write data error at 1234567A\nFAIL\ninformation chunk chunk chunk ");
  EXPECT_EQ(outcome("-u", RAW, {"shorten netfn=8 cmd=4 skip=4 value=0"}),
            ".Cannot write data at 1234567C\nFAIL\n" + FIRST + "chunk ");
  EXPECT_EQ(outcome("-u", RAW, {"answer netfn=8 cmd=5 bytes=0002"}),
            ".Write Error\nFAIL\n" + FIRST);
}

// Block by block the flash holds new bytes, then at most one block that is half new, then old ones.
TEST(Update, is_whole_or_over_at_once_and_repaired_by_the_next) {
  const struct {
    const char* request;
    unsigned before;           // requests that pass first
    const char* when_refused;  // the flash from the update's start on
    const char* when_power_is_cut;
  } cases[] = {{"enter", 0, "........", "........"},
               {"first chunk", 2, "........", "........"},
               {"second chunk", 3, "........", "s\xFF......"},
               {"end of the first block", 6, "stuvwxyz", "st......"},
               {"first chunk of the second block", 7, "stuv....", "stuv...."},
               {"end of the last block", 11, "stuvwxyz", "stuvwx.."}};
  for (const auto& [request, before, when_refused, when_power_is_cut] : cases) {
    for (const auto& [fault, programmed, status] :
         {std::tuple("refuse value=c0", when_refused, 0), {"power_cut", when_power_is_cut, 137}}) {
      serve_card({});
      const std::string faults = fault + (" netfn=8 skip=" + std::to_string(before));
      const RunResult result = run("-u " + RAW, {.faults = faults});
      EXPECT_EQ(result.status, status) << request;
      EXPECT_EQ(in_words(result.traffic).ends_with(RESET), status == 0) << request;
      EXPECT_EQ(result.out.find(" Cannot enter downloader\n") != std::string::npos,
                before == 0 && status == 0);
      EXPECT_EQ(flash_content(), std::string("........") + programmed) << fault << request;
      EXPECT_EQ(outcome("-u", RAW), ".OK\n" + FIRST + BLOCK);
      EXPECT_EQ(flash_content(), UPDATED) << fault << request;
    }
  }
}

TEST(Exit, resets_and_waits_until_the_card_runs_normally) {
  const std::string polls = "cold_reset sleep 4000000 " + repeated(10, "sleep 2000000 identity ");
  const char never[] = "Firmware cannot return normal state\n";
  const std::tuple<const char*, std::string, const char*> cases[] = {
      {"OK\n", "cold_reset warm_" + RESET.substr(5), "refuse netfn=6 cmd=2 value=c3"},
      {"Cannot exit downloader\n", "cold_reset warm_reset ",
       "refuse netfn=6 skip=1 times=0 value=c3"},
      {never, polls, "refuse netfn=6 cmd=1 skip=1 times=0 value=c3"},
      {never, polls, "shorten netfn=6 cmd=1 skip=1 times=0 value=3"}};
  for (const auto& [said, asked, faults] : cases) {
    serve_card({});
    const RunResult result = run("--save .", {.faults = faults});
    EXPECT_TRUE(result.out.ends_with(std::string("reset and wait\nExit Downloader......") + said));
    EXPECT_EQ(in_words(result.sent), "enter sleep 2000000 information " + asked) << faults;
  }
}

TEST(Save, writes_whole_portions_that_verify_takes_back) {
  const std::string path = path_of("whole");
  for (const auto& [size, portions] : {std::pair(4096U, 1U), {5000U, 2U}}) {
    serve_card({.base = 0U - size, .size = size, .start = 128U - size, .block = 128, .chunk = 32});
    const std::string content = noise(size);
    sim::machine().bmc.card.flash.assign(content.begin(), content.end());
    const std::string asked = "information " + repeated(portions * 256, "read ");
    const std::string dots(portions, '.');
    EXPECT_EQ(outcome("--save", path), dots + asked);
    EXPECT_EQ(content_of(path), padded(content, portions * 4096));
    EXPECT_EQ(outcome("--verify", path), "Verify now\n" + dots + "OK\n" + asked);
  }
}

}  // namespace

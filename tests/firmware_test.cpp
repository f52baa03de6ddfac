// Updates, saves and verifications on the simulated card, sound and with faults.
#include "platform/platform.h"
#include "tests/firmware_support.h"
#include "transport/transaction.h"

namespace {

using sim::FaultKind;

constexpr int APP = 0x06;
constexpr int FIRMWARE = 0x08;
constexpr uint32_t START = 0xFFFFFE00;  // of 4 blocks that end at the top of the address space
const std::string CODE = "20 02 44 4F 57 4E 4C 4F 41 44\n";
const std::string BEGIN = CODE + "sleep 2000000\n20 01\n";
const std::string RESET = "18 02\nsleep 4000000\nsleep 2000000\n18 01\nsleep 2000000\n18 01\n";
const std::string ENTERED = "\nEnter Downloader......OK\n";
const std::string LEFT = "reset and wait\nExit Downloader......OK\n";

struct Flash {
  uint32_t base = 0xFFFFFA00;
  uint32_t size = 0x600;
  uint32_t start = START;
  uint8_t block = 128;
  uint8_t chunk = 32;
};

sim::Card& card() {
  return sim::machine().bmc.card;
}

void serve_card(const Flash& flash, const std::vector<sim::Fault>& faults = {}) {
  sim::reset(sim::Kind::card);
  card().flash_base = flash.base;
  card().flash_size = flash.size;
  card().update_start = flash.start;
  card().block_size = flash.block;
  card().chunk_size = flash.chunk;
  sim::machine().bmc.faults = faults;
}

Bytes flash(size_t offset, size_t count) {
  return slice(sim::card_flash(card()), offset, count);
}

// Of the downloader's requests of this number, the one after `skip` others.
sim::Fault refuse(int command, unsigned skip, int netfn = FIRMWARE, unsigned times = 1) {
  return {FaultKind::refuse, netfn, command, skip, times, 0xC3};
}
sim::Fault answer(int command, unsigned skip, const Bytes& bytes, unsigned times = 1) {
  return {FaultKind::answer, FIRMWARE, command, skip, times, 0, bytes};
}
sim::Fault shorten(int command, unsigned skip, unsigned length) {
  return {FaultKind::shorten, FIRMWARE, command, skip, 1, length};
}

std::string new_raw() {
  return file_with("fw.bin", text_of(noise(0x600)));
}

// A whole command, without the identity of the BMC.
RunResult command(const std::vector<std::string>& words) {
  RunResult result = run(words);
  result.out = after_identity(result.out);
  result.traffic = after_identity(result.traffic);
  return result;
}

// One action in this process, over the kernel's device. The status is its result.
RunResult act(int (*action)(), const std::string& path) {
  name_image(path);
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
  const size_t before = sim::transcript().size();
  RunResult result;
  result.out = console_of([&] { result.status = action(); });
  result.traffic = sim::transcript().substr(before);
  openIpmiFlag = 0;
  driverHandle = -1;
  return result;
}

std::string update_text(const std::string& path, const std::string& outcome) {
  return "Update Firmware with File " + path + ENTERED + "Flashing now\n" + outcome + LEFT;
}

unsigned count_of(const std::string& text, const std::string& part) {
  unsigned count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) count++;
  return count;
}

// Four chunks of one block as they reach the card.
std::string block_traffic(uint32_t address, const Bytes& bytes, uint32_t step = 32) {
  std::string text;
  for (unsigned i = 0; i < 4; i++, address += step) {
    const uint8_t flags = i == 0 ? 0x80 : i == 3 ? 0x40 : 0;
    const Bytes head = {
        0x20, 4, 0xFF, 0xFF, static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address),
        flags};
    text += sim::hex_text(head) + " " + sim::hex_text(slice(bytes, size_t{32} * i, 32)) + "\n";
  }
  return text;
}

TEST(Update, ProgramsARawImageOnEitherPath) {
  const Bytes image = noise(0x600);
  std::string expected = BEGIN;
  for (unsigned i = 0; i < 4; i++) {
    expected += block_traffic(START + 128 * i, slice(image, 0x400 + 128 * i, 128));
    expected += "sleep 2000\n20 05\n";
  }
  const std::string path = new_raw();
  for (const char* options : {"-u", "-ou"}) {
    serve_card({});
    const Bytes before = flash(0, 0x400);
    const RunResult result = command({options, path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.traffic, expected + RESET);
    EXPECT_EQ(result.out, update_text(path, ".OK\n"));
    EXPECT_EQ(flash(0, 0x400), before);
    EXPECT_EQ(flash(0x400, 0x200), slice(image, 0x400, 0x200));
  }
}

TEST(Update, EndsWithTheImageOrWithTheFlash) {
  // Bytes of the image, and bytes programmed from the update start on.
  const std::pair<size_t, size_t> cases[] = {
      {0x401, 4096}, {0x1400, 8192}, {0x1401, 8192}, {0x4000, 9216}};
  for (const auto& [length, programmed] : cases) {
    serve_card({.base = 0xFF000000, .size = 0x2800, .start = 0xFF000400});
    card().flash = Bytes(0x2800, 0x11);
    Bytes expected = noise(length);
    act(firmwareUpdate, file_with("fw", text_of(expected)));
    expected.resize(0x400 + programmed, 0xFF);
    expected.resize(0x2800, 0x11);
    std::fill_n(expected.begin(), 0x400, uint8_t{0x11});
    EXPECT_EQ(card().flash, expected) << length;
  }
}

// Erased blocks lead to a record that begins later; all their chunks carry the block's address.
TEST(Update, ErasesUpToTheFirstRecord) {
  serve_card({});
  const std::string path = file_with("fw.mot", srecords(START + 256, noise(200)));
  const std::string erasing = block_traffic(START + 128, Bytes(128, 0xFF), 0);
  EXPECT_NE(act(firmwareUpdate, path).traffic.find(erasing), std::string::npos);
  EXPECT_EQ(flash(0x400, 512), erased_but(512, {{256, noise(200)}}));
}

// A block of one chunk may be longer than the KCS ports carry. Data that resumes in a later portion
// must begin with a block.
TEST(Update, ProgramsLongChunksAndGapsOfWholeBlocks) {
  const Bytes later = noise(300, 2);
  for (const uint32_t gap : {5120U, 5121U}) {
    serve_card({.base = 0x10000, .size = 0x4000, .start = 0x10000, .chunk = 128});
    const std::string records = srecords(0x10000, noise(300)) + srecords(0x10000 + gap, later);
    const RunResult result = act(firmwareUpdate, file_with("fw.mot", records));
    const bool fits = gap == 5120;
    EXPECT_EQ(result.out.find("now\n..OK\n") != std::string::npos, fits) << result.out;
    EXPECT_EQ(count_of(result.traffic, "\n20 04 "), fits ? (5120 + 4096) / 128U : 0);
    EXPECT_EQ(flash(gap, 300) == later, fits);
  }
}

TEST(Update, SendsABlockAgainUpToEightTimes) {
  const std::string path = new_raw();
  const std::string chunks = block_traffic(START + 128, slice(noise(0x600), 0x480, 128));
  for (const bool refused : {false, true}) {
    for (const unsigned times : {1U, 7U, 8U}) {
      serve_card({}, {refused ? refuse(5, 1, FIRMWARE, times) : answer(5, 1, {0, 1}, times)});
      const RunResult result = act(firmwareUpdate, path);
      std::string expected;
      for (unsigned i = 0; i < std::min(times + 1, 8U); i++) {
        if (i > 0) expected += refused ? "sleep 3000000\n" : "sleep 1000000\n";
        expected += chunks + "sleep " + std::to_string(2000 + 10000 * i) + "\n20 05\n";
      }
      expected += times == 8 ? "18 02\n" : "20 04 FF FF FF 00";
      EXPECT_NE(result.traffic.find(expected), std::string::npos) << times;
      const std::string outcome = times == 8 ? ".can't find file " + path + "\n" : ".OK\n";
      EXPECT_EQ(result.out, update_text(path, outcome));
    }
  }
}

TEST(Update, RefusesWhatDoesNotFitBeforeTheFirstChunk) {
  const std::string sizes = "flash update information: ";
  const std::string none = "image: it has no data between update start and end of the flash";
  const std::string unaligned = "image: data at FFFFFFF0 does not begin with a block of 128 bytes";
  const auto below = [](const std::string& address) {
    return "image: data at " + address + " is below the update start FFFFFE00";
  };
  const struct {
    std::string reason;
    Flash flash;
    const char* name = "fw.bin";
    std::string content = text_of(noise(0x600));
  } cases[] = {
      {sizes + "the block size is 0", {.block = 0}},
      {sizes + "the chunk size is 0", {.chunk = 0}},
      {sizes + "a block is not made of whole chunks", {.chunk = 48}},
      {sizes + "a block is not made of whole chunks", {.block = 32, .chunk = 64}},
      {sizes + "4096 bytes are not whole blocks", {.block = 96}},
      {sizes + "the update start is outside of the flash", {.start = 0xFFFFF9FF}},
      {sizes + "the update start is outside of the flash", {.size = 0x400}},
      {sizes + "the flash runs past the last address", {.size = 0x601}},
      {sizes + "the last block runs past the last address", {.start = START + 32}},
      {none, {}, "fw", ""},
      {none, {}, "fw", std::string(0x400, 'x')},
      {none, {}, "fw.mot", ""},
      {none, {}, "fw.mot", "S1051000AABB00\r\n"},
      {none, {.base = 0x10000, .start = 0x10400}, "fw.mot", srecords(START, noise(64))},
      {unaligned, {}, "fw.mot", srecords(0xFFFFFFF0, noise(16))},
      {below("FFFFFDFF"), {}, "fw.mot", srecords(START - 1, noise(64))},
      {below("00000000"), {}, "fw.mot", srecords(0, noise(64)) + srecords(START, noise(64))},
  };
  for (const auto& entry : cases) {
    serve_card(entry.flash);
    const std::string path = file_with(entry.name, entry.content);
    const RunResult result = act(firmwareUpdate, path);
    EXPECT_EQ(result.out, update_text(path, "cannot use the " + entry.reason +
                                                "\ncan't find file " + path + "\n"));
    EXPECT_EQ(result.traffic, BEGIN + RESET) << entry.reason;
  }
  serve_card({.chunk = 128});
  const RunResult result = command({"-u", new_raw()});
  EXPECT_NE(result.out.find(sizes + "a chunk is too long for the KCS ports; try --open\ncan't"),
            std::string::npos);
  EXPECT_EQ(result.traffic, BEGIN + RESET);
}

TEST(Actions, SayWhatDiffersAndWhatStoppedThem) {
  const std::string raw = new_raw();
  const std::string saved = path_of("saved");
  const std::string no_information = "cannot get flash update information\n";
  const std::string differs = "Verify now\n.data wrong at ";
  const std::string two = file_with("two", std::string(0x402, '\xFF'));
  const std::string empty = file_with("empty", "");
  const std::string record = file_with("fw.mot", srecords(START, {0xFF}));
  const sim::Fault none = refuse(9, 0);
  const struct {
    int (*action)();
    std::string path;
    sim::Fault fault;
    std::string out;  // between entering and leaving the downloader
    unsigned chunks = 0;
  } cases[] = {
      // Completion code 1 is good on the last chunk of a block.
      {firmwareUpdate, raw, answer(4, 3, {1}), ".OK\n", 16},
      {firmwareUpdate, raw, answer(4, 2, {1}), ".write data error at FFFFFE40\n", 3},
      {firmwareUpdate, raw, refuse(4, 4), ".Cannot write data at FFFFFE80\n", 5},
      {firmwareUpdate, raw, shorten(4, 4, 0), ".Cannot write data at FFFFFE80\n", 5},
      {firmwareUpdate, raw, answer(5, 0, {0, 2}), ".Write Error\n", 4},
      {firmwareUpdate, raw, answer(5, 0, {0}), ".OK\n", 20},
      {firmwareUpdate, raw, refuse(1, 0), no_information},
      {firmwareUpdate, raw, shorten(1, 0, 16), no_information},
      {firmwareUpdate, raw, refuse(2, 0), no_information},
      {firmwareSave, saved, refuse(1, 0), no_information},
      {firmwareSave, saved, refuse(3, 20), "cannot read the flash at FFFFFB40\n"},
      {firmwareSave, saved, shorten(3, 20, 17), "cannot read the flash at FFFFFB40\n"},
      {firmwareSave, saved + "/x", none, "cannot open the data file: " + saved + "/x\n"},
      {firmwareSave, "/dev/full", none, "cannot write the whole flash to /dev/full\n"},
      {firmwareVerify, "missing", none, "cannot open the data file: missing\n"},
      {firmwareVerify, two, none, differs + "401\ndata wrong at 5FF\nOK\n"},
      {firmwareVerify, empty, none, differs + "401\ndata wrong at 5FF\nOK\n"},
      {firmwareVerify, record, none, differs + "FFFFFE01\ndata wrong at FFFFFFFF\nOK\n"},
  };
  for (const auto& entry : cases) {
    serve_card({}, {entry.fault});
    card().flash = erased_but(0x600, {{0x401, {0}}, {0x5FF, {0}}});
    const RunResult result = act(entry.action, entry.path);
    const bool entered = entry.fault.command != 2;
    std::string expected = entered ? ENTERED : "\nEnter Downloader...... Cannot enter downloader\n";
    if (entry.action == firmwareUpdate) expected += "Flashing now\n";
    expected += entry.out;
    const bool failed = entry.action == firmwareUpdate && entry.out != ".OK\n";
    if (failed) expected += "can't find file " + raw + "\n";
    EXPECT_TRUE(result.out.ends_with(entry.path + expected + LEFT)) << result.out;
    EXPECT_EQ(count_of(result.traffic, "\n20 04 "), entry.chunks) << entry.out;
    EXPECT_TRUE(result.traffic.starts_with(CODE + (entered ? "sleep 2000000\n" : "20 01\n")));
    EXPECT_TRUE(result.traffic.ends_with(RESET));
    EXPECT_EQ(content_of(saved), "(no file)");
  }
}

// Each request of an update of two blocks: enter, information, twice four chunks and their end.
TEST(Update, IsWholeOrOverAtOnceAndRepairedByTheNext) {
  const std::string path = new_raw();
  const Bytes image = noise(0x600);
  const std::pair<FaultKind, unsigned> kinds[] = {
      {FaultKind::refuse, 1}, {FaultKind::refuse, 0}, {FaultKind::power_cut, 1}};
  for (const auto& [kind, times] : kinds) {
    for (unsigned skip = 0; skip < 12; skip++) {
      serve_card({.start = 0xFFFFFF00}, {{kind, FIRMWARE, -1, skip, times, 0xC0}});
      const Bytes before = flash(0, 0x600);
      const bool cut = kind == FaultKind::power_cut;
      const RunResult result = cut ? command({"-u", path}) : act(firmwareUpdate, path);
      const bool whole = !cut && times == 1 && (skip == 6 || skip == 11);
      if (cut) {
        EXPECT_EQ(result.status, 137);
      } else {
        const std::string outcome = whole ? ".OK\n" : "can't find file " + path + "\n";
        EXPECT_TRUE(result.out.ends_with(outcome + LEFT)) << result.out;
        EXPECT_TRUE(result.traffic.ends_with(RESET));
        EXPECT_LE(count_of(result.traffic, "\n20 0"), whole ? 16 : skip + 1);
      }
      // Block by block: new ones, at most one that is half new, old ones.
      const size_t done = skip > 2 ? (skip - 2) / 5 * 128 : 0;
      const size_t touched = whole ? 256 : skip > 2 ? done + 128 : 0;
      EXPECT_EQ(flash(0x500, done), slice(image, 0x500, done)) << skip;
      EXPECT_EQ(flash(0x500 + touched, 256), slice(before, 0x500 + touched, 256)) << skip;
      EXPECT_EQ(flash(0x500, 256) == slice(image, 0x500, 256), whole) << skip;
      sim::machine().bmc.faults.clear();
      EXPECT_EQ(act(firmwareUpdate, path).out, update_text(path, ".OK\n"));
      EXPECT_EQ(flash(0x500, 256), slice(image, 0x500, 256)) << skip;
    }
  }
}

TEST(Exit, ResetsAndWaitsUntilTheCardRunsNormally) {
  const std::string both = "18 02\n18 03\n";
  std::string polls = "18 02\nsleep 4000000\n";
  for (unsigned i = 0; i < 10; i++) polls += "sleep 2000000\n18 01\n";
  const std::string never = "Firmware cannot return normal state\n";
  const struct {
    std::vector<sim::Fault> faults;
    std::string traffic;
    std::string out;
    uint64_t away_us = 3000000;
  } cases[] = {
      {{refuse(2, 0, APP)}, both + RESET.substr(6), "OK\n"},
      {{refuse(2, 0, APP), refuse(3, 0, APP)}, both, "Cannot exit downloader\n"},
      {{refuse(1, 0, APP, 0)}, polls, never},
      {{{FaultKind::shorten, APP, 1, 0, 0, 3}}, polls, never},
      {{}, polls, never, 60000000},
  };
  for (const auto& entry : cases) {
    serve_card({}, entry.faults);
    card().away_us = entry.away_us;
    const RunResult result = act(exit_downloader, "");
    EXPECT_EQ(result.traffic, entry.traffic);
    EXPECT_TRUE(result.out.ends_with(entry.out)) << result.out;
    EXPECT_EQ(result.status, entry.out == "OK\n");
  }
}

TEST(Save, WritesWholePortionsThatVerifyTakesBack) {
  const std::string path = path_of("saved");
  for (const uint32_t size : {4096U, 5000U}) {
    serve_card({.base = 0U - size, .size = size, .start = 0U - size + 128});
    Bytes expected = flash(0, size);
    expected.resize((size + 4095) / 4096 * 4096, 0xFF);
    const std::string dots(expected.size() / 4096, '.');
    EXPECT_EQ(command({"--save", path}).out,
              "Read firmware and Save to File " + path + ENTERED + dots + LEFT);
    EXPECT_EQ(content_of(path), text_of(expected));
    const RunResult verified = command({"--verify", path});
    EXPECT_EQ(verified.out, "Verify firmware with the File " + path + ENTERED + "Verify now\n" +
                                dots + "OK\n" + LEFT);
    EXPECT_EQ(count_of(verified.traffic, "\n20 03 "), expected.size() / 16);
    std::remove(path.c_str());
  }
}

// Images that another tool wrote, against that tool's own binary of them.
TEST(Update, ProgramsWhatSrecCatMeans) {
  if (std::system("srec_cat --version > /dev/null 2>&1") != 0) {
    ASSERT_EQ(std::getenv("CI"), nullptr) << "srec_cat is not installed";
    GTEST_SKIP() << "srec_cat is not installed";
  }
  const std::string input = file_with("part.bin", text_of(noise(7000)));
  const std::string path = path_of("fw.mot");
  const std::string whole = path_of("whole.bin");
  for (const char* gaps : {"", " -exclude 0xFFF04321 0xFFF04456 -exclude 0xFFF04F00 0xFFF05400"}) {
    for (const char* shape :
         {"16 -line-termination=crlf", "32 -line-termination=lf", "250 -line-termination=lf"}) {
      sim::reset(sim::Kind::card);
      const std::string written = "srec_cat " + input + " -binary -offset 0xFFF04000" + gaps +
                                  " -o " + path + " -motorola -address-length=4 -obs=" + shape +
                                  " -header x -execution-start-address 0 && srec_cat " + path +
                                  " -motorola -offset -0xFFF04000 -fill 0xFF 0 0x2000 -o " + whole +
                                  " -binary";
      ASSERT_EQ(std::system(written.c_str()), 0);
      EXPECT_EQ(act(firmwareUpdate, path).out, update_text(path, "..OK\n"));
      EXPECT_EQ(text_of(flash(0x4000, 0x2000)), content_of(whole));
    }
  }
}

}  // namespace

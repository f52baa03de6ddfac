// Whole updates, saves and verifications on the simulated card, sound and with faults.
#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "tests/firmware_support.h"

namespace {

constexpr uint32_t START = 0xFFFFFE00;  // of 4 blocks that end at the top of the address space
constexpr char CODE[] = "20 02 44 4F 57 4E 4C 4F 41 44\n";
constexpr char RESET[] = "18 02\nsleep 4000000\nsleep 2000000\n18 01\nsleep 2000000\n18 01\n";
constexpr char LEFT[] = "reset and wait\nExit Downloader......OK\n";

sim::Card& card() {
  return sim::machine().bmc.card;
}

// A card with a flash of 1536 bytes, of which an update programs the last 512.
void serve_card() {
  sim::reset(sim::Kind::card);
  card().flash_base = 0xFFFFFA00;
  card().flash_size = 0x600;
  card().update_start = START;
}

Bytes flash() {
  return sim::card_flash(card());
}

void fault(const sim::Fault& entry) {
  sim::machine().bmc.faults.push_back(entry);
}

constexpr int FIRMWARE = 0x08;
sim::Fault refusal(int command, unsigned skip, unsigned times, unsigned code) {
  return {sim::FaultKind::refuse, FIRMWARE, command, skip, times, code};
}
sim::Fault carried_out_but(int command, unsigned skip, unsigned times, const Bytes& bytes) {
  return {sim::FaultKind::answer, FIRMWARE, command, skip, times, 0, bytes};
}

// Whether the flash holds `bytes` from `offset` on.
bool holds(size_t offset, const Bytes& bytes) {
  return text_of(flash()).compare(offset, bytes.size(), text_of(bytes)) == 0;
}

// What an update with new_raw() programs.
Bytes new_part() {
  const Bytes image = noise(0x600);
  return Bytes(image.begin() + 0x400, image.end());
}

std::string new_raw() {
  return file_with("fw.bin", text_of(noise(0x600)));
}

std::string said(const RunResult& result) {
  return after_identity(result.out);
}

// What an update of `path` says between "Flashing now" and the exit.
std::string update_outcome(const RunResult& result, const std::string& path) {
  const std::string head =
      "Update Firmware with File " + path + "\nEnter Downloader......OK\nFlashing now\n";
  const std::string out = said(result);
  EXPECT_EQ(out.substr(0, head.size()), head);
  EXPECT_TRUE(out.ends_with(LEFT)) << out;
  if (!out.ends_with(LEFT) || out.size() < head.size() + sizeof LEFT - 1) return out;
  return out.substr(head.size(), out.size() - head.size() - (sizeof LEFT - 1));
}

unsigned count_of(const std::string& text, const std::string& part) {
  unsigned count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) count++;
  return count;
}

// Chunks of one block as they reach the card.
std::string block_traffic(uint32_t address, const Bytes& bytes, uint32_t step = 32) {
  const char* const flags[] = {"80", "00", "00", "40"};
  std::string text;
  for (unsigned i = 0; i < 4; i++, address += step) {
    char head[32];
    std::snprintf(head, sizeof head, "20 04 FF FF %02X %02X %s ", address >> 8 & 0xFF,
                  address & 0xFF, flags[i]);
    text += head + sim::hex_text(Bytes(bytes.begin() + 32 * i, bytes.begin() + 32 * i + 32)) + "\n";
  }
  return text;
}

TEST(Update, ProgramsARawImageOnEitherPath) {
  const Bytes image = noise(0x600);
  std::string expected = CODE + std::string("sleep 2000000\n20 01\n");
  for (unsigned i = 0; i < 4; i++) {
    const Bytes block(image.begin() + 0x400 + 128 * i, image.begin() + 0x480 + 128 * i);
    expected += block_traffic(START + 128 * i, block) + "sleep 2000\n20 05\n";
  }
  for (const bool kernel : {false, true}) {
    serve_card();
    const Bytes before = flash();
    const std::string path = new_raw();
    const RunResult result = run({kernel ? "-o" : "-b", "-u", path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(after_identity(result.traffic), expected + RESET);
    EXPECT_TRUE(std::equal(before.begin(), before.begin() + 0x400, flash().begin()));
    EXPECT_TRUE(holds(0x400, new_part()));
    EXPECT_EQ(result.out.find("DOWNLOAD"), std::string::npos);
    if (kernel) {
      EXPECT_EQ(update_outcome(result, path), ".OK\n");
    }
  }
}

TEST(Update, EndsWithTheImageOrWithTheFlash) {
  const struct {
    size_t length;
    size_t programmed;  // from the update start on
  } cases[] = {{0x401, 4096}, {0x1400, 8192}, {0x1401, 8192}, {0x4000, 9216}};
  for (const auto& entry : cases) {
    serve_card();
    card().flash_base = 0xFF000000;
    card().flash_size = 0x2800;
    card().update_start = 0xFF000400;
    card().flash = Bytes(0x2800, 0x11);
    const RunResult result = run({"-u", file_with("fw", text_of(noise(entry.length)))});
    Bytes expected = noise(entry.length);
    expected.resize(0x400 + entry.programmed, 0xFF);
    expected.resize(0x2800, 0x11);
    std::fill_n(expected.begin(), 0x400, uint8_t{0x11});
    EXPECT_EQ(flash(), expected) << entry.length;
  }
}

// Erased blocks lead to a record that begins later; all their chunks carry the block's address.
TEST(Update, ErasesUpToTheFirstRecord) {
  serve_card();
  const Bytes image = noise(200);
  const std::string path = file_with("fw.mot", srecords(START + 256, image));
  const RunResult result = run({"-u", path});
  EXPECT_EQ(update_outcome(result, path), ".OK\n");
  Bytes programmed(256, 0xFF);
  programmed.insert(programmed.end(), image.begin(), image.end());
  programmed.resize(512, 0xFF);
  EXPECT_TRUE(holds(0x400, programmed));
  EXPECT_NE(result.traffic.find(block_traffic(START + 128, Bytes(128, 0xFF), 0)),
            std::string::npos);
}

TEST(Update, SendsABlockAgainUpToEightTimes) {
  const struct {
    sim::Fault fault;
    const char* pause;
  } cases[] = {{carried_out_but(5, 1, 1, {0, 1}), "sleep 1000000\n"},
               {refusal(5, 1, 1, 0xC3), "sleep 3000000\n"}};
  for (const auto& entry : cases) {
    for (const unsigned times : {1, 7, 8}) {
      serve_card();
      fault(entry.fault);
      sim::machine().bmc.faults[0].times = times;
      const std::string path = new_raw();
      const RunResult result = run({"-u", path});
      const Bytes image = noise(0x600);
      const std::string chunks =
          block_traffic(START + 128, Bytes(image.begin() + 0x480, image.begin() + 0x500));
      std::string expected;
      for (unsigned i = 0; i < std::min(times + 1, 8U); i++) {
        if (i > 0) expected += entry.pause;
        expected += chunks + "sleep " + std::to_string(2000 + 10000 * i) + "\n20 05\n";
      }
      expected += times == 8 ? "18 02\n" : "20 04 FF FF FF 00";
      EXPECT_NE(result.traffic.find(expected), std::string::npos) << times;
      EXPECT_EQ(update_outcome(result, path),
                times == 8 ? ".can't find file " + path + "\n" : ".OK\n");
    }
  }
}

TEST(Update, TellsWhatStoppedIt) {
  const struct {
    sim::Fault fault;
    const char* message;
    unsigned chunks;
  } cases[] = {
      {carried_out_but(4, 3, 1, {1}), "OK\n", 16},  // the last chunk of a block
      {carried_out_but(4, 2, 1, {1}), "write data error at FFFFFE40\n", 3},
      {refusal(4, 4, 1, 0xC9), "Cannot write data at FFFFFE80\n", 5},
      {{sim::FaultKind::shorten, FIRMWARE, 4, 4, 1}, "Cannot write data at FFFFFE80\n", 5},
      {carried_out_but(5, 0, 1, {0, 2}), "Write Error\n", 4},
      {carried_out_but(5, 0, 1, {0}), "OK\n", 20},
      {refusal(1, 0, 1, 0xC1), "cannot get flash update information\n", 0},
      {{sim::FaultKind::shorten, FIRMWARE, 1, 0, 1, 16},
       "cannot get flash update information\n",
       0},
  };
  for (const auto& entry : cases) {
    serve_card();
    fault(entry.fault);
    const std::string path = new_raw();
    const RunResult result = run({"-u", path});
    const bool complete = entry.message == std::string("OK\n");
    const std::string failed = complete ? "" : "can't find file " + path + "\n";
    EXPECT_EQ(update_outcome(result, path),
              (entry.chunks > 0 ? "." : "") + (entry.message + failed));
    EXPECT_EQ(count_of(result.traffic, "\n20 04 "), entry.chunks) << entry.message;
    EXPECT_TRUE(result.traffic.ends_with(RESET));
  }
}

TEST(Update, RefusesSizesThatDoNotFitBeforeTheFirstChunk) {
  const struct {
    uint8_t block;
    uint8_t chunk;
    uint32_t start;
    uint32_t size;
    const char* reason;
  } cases[] = {
      {0, 32, START, 0x600, "the block size is 0"},
      {128, 0, START, 0x600, "the chunk size is 0"},
      {128, 48, START, 0x600, "a block is not made of whole chunks"},
      {32, 64, START, 0x600, "a block is not made of whole chunks"},
      {96, 32, START, 0x600, "4096 bytes are not whole blocks"},
      {128, 128, START, 0x600, "a chunk is too long for the KCS ports; try --open"},
      {128, 32, 0xFFFFF9FF, 0x600, "the update start is outside of the flash"},
      {128, 32, START, 0x400, "the update start is outside of the flash"},
      {128, 32, START, 0x601, "the flash runs past the last address"},
  };
  for (const auto& entry : cases) {
    serve_card();
    card().flash.resize(0x600);
    card().block_size = entry.block;
    card().chunk_size = entry.chunk;
    card().update_start = entry.start;
    card().flash_size = entry.size;
    const std::string path = new_raw();
    const RunResult result = run({"-u", path});
    EXPECT_EQ(update_outcome(result, path),
              "cannot use the flash update information: " + std::string(entry.reason) +
                  "\ncan't find file " + path + "\n");
    EXPECT_EQ(after_identity(result.traffic), CODE + std::string("sleep 2000000\n20 01\n") + RESET);
  }
}

TEST(Update, RefusesAnImageThatDoesNotFitBeforeTheFirstChunk) {
  const std::string none = "it has no data between update start and end of the flash";
  const struct {
    const char* name;
    std::string content;
    std::string reason;
  } cases[] = {
      {"fw", "", none},
      {"fw", std::string(0x400, 'x'), none},
      {"fw.mot", "", none},
      {"fw.mot", "S1051000AABB00\r\n", none},
      {"fw.mot", srecords(0xFFFFFFF0, noise(16)),
       "data at FFFFFFF0 does not begin with a block of 128 bytes"},
      {"fw.mot", srecords(START - 1, noise(64)),
       "data at FFFFFDFF is below the update start FFFFFE00"},
      {"fw.mot", srecords(0, noise(64)) + srecords(START, noise(64)),
       "data at 00000000 is below the update start FFFFFE00"},
  };
  for (const auto& entry : cases) {
    serve_card();
    const std::string path = file_with(entry.name, entry.content);
    const RunResult result = run({"-u", path});
    EXPECT_EQ(update_outcome(result, path),
              "cannot use the image: " + entry.reason + "\ncan't find file " + path + "\n");
    EXPECT_EQ(after_identity(result.traffic), CODE + std::string("sleep 2000000\n20 01\n") + RESET);
  }
  // Data for another place of the address space must not erase this flash.
  serve_card();
  card().flash_base = 0x10000;
  card().update_start = 0x10400;
  const std::string path = file_with("fw.mot", srecords(START, noise(64)));
  EXPECT_EQ(update_outcome(run({"-u", path}), path),
            "cannot use the image: " + none + "\ncan't find file " + path + "\n");
}

// A block of one chunk may be longer than the KCS ports carry. Data that resumes in a later portion
// must begin with a block.
TEST(Update, ProgramsLongChunksAndGapsOfWholeBlocks) {
  for (const uint32_t gap : {5120, 5121}) {
    serve_card();
    card().flash_base = card().update_start = 0x10000;
    card().flash_size = 0x4000;
    card().chunk_size = 128;
    const Bytes later = noise(300, 2);
    const RunResult result =
        run({"-o", "-u",
             file_with("fw.mot", srecords(0x10000, noise(300)) + srecords(0x10000 + gap, later))});
    const bool fits = gap % 128 == 0;
    EXPECT_EQ(result.out.find("now\n..OK\n") != std::string::npos, fits) << result.out;
    EXPECT_EQ(count_of(result.traffic, "\n20 04 "), fits ? (5120 + 4096) / 128U : 0);
    EXPECT_EQ(holds(gap, later), fits);
  }
}

// Whatever request is refused, once or for good: the update is whole, or it is over at once.
TEST(Update, EndsAtOnceOrIsCompleteWhicheverRequestIsRefused) {
  for (const unsigned times : {1U, 0U}) {
    for (unsigned skip = 0; skip < 22; skip++) {
      serve_card();
      card().block_size = 64;
      fault({sim::FaultKind::refuse, FIRMWARE, -1, skip, times, 0xC0});
      const std::string path = new_raw();
      const RunResult result = run({"-u", path});
      const bool whole = result.out.find("now\n.OK\n") != std::string::npos;
      const bool stopped = result.out.find("can't find file " + path) != std::string::npos;
      EXPECT_NE(whole, stopped) << result.out;
      EXPECT_EQ(whole, holds(0x400, new_part())) << skip;
      EXPECT_TRUE(result.traffic.ends_with(RESET));
      EXPECT_TRUE(result.out.ends_with(LEFT));
      EXPECT_LE(count_of(result.traffic, "\n20 04 "), times == 1 ? 18u : 30u);
    }
  }
}

TEST(Update, RepairsWhatAPowerCutLeft) {
  const std::string path = new_raw();
  const Bytes image = noise(0x600);
  for (unsigned skip = 0; skip < 22; skip++) {
    serve_card();
    const Bytes before = flash();
    fault({sim::FaultKind::power_cut, FIRMWARE, -1, skip});
    EXPECT_EQ(run({"-u", path}).status, 137);
    const Bytes now = flash();
    // Block by block: new ones, at most one that is half new, old ones.
    for (size_t i = 0x400; i < 0x600; i++) {
      const bool done = skip > 2 && i - 0x400 < (skip - 2) / 5 * 128;
      const bool later = skip <= 2 || i - 0x400 >= ((skip - 2) / 5 + 1) * 128;
      EXPECT_TRUE(!done || now[i] == image[i]) << skip;
      EXPECT_TRUE(!later || now[i] == before[i]) << skip;
    }
    sim::machine().bmc.faults.clear();
    EXPECT_EQ(update_outcome(run({"-u", path}), path), ".OK\n");
    EXPECT_TRUE(holds(0x400, new_part()));
  }
}

TEST(Exit, ResetsAndWaitsUntilTheCardRunsNormally) {
  constexpr int APP = 0x06;
  const std::string tail = "sleep 4000000\n";
  std::string polls;
  for (unsigned i = 0; i < 10; i++) polls += "sleep 2000000\n18 01\n";
  const sim::Fault no_cold = {sim::FaultKind::refuse, APP, 2, 0, 1, 0xC1};
  const sim::Fault no_warm = {sim::FaultKind::refuse, APP, 3, 0, 1, 0xC1};
  const struct {
    std::vector<sim::Fault> faults;
    uint64_t away_us;
    std::string traffic;
    std::string out;
  } cases[] = {
      {{no_cold}, 3000000, "18 02\n18 03\n" + tail, "OK\n"},
      {{no_cold, no_warm}, 3000000, "18 02\n18 03\n", "Cannot exit downloader\n"},
      {{{sim::FaultKind::refuse, APP, 1, 1, 0, 0xC0}},
       3000000,
       "18 02\n" + tail + polls,
       "Firmware cannot return normal state\n"},
      {{{sim::FaultKind::shorten, APP, 1, 1, 0, 3}},
       3000000,
       "18 02\n" + tail + polls,
       "Firmware cannot return normal state\n"},
      {{}, 60000000, "18 02\n" + tail + polls, "Firmware cannot return normal state\n"},
  };
  for (const auto& entry : cases) {
    serve_card();
    card().away_us = entry.away_us;
    sim::machine().bmc.faults = entry.faults;
    const RunResult result = run({"-o", "--verify", "missing"});
    EXPECT_NE(result.traffic.find("sleep 2000000\n" + entry.traffic), std::string::npos);
    EXPECT_TRUE(result.out.ends_with(entry.out)) << result.out;
    EXPECT_EQ(result.status, 0);
  }
}

TEST(Save, WritesWholePortionsThatVerifyTakesBack) {
  for (const uint32_t size : {4096, 5000}) {
    serve_card();
    card().flash_base = 0U - size;
    card().flash_size = size;
    card().update_start = 0U - size + 128;
    Bytes expected = flash();
    expected.resize((size + 4095) / 4096 * 4096, 0xFF);
    const std::string path = path_of("saved");
    const RunResult result = run({"--save", path});
    EXPECT_EQ(content_of(path), text_of(expected));
    EXPECT_EQ(said(result), "Read firmware and Save to File " + path +
                                "\nEnter Downloader......OK\n" +
                                std::string(expected.size() / 4096, '.') + LEFT);
    const RunResult verified = run({"--verify", path});
    EXPECT_EQ(verified.out.find("wrong"), std::string::npos);
    EXPECT_EQ(count_of(verified.traffic, "\n20 03 "), expected.size() / 16);
    std::remove(path.c_str());
  }
}

TEST(Save, LeavesNothingThatLooksLikeAnImage) {
  const std::string path = path_of("saved");
  const struct {
    std::string path;
    sim::Fault fault;
    std::string message;
  } cases[] = {
      {path, refusal(3, 100, 1, 0xC3), "cannot read the flash at 00000640\n"},
      {path,
       {sim::FaultKind::shorten, FIRMWARE, 3, 300, 1, 17},
       ".cannot read the flash at 000012C0\n"},
      {path, refusal(1, 0, 1, 0xC1), "cannot get flash update information\n"},
      {path + "/x/y", {}, "cannot open the data file: " + path + "/x/y\n"},
      {"/dev/full", refusal(9, 0, 1, 0), "cannot write the whole flash to /dev/full\n"},
  };
  for (const auto& entry : cases) {
    serve_card();
    card().flash_base = 0;
    card().flash_size = 0x2000;
    if (entry.fault.command >= 0) fault(entry.fault);
    const RunResult result = run({"--save", entry.path});
    EXPECT_NE(result.out.find("Enter Downloader......OK\n" + entry.message), std::string::npos)
        << result.out;
    EXPECT_TRUE(result.out.ends_with(LEFT));
    EXPECT_EQ(content_of(path), "(no file)");
  }
}

TEST(Verify, NamesEveryByteThatDiffers) {
  serve_card();
  card().flash = Bytes(0x600, 0xFF);
  card().flash[0x401] = 0x00;
  card().flash[0x5FF] = 0x00;
  std::string path = file_with("fw", std::string(0x402, '\xFF'));
  const std::string head = "\nEnter Downloader......OK\nVerify now\n.data wrong at ";
  EXPECT_EQ(said(run({"--verify", path})),
            "Verify firmware with the File " + path + head + "401\ndata wrong at 5FF\nOK\n" + LEFT);
  path = file_with("fw.mot", srecords(START, Bytes(2, 0xFF)));
  EXPECT_EQ(said(run({"--verify", path})), "Verify firmware with the File " + path + head +
                                               "FFFFFE01\ndata wrong at FFFFFFFF\nOK\n" + LEFT);
  path = file_with("fw", "");
  EXPECT_EQ(count_of(run({"--verify", path}).out, "data wrong at "), 2u);
}

TEST(Enter, GoesOnAfterARefusal) {
  serve_card();
  card().access_code = "OTHERONE";
  const RunResult result = run({"--verify", new_raw()});
  EXPECT_NE(result.out.find("Enter Downloader...... Cannot enter downloader\nVerify now\n"
                            "cannot get flash update information\nreset and wait\n"),
            std::string::npos);
  EXPECT_EQ(after_identity(result.traffic), CODE + std::string("20 01\n") + RESET);
}

// Images that another tool wrote, against that tool's own binary of them.
TEST(Update, ProgramsWhatSrecCatMeans) {
  if (std::system("srec_cat --version > /dev/null 2>&1") != 0) {
    ASSERT_EQ(std::getenv("CI"), nullptr) << "srec_cat is not installed";
    GTEST_SKIP() << "srec_cat is not installed";
  }
  const std::string input = file_with("part.bin", text_of(noise(7000)));
  const std::string path = path_of("fw.mot");
  for (const bool gaps : {false, true}) {
    std::string image = input + " -binary -offset 0xFFF04000";
    if (gaps) image += " -exclude 0xFFF04321 0xFFF04456 -exclude 0xFFF04F00 0xFFF05400";
    for (const char* length : {"16", "32", "250"}) {
      for (const char* line_end : {"crlf", "lf"}) {
        sim::reset(sim::Kind::card);
        const std::string written = "srec_cat " + image + " -o " + path +
                                    " -motorola -address-length=4 -obs=" + length +
                                    " -line-termination=" + line_end +
                                    " -header x -execution-start-address 0 && srec_cat " + path +
                                    " -motorola -offset -0xFFF04000 -fill 0xFF 0 0x4000 -o " +
                                    path_of("whole.bin") + " -binary";
        ASSERT_EQ(std::system(written.c_str()), 0);
        EXPECT_EQ(update_outcome(run({"-u", path}), path), gaps ? "..OK\n" : "..OK\n");
        const std::string whole = content_of(path_of("whole.bin")).substr(0, 8192);
        const Bytes now = flash();
        EXPECT_EQ(text_of(now).substr(0x4000, 8192), whole) << written;
      }
    }
  }
}

}  // namespace

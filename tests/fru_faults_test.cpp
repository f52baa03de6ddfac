// FRU devices and files that are broken: a clear end, nothing written, never a crash.
#include "base/memory.h"
#include "fru/fru.h"
#include "tests/fru_support.h"

namespace {

using sim::FaultKind;

// Hits one Read FRU Data, after `skip` of them.
sim::Fault fault_at(FaultKind kind, unsigned skip, unsigned value) {
  sim::Fault fault;
  fault.kind = kind;
  fault.netfn = 0x0A;
  fault.command = 0x11;
  fault.skip = skip;
  fault.value = value;
  return fault;
}

Bytes altered(Bytes image, size_t at, const Bytes& bytes) {
  std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<ptrdiff_t>(at));
  return image;
}

Bytes joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

const Bytes BOARD_AT_8 = {1, 0, 0, 1, 0, 0, 0, 0xFE};
const Bytes RECORDS_AT_8 = {1, 0, 0, 0, 0, 1, 0, 0xFE};

// A board area of 16 bytes whose last five, behind its texts, are `tail`; the date makes its
// checksum hold.
Bytes board_ending(const Bytes& tail) {
  Bytes board = joined({1, 2, 0, 0, 0, 0, 0xC0, 0xC0, 0xC0, 0xC0, 0xC0}, tail);
  board[3] = zero_sum(board, 0);
  return joined(BOARD_AT_8, board);
}

// A chassis area of 40 bytes, zeros in its second chunk: empty custom fields.
Bytes chassis_of_zeros() {
  return joined({1, 0, 1, 0, 0, 0, 0, 0xFE},
                joined(joined({1, 5}, Bytes(30, 0)), {0xC1, 0, 0, 0, 0, 0, 0, 0x39}));
}

TEST(FruFaults, ABrokenDeviceIsNoDump) {
  const Bytes good = sim::example_fru_image();
  const Bytes record = multirecord(0xC0, 2, {1, 2, 3});
  const Bytes endless = joined(joined(RECORDS_AT_8, record), record);
  sim::Fault miscounted = fault_at(FaultKind::answer, 0, 0);
  miscounted.bytes = {0, 7, 1, 0, 1, 3, 8, 0x0D, 0, 0xE6};
  const struct {
    const char* name;
    Bytes image;
    std::vector<sim::Fault> faults = {};
    int claimed_size = -1;
    unsigned answer_limit = 0;
  } cases[] = {
      {"erased", Bytes(256, 0xFF)},
      {"header refused", good, {fault_at(FaultKind::refuse, 0, 0xCB)}},
      {"header cut", good, {fault_at(FaultKind::shorten, 0, 9)}},
      {"answers of 4 bytes", good, {}, -1, 4},
      {"answers of 8 bytes", good, {}, -1, 8},
      {"refused in the middle", good, {fault_at(FaultKind::refuse, 5, 0x81)}},
      {"refused where zeros are", chassis_of_zeros(), {fault_at(FaultKind::refuse, 3, 0x81)}},
      {"header with another count", good, {miscounted}},
      {"empty answer", good, {fault_at(FaultKind::shorten, 5, 0)}},
      {"area of length 0", altered(good, 0x18, Bytes(40, 0))},
      {"area behind the end", Bytes{1, 0, 0xFF, 0, 0, 0, 0, 0}},
      {"no end mark", board_ending({0, 0, 0, 0, 0})},
      {"end mark is the checksum", board_ending({0, 0, 0, 0, 0xC1})},
      {"field behind the end", board_ending({0xC5, 0, 0, 0, 0})},
      {"no end bit", endless},
      {"second record bad", altered(endless, 16, {0xC1})},
      {"says it is smaller", good, {}, 110},
  };
  for (const auto& broken : cases) {
    serve_exactly(broken.image);
    store().devices[0].claimed_size = broken.claimed_size;
    store().devices[0].answer_limit = broken.answer_limit;
    sim::machine().bmc.faults = broken.faults;
    Bytes unused;
    EXPECT_EQ(read_device(&unused), 0) << broken.name;
  }
  serve_exactly(chassis_of_zeros());
  Bytes unused;
  EXPECT_EQ(read_device(&unused), 1);
  serve_exactly(Bytes(256, 0xFF));
  const RunResult result = run({"--wfru", path_of("broken.fru")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(after(result.out, "reading"), "reading FRU......\nchecksum error\n");
  EXPECT_EQ(content_of(path_of("broken.fru")), "(no file)");
}

TEST(FruFaults, ZerosAreNoEndlessListOfRecords) {
  for (const int claimed : {64, 0}) {  // 0: it does not tell, 65536 bytes bound the list
    serve_image(RECORDS_AT_8, claimed > 0 ? 1024 : 0x10000);
    store().devices[0].claimed_size = claimed;
    Bytes unused;
    EXPECT_EQ(read_device(&unused), 0);
    const std::string requests = fru_requests(sim::transcript());
    const std::string last = claimed > 0 ? "11 00 3A 00 05" : "11 00 F8 FF 05";
    EXPECT_EQ(requests.substr(requests.size() - last.size()), last);
  }
}

TEST(FruFaults, EveryCorruptByteAndEveryTruncationIsReadRightOrIsAFault) {
  Bytes image =
      image_of({area({0x17}, {"CP-1", "CS123"}), area({0, 1, 2, 3}, {"a", "b", "c", "d", "e"}),
                area({0}, {"Maker", "Server", "S-1", "1.0", "X1", "", "", "custom"}),
                multirecord(0xC0, 0x82, Bytes(100, 0x11))});
  const size_t used = image.size();
  image.resize(256, 0x33);
  const Bytes good(image.begin(), image.begin() + static_cast<ptrdiff_t>(used));
  for (size_t at = 0; at < image.size(); at++) {
    for (const int flip : {0x01, 0x08, 0x40, 0x80, 0x3F, 0xFF}) {
      serve_exactly(image);
      store().devices[0].contents[at] ^= static_cast<uint8_t>(flip);
      Bytes read;
      EXPECT_EQ(read_device(&read), at < used ? 0 : 1) << at << " ^ " << flip;
      EXPECT_EQ(read, at < used ? Bytes() : good);
    }
  }
  for (size_t length = 0; length <= image.size(); length++) {
    serve_image(image, length);
    Bytes read;
    EXPECT_EQ(read_device(&read), length < used ? 0 : 1) << length;
  }
}

TEST(FruFaults, ADumpThatCannotBeWrittenWholeFails) {
  serve_exactly(sim::example_fru_image());
  for (const char* path : {"/dev/full", "/nowhere/dump.fru"}) {
    const RunResult result = run({"--wfru", path});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(after(result.out, "writing"), "writing file......fail\n");
  }
}

TEST(FruFaults, ARefusedFileNamesTheLineAndWritesNothing) {
  std::string long_section = "_SEE_PRODUCT\n01 01 00\n";
  for (int i = 0; i < 52; i++) long_section += "'" + std::string(40, 'x') + "'\n";
  std::string long_common = "_SEE_COMMON\n";
  for (int i = 0; i < 33; i++) long_common += "01 00 00 00 00 00 00 00\n";
  const struct {
    std::string text;
    const char* line;  // "": no line, the file has nothing to read
  } cases[] = {
      {"_FRU\n_FRU_TITLE 'x'\n", ""},
      {block("_SEE_COMMON\n01 00 00\n00 00 00 00\n"), "line 6: "},
      {block("_SEE_CHASSIS\n01 02\n"), "line 5: "},
      {block("_SEE_CHASSIS\n01 02 17\nC2 'AB'\n\n# end\n"), "line 6: "},
      {block("_SEE_CHASSIS\n01 02 17\nC2 'AB'\nC3\n'CD'\n"), "line 7: "},
      {block("_SEE_CHASSIS\n01 02 17\nC0 C0\nC2 'CD'\n_SEE_BOARD\n01 00\n"), "line 7: "},
      {block("_SEE_BOARD\n01 02 17 00\n00\n"), "line 6: "},
      {block("_SEE_PRODUCT\n01 01 00\nC0 C0 C0 C0 C0\n C0\n"), "line 7: "},
      {block("_SEE_MULTIREC\nC0 82 03\n"), "line 5: "},
      {block("_SEE_MULTIREC\nC0 02 01 00 00\n11\nC0 82 03 00 00\n11 22\n"), "line 7: "},
      {block("_SEE_MULTIREC\nC0 02 01 00 00\n11\n"), "line 6: "},
      {block("_SEE_COMMON\n01 00 00 00 00 00 00 00\n") + "_FRU_TITLE 'y'\n_SEE_BOARD\n",
       "line 6: "},
      {block("_SEE_COMMON\n01 00 00 00 00 00 00 00\n_DEV_ID 01\n"), "line 6: "},
      {block(long_section), "line 57: "},
      {block(long_common), "line 37: "},
      {block("_SEE_COMMON\n" + std::string(300, ' ') + "01\n\n02\n"), "line 7: "},
  };
  for (const auto& refused : cases) {
    const std::string path = file_with("refused.fru", refused.text);
    fru_dev dev;
    const std::string out = console_of([&] { EXPECT_EQ(FileToFru(path.c_str(), &dev), 0); });
    EXPECT_EQ(out.substr(0, std::string(refused.line).size()), refused.line) << refused.text;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), *refused.line != '\0' ? 1 : 0);
    EXPECT_EQ(fru_count(dev), 0U);
  }
  serve_image({}, 1024);
  const RunResult result = run({"--fru", path_of("refused.fru")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(after(result.out, "reading"),
            "reading file......\nline 7: the common section has fewer than 8 bytes\n"
            "Cannot read file " +
                path_of("refused.fru") + "\n");
  EXPECT_EQ(fru_requests(result.traffic), "");
  EXPECT_EQ(after(run({"--fru", "/nowhere"}).out, "Cannot"), "Cannot read file /nowhere\n");
}

// A section with so many custom fields of 63 bytes.
std::string section_of(const std::string& head, int fields) {
  std::string text = head;
  for (int i = 0; i < fields; i++) text += "FF '" + std::string(63, 'x') + "'\n";
  return text + "C1\n";
}

TEST(FruFaults, AnImageThatDoesNotFitIsRefusedBeforeTheFirstWrite) {
  const std::string chassis = "_SEE_CHASSIS\n01 01 17 C0 C0\n";
  const std::string product = "_SEE_PRODUCT\n01 01 00 C0 C0 C0 C0 C0 C0 C0\n";
  const std::string record = "_SEE_MULTIREC\n01 80 00 00 00\n";
  std::string far = "_SEE_INTERNAL\n01\n";
  for (int i = 0; i < 51; i++) far += "'" + std::string(40, 'i') + "'\n";
  far += chassis + "C1\n";  // begins at byte 2056
  const struct {
    std::string text;
    size_t size;
    bool asks;  // for the device's size
  } cases[] = {
      {block(section_of(product, 31) + record), 4096, true},
      {block(far), 4096, false},
      {block(section_of(chassis, 31) + section_of(product, 8) + record), 4096, false},
      {EXAMPLE, 111, true},
      {block("") + "_SEE_COMMON\n_FRU_TITLE 'two'\n_DEV_ID 01\n" + far, 4096, false},
  };
  for (const auto& refused : cases) {
    const bool fits = &refused == &cases[0];
    serve_image({}, refused.size);
    const RunResult result = update_with(refused.text);
    EXPECT_EQ(after(result.out, "writing"), fits ? "writing FRU......\nUpdate successfully\n"
                                                 : "writing FRU......\nUpdate FRU fail\n");
    EXPECT_EQ(result.status, fits ? 0 : 1);
    const std::string requests = fru_requests(result.traffic);
    EXPECT_EQ(requests.substr(0, 5), refused.asks ? "10 00" : "");
    EXPECT_EQ(requests.size() > 5, fits);
  }
}

TEST(FruFaults, AWriteThatIsRefusedEndsTheUpdate) {
  serve_image({}, 1024);
  store().devices[0].protected_from = 0x28;
  const RunResult result = update_with(EXAMPLE);
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(after(result.out, "writing"), "writing FRU......\nUpdate FRU fail\n");
  EXPECT_EQ(after(fru_requests(result.traffic), "12 00 20 00").find(';'), std::string::npos);
  serve_image({}, 1024);
  store().devices.clear();
  EXPECT_EQ(fru_requests(update_with(EXAMPLE).traffic), "10 00");
}

TEST(FruFaults, AFieldOver63BytesIsNotBuilt) {
  fru_info fru;
  init_fru_info(&fru);
  uint8_t image[FRU_IMAGE_ROOM];
  unsigned length = 0;
  fru.chassis_len = 1;
  fru.chassis_part_number = make_text(std::string(64, 'x').data(), 63);
  EXPECT_EQ(build_fru_image(&fru, image, &length), 1);
  fru.chassis_part_number = make_text(std::string(64, 'x').data(), 64);
  EXPECT_EQ(build_fru_image(&fru, image, &length), 0);
  EXPECT_EQ(write_fru_info(&fru), 0);
  destroy_fru_info(&fru);
}

}  // namespace

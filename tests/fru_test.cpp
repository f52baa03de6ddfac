// FRU: requests on the wire, the text form, images there and back; broken devices and files.
#include "fru/fru.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "base/memory.h"
#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/transaction.h"

namespace {

using sim::Bytes;
using enum sim::FaultKind;
using Texts = std::vector<std::string>;

// The text of sim::example_fru_image(), as a dump gives it.
const char EXAMPLE[] =
    "_FRU\n\n_FRU_TITLE '(null)'\n_DATA_LEN 0000\n_DEV_ACCESS_ADDR 00\n_DEV_SLAVE_ADDR 00\n"
    "_DEV_ID 00\n_DEV_ACCESS_LUN 00\n_BUS_ID 00\n"
    "\n_SEE_COMMON\n   01\n   00\n   01\n   03\n   08\n   0D\n   00\n   E6\n"
    "\n_SEE_INTERNAL\n   01\n"
    "\n_SEE_CHASSIS\n   01\n   02\n   17\n   C4\n   'CP-1'\n   C5\n   'CS123'\n   C1\n   7F\n"
    "\n_SEE_BOARD\n   01\n   05\n   00\n   80 1A 9B\n   C5\n   'Maker'\n   C5\n   'Board'\n   C5\n"
    "   'B0001'\n   C5\n   'P-100'\n   C0\n   C1\n   47\n"
    "\n_SEE_PRODUCT\n   01\n   05\n   00\n   C5\n   'Maker'\n   C6\n   'Server'\n   C3\n   'S-1'\n"
    "   C3\n   '1.0'\n   C5\n   'X0001'\n   C0\n   C0\n   C1\n   23\n"
    "\n_SEE_MULTIREC\n\n   C0\n   82\n   03\n   A0\n   1B     // header checksum\n\n   10 20 30";

const char DUMPED[] = "reading FRU......\nwriting file......ok\n";
const char UPDATED[] = "reading file......\nwriting FRU......\nUpdate successfully\n";
const char NOT_UPDATED[] = "reading file......\nwriting FRU......\nUpdate FRU fail\n";

sim::FruDevice& device() {
  return sim::machine().bmc.fru.devices[0];
}

// A fresh server whose FRU device 0 begins with `image` and has `size` bytes, at least the image's.
sim::FruDevice& serve(const Bytes& image, size_t size = 0) {
  sim::reset(sim::Kind::plain);
  return device() = sim::fru_device(image, std::max(size, image.size()));
}

std::string after(const std::string& text, const std::string& mark) {
  const size_t at = text.find(mark);
  return at == std::string::npos ? "(no \"" + mark + "\")" : text.substr(at);
}

// The requests of a run, which must end with this status and these last lines.
std::string requests_of(const Texts& words, int status, const std::string& end) {
  const RunResult result = run(words);
  EXPECT_TRUE(result.status == status && result.out.ends_with(end)) << result.out;
  return after_identity(result.traffic);
}

std::string update_with(const std::string& text, const char* end = UPDATED) {
  return requests_of({"--fru", file_with("new.fru", text)}, end == UPDATED ? 0 : 1, end);
}

// The text of a dump of device 0, which must succeed.
std::string dumped() {
  requests_of({"--wfru", path_of("dump.fru")}, 0, DUMPED);
  return content_of(path_of("dump.fru"));
}

const std::string BLOCK = "_FRU\n_FRU_TITLE 'x'\n_DEV_ID 00\n";  // the sections of a device follow

// Hits one FRU request of this command, after `skip` of them.
sim::Fault fault(sim::FaultKind kind, int command, unsigned skip, unsigned value,
                 const Bytes& bytes = {}) {
  return {kind, 0x0A, command, skip, 1, value, bytes};
}

// Device 0 as the kernel's device reads it, built into an image again; nothing when it is broken.
Bytes read_device() {
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
  fru_dev dev;
  uint8_t built[FRU_IMAGE_ROOM];
  unsigned length = 0;
  if (get_fru_dev(&dev) != 1 || build_fru_image(&dev.records[0], built, &length) != 1) length = 0;
  destroy_fru_dev(&dev);
  platform::device_close(driverHandle);
  driverHandle = -1;
  openIpmiFlag = 0;
  return Bytes(built, built + length);
}

Bytes joined(const std::vector<Bytes>& parts) {
  Bytes bytes;
  for (const Bytes& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

uint8_t zero_sum(const Bytes& bytes) {
  return static_cast<uint8_t>(0U - std::accumulate(bytes.begin(), bytes.end(), 0U));
}

// An area: fixed bytes (format and length go before them), fields, end mark, zeros. `type` is the
// type code of the first field; each next field has the next code.
Bytes area(const Bytes& fixed, const Texts& fields, int type = -1) {
  Bytes bytes = joined({{1, 0}, fixed});
  for (const std::string& field : fields) {
    const unsigned code = type < 0 ? 3U : static_cast<unsigned>(type++ % 4);
    bytes.push_back(static_cast<uint8_t>(code << 6 | field.size()));
    bytes.insert(bytes.end(), field.begin(), field.end());
  }
  bytes.push_back(0xC1);
  while (bytes.size() % 8 != 7) bytes.push_back(0);
  bytes[1] = static_cast<uint8_t>((bytes.size() + 1) / 8);
  bytes.push_back(zero_sum(bytes));
  return bytes;
}

Bytes multirecord(uint8_t type, uint8_t format, const Bytes& data) {
  const Bytes header = {type, format, static_cast<uint8_t>(data.size()), zero_sum(data)};
  return joined({header, {zero_sum(header)}, data});
}

// Chassis, board, product, multi-record: an empty one is absent.
Bytes image_of(const std::vector<Bytes>& areas) {
  Bytes image = {0x01, 0, 0, 0, 0, 0, 0, 0};
  for (size_t i = 0; i < areas.size(); i++) {
    if (!areas[i].empty()) image[2 + i] = static_cast<uint8_t>(image.size() / 8);
    image = joined({image, areas[i]});
  }
  image[7] = zero_sum(Bytes(image.begin(), image.begin() + 8));
  return image;
}

Bytes records_of(const std::vector<Bytes>& records) {
  return image_of({{}, {}, {}, joined(records)});
}

// Every kind of field and record. `type` as for `area`.
Bytes full_image(int type) {
  const std::string longest(63, 'z');
  return image_of({
      area({0x17}, {"", "CS", "custom 1", "", longest}, type),
      area({0x19, 1, 2, 3}, {"\x81\xFE\x7F", longest, "", "P\t1", "id"}, type),
      area({0x19}, {"Maker", "Server", "", "1.0", longest, "", "id", "xy"}, type),
      joined({multirecord(0x02, 0x02, Bytes(11, 0x5A)), multirecord(0x01, 0x02, {}),
              multirecord(0xC0, 0x82, Bytes(255, 7))}),
  });
}

TEST(Fru, DumpReadsEachAreaBySixteenBytesAndWritesTheText) {
  serve(sim::example_fru_image());
  const std::string path = path_of("dump.fru");
  const std::string end = "Dump FRU to file " + path + "\nDump FRU to File " + path + "\n" + DUMPED;
  EXPECT_EQ(requests_of({"--wfru", path}, 0, end),
            "28 10 00\n28 11 00 00 00 08\n28 11 00 08 00 10\n28 11 00 08 00 10\n"
            "28 11 00 18 00 10\n28 11 00 18 00 10\n28 11 00 28 00 10\n28 11 00 38 00 08\n"
            "28 11 00 40 00 10\n28 11 00 40 00 10\n28 11 00 50 00 10\n28 11 00 60 00 08\n"
            "28 11 00 68 00 10\n28 11 00 68 00 08\n");
  EXPECT_EQ(content_of(path), EXAMPLE);
  // A device that hides from the probe is read all the same.
  sim::machine().bmc.faults = {fault(refuse, 0x10, 0, 0xC1)};
  EXPECT_EQ(dumped(), EXAMPLE);
  // A record of whole chunks ends with a read of nothing.
  serve(records_of({multirecord(0xC0, 0x82, Bytes(11, 1))}), 64);
  EXPECT_EQ(
      requests_of({"--wfru", path}, 0, DUMPED),
      "28 10 00\n28 11 00 00 00 08\n28 11 00 08 00 10\n28 11 00 08 00 10\n28 11 00 18 00 00\n");
}

TEST(Fru, DumpShowsAbsentAreasAndQuotesEmptyCustomFieldsAndBreaksDataIntoLinesOfEight) {
  const std::string absent =
      "\n_SEE_BOARD\n   01\n   00\n   00\n   00 00 00\n   C0\n   C0\n   C0\n   C0\n   C0\n   C1\n"
      "   00\n\n_SEE_PRODUCT\n   01\n   00\n   00\n   C0\n   C0\n   C0\n   C0\n   C0\n   C0\n"
      "   C0\n   C1\n   00\n";
  serve({}, 64);
  EXPECT_EQ(
      after(dumped(), "\n_SEE_INTERNAL"),
      "\n_SEE_INTERNAL\n   01\n\n_SEE_CHASSIS\n   01\n   00\n   00\n   C0\n   C0\n   C1\n   00\n" +
          absent);
  const Bytes records =
      joined({multirecord(1, 0x72, {}), multirecord(0xC0, 0xF2, Bytes(10, 0x5A))});
  Bytes image = image_of({area({0x17}, {"", "", ""}), {}, {}, records});
  image[0] = 0xF1;
  image[1] = 1;  // internal use, whose length is stored nowhere
  image[7] += 0x0F;
  serve(image);
  EXPECT_EQ(after(dumped(), "\n_SEE_COMMON"),
            "\n_SEE_COMMON\n   01\n   01\n   01\n   00\n   00\n   02\n   00\n   0B\n"
            "\n_SEE_INTERNAL\n   00\n"
            "\n_SEE_CHASSIS\n   01\n   01\n   17\n   C0\n   C0\n   C0\n   ''\n   C1\n   E6\n" +
                absent +
                "\n_SEE_MULTIREC\n\n   01\n   02\n   00\n   00\n   8D     // header checksum\n"
                "\n   C0\n   82\n   0A\n   7C\n   C8     // header checksum\n"
                "\n   5A 5A 5A 5A 5A 5A 5A 5A\n   5A 5A");
}

TEST(Fru, UpdateWritesTheImageOfTheTextBySixteenBytes) {
  serve(Bytes(113, 0xEE));
  const std::string requests = update_with(EXAMPLE);
  EXPECT_EQ(device().contents, joined({sim::example_fru_image(), {0xEE}}));
  EXPECT_TRUE(requests.starts_with(
      "28 10 00\n28 12 00 00 00 01 00 01 03 08 0D 00 E6 01 02 17 C4 43 50 2D 3"));
  EXPECT_EQ(after(requests, "28 12 00 60"),
            "28 12 00 60 00 C1 00 00 00 00 00 00 23 C0 82 03 A0 1B 10 20 30\n");
}

TEST(Fru, EveryAreaFieldAndRecordSurvivesDumpAndUpdate) {
  Texts fields(7 + 31, std::string(63, 'x'));
  std::fill_n(fields.begin(), 7, "");
  fields.emplace_back(43, 'y');  // the greatest length of an area, no byte is left for padding
  const Bytes greatest = image_of({{}, {}, area({0}, fields)});
  ASSERT_EQ(greatest.size(), 8U + 255 * 8);
  for (const Bytes& image :
       {full_image(0), full_image(1), full_image(2), full_image(3), greatest}) {
    serve(image);
    const std::string text = dumped();
    serve({}, image.size());
    update_with(text);
    EXPECT_EQ(device().contents, image == greatest ? image : full_image(-1));
  }
}

TEST(Fru, TheSampleFileIsWrittenAsItStands) {
  serve({}, 1024);
  requests_of({"--fru", "data/sample.fru"}, 0, UPDATED);
  EXPECT_NE(dumped().find("'ASSET-123'"), std::string::npos);
}

TEST(Fru, EachBlockIsWrittenToItsOwnDevice) {
  serve({}, 64);
  sim::machine().bmc.fru.devices[7] = sim::fru_device({}, 64);
  const std::string two =
      "_fru_title 'replaced'\n_FRU_TITLE 'one'\n_data_len 01 02 00 03\n_dev_id 07\n_BUS_ID 0A\n"
      "_ACCESS_LUN 3\nnothing\n_see_common // the pad is kept\n 01 FF FF FF FF FF 5A FF\n"
      "_SEE_BOARD\n01 00\n_SEE_COMMON\n09\n"  // too late: bytes of an absent area
      "_FRU_TITLE 'two'\n_DEV_ID 00\n_SEE_COMMON\n 02 00 00 00 00 00 00 00";
  EXPECT_EQ(update_with(two),
            "28 10 07\n28 12 07 00 00 01 00 00 00 00 00 5A A5\n28 10 00\n"
            "28 12 00 00 00 02 00 00 00 00 00 00 FE\n");
  fru_dev dev;
  ASSERT_EQ(FileToFru(path_of("new.fru").c_str(), &dev), 1);
  ASSERT_EQ(FruToFile(path_of("two.fru").c_str(), &dev), 1);
  destroy_fru_dev(&dev);
  const std::string text = content_of(path_of("two.fru"));
  EXPECT_TRUE(
      text.starts_with("_FRU\n\n_FRU_TITLE 'one'\n_DATA_LEN 0258\n_DEV_ACCESS_ADDR 00\n"
                       "_DEV_SLAVE_ADDR 00\n_DEV_ID 07\n_DEV_ACCESS_LUN 03\n_BUS_ID 0A\n\n"));
  EXPECT_NE(text.find("\n_FRU_TITLE 'two'\n_DATA_LEN 0000\n"), std::string::npos);
}

TEST(Fru, LengthsPaddingOffsetsAndEndBitsComeOutRight) {
  const Bytes nothing = {1, 0, 0, 0, 0, 0, 0, 0xFF};
  const Bytes internal = {1, 1, 0, 0, 0, 0, 0, 0xFE};
  const Bytes empty_board = area({0x19, 0, 0, 0}, {"", "", "", "", ""});
  const Bytes wide_board =
      joined({{1, 5, 0x19, 0, 0, 0}, Bytes(5, 0xC0), {0xC1}, Bytes(27), {0x60}});
  const std::pair<const char*, Bytes> cases[] = {
      {"", nothing},
      {"_SEE_INTERNAL\n05\n", nothing},
      {"_SEE_INTERNAL\n05 AA", joined({internal, {5, 0xAA, 0, 0, 0, 0, 0, 0}})},
      {"_SEE_INTERNAL\n05 'seven77'", joined({internal, {5, 's', 'e', 'v', 'e', 'n', '7', '7'}})},
      {"_SEE_INTERNAL\n05 '88888888'", joined({internal, {5}, Bytes(8, '8'), Bytes(7)})},
      {"_SEE_CHASSIS\n0F 7F 17 02 'AB' C1 'X' C1", image_of({area({0x17}, {"AB", "X"})})},
      {"_SEE_CHASSIS\n01 7F 17 C0 C0 C1 'X' C1", image_of({area({0x17}, {"", ""})})},
      {"_SEE_CHASSIS\n01 00 17 anything", nothing},
      {"_SEE_BOARD\n01 01 19 000000 C0C0C0C0C0 C1", image_of({{}, empty_board})},
      {"_SEE_BOARD\n01 02 19 000000 C0C0C0C0C0 C1", image_of({{}, empty_board})},
      {"_SEE_BOARD\n01 05 19 000000 C0C0C0C0C0 C1", image_of({{}, wide_board})},
      {"_SEE_PRODUCT\n01 7F 00 C2 'AB' C0C0C0C0C0C0 C0 C1",
       image_of({{}, {}, area({0}, {"AB", "", "", "", "", "", "", ""})})},
      {"_SEE_MULTIREC\n00 82 00 00 00", nothing},
      {"_SEE_MULTIREC\nC0 72 01 00 00 11  C1 F3 00 00 00  C2 80",
       records_of({multirecord(0xC0, 2, {0x11}), multirecord(0xC1, 0x83, {})})},
  };
  for (const auto& [section, image] : cases) {
    serve(Bytes(image.size(), 0xEE));
    update_with(BLOCK + section);
    EXPECT_EQ(device().contents, image) << section;
  }
}

// A board area of 16 bytes whose last five, behind its texts, are `tail`; the date makes its
// checksum hold.
Bytes board_ending(const Bytes& tail) {
  Bytes board = joined({{1, 2, 0, 0, 0, 0}, Bytes(5, 0xC0), tail});
  board[3] = zero_sum(board);
  return image_of({{}, board});
}

TEST(FruFaults, ABrokenDeviceIsNoDump) {
  const Bytes good = sim::example_fru_image();
  // Empty custom fields: its second chunk holds zeros only.
  const Bytes zeros = image_of({joined({{1, 5}, Bytes(30), {0xC1, 0, 0, 0, 0, 0, 0, 0x39}})});
  const Bytes unended = multirecord(0xC0, 2, {1, 2});
  Bytes bad_second = records_of({unended, multirecord(0xC0, 0x82, {1, 2})});
  bad_second.back()++;
  const sim::Fault miscounted = fault(answer, 0x11, 0, 0, {0, 7, 1, 0, 1, 3, 8, 0x0D, 0, 0xE6});
  const struct {
    const char* name;
    Bytes image;
    std::vector<sim::Fault> faults = {};
    int claimed_size = -1;
    unsigned answer_limit = 0;
  } cases[] = {
      {"header refused", good, {fault(refuse, 0x11, 0, 0xCB)}},
      {"header cut", good, {fault(shorten, 0x11, 0, 9)}},
      {"header with another count", good, {miscounted}},
      {"answers of 8 bytes", good, {}, -1, 8},
      {"refused in the middle", good, {fault(refuse, 0x11, 5, 0x81)}},
      {"refused where zeros are", zeros, {fault(refuse, 0x11, 3, 0x81)}},
      {"empty answer", good, {fault(shorten, 0x11, 5, 0)}},
      {"area of length 0", image_of({Bytes(40)})},
      {"area behind the end", Bytes{1, 0, 0xFF, 0, 0, 0, 0, 0}},
      {"no end mark", board_ending({0, 0, 0, 0, 0})},
      {"end mark is the checksum", board_ending({0, 0, 0, 0, 0xC1})},
      {"field behind the end", board_ending({0xC5, 0, 0, 0, 0})},
      {"no end bit", records_of({unended, unended})},
      {"second record bad", bad_second},
      {"says it is smaller", good, {}, 110},
  };
  for (const auto& broken : cases) {
    serve(broken.image).claimed_size = broken.claimed_size;
    device().answer_limit = broken.answer_limit;
    sim::machine().bmc.faults = broken.faults;
    EXPECT_EQ(read_device(), Bytes()) << broken.name;
  }
  serve(zeros);
  EXPECT_NE(read_device(), Bytes());
  serve(Bytes(256, 0xFF));
  requests_of({"--wfru", path_of("broken.fru")}, 1, "reading FRU......\nchecksum error\n");
  EXPECT_EQ(content_of(path_of("broken.fru")), "(no file)");
}

TEST(FruFaults, ZerosAreNoEndlessListOfRecords) {
  // A device that does not tell its size may have 65536 bytes.
  for (const auto& [claimed, last] :
       {std::pair{64, "28 11 00 3A 00 05\n"}, {0, "28 11 00 F8 FF 05\n"}}) {
    serve(records_of({Bytes(8)}), 0x10000).claimed_size = claimed;
    EXPECT_EQ(read_device(), Bytes());
    EXPECT_TRUE(sim::transcript().ends_with(last));
  }
}

TEST(FruFaults, EveryCorruptByteAndEveryTruncationIsReadRightOrIsAFault) {
  const Bytes good = sim::example_fru_image();
  const Bytes image = joined({good, Bytes(20, 0x33)});
  for (size_t at = 0; at < image.size(); at++) {
    for (const int flip : {0x01, 0x08, 0x40, 0x80, 0x3F, 0xFF}) {
      serve(image).contents[at] ^= static_cast<uint8_t>(flip);
      EXPECT_EQ(read_device(), at < good.size() ? Bytes() : good) << at << " ^ " << flip;
    }
    serve(image).contents.resize(at);
    EXPECT_EQ(read_device(), at < good.size() ? Bytes() : good) << at;
  }
}

TEST(FruFaults, ADumpThatCannotBeWrittenWholeFails) {
  serve(sim::example_fru_image());
  requests_of({"--wfru", "/dev/full"}, 1, "writing file......fail\n");
  requests_of({"--wfru", "/nowhere/dump.fru"}, 1, "writing file......fail\n");
}

// The text, so many times the line, the end.
std::string repeated(std::string text, int count, const std::string& line, const char* end = "") {
  for (int i = 0; i < count; i++) text += line;
  return text + end;
}

TEST(FruFaults, ARefusedFileNamesTheLineAndWritesNothing) {
  const std::string common = BLOCK + "_SEE_COMMON\n";
  const std::string chassis = BLOCK + "_SEE_CHASSIS\n01 02";
  const std::string product = BLOCK + "_SEE_PRODUCT\n01 01 00\n";
  const std::string records = BLOCK + "_SEE_MULTIREC\nC0 ";
  const std::string eight = "01 00 00 00 00 00 00 00\n";
  const std::pair<std::string, std::string> cases[] = {
      {"_FRU\n_FRU_TITLE 'x'\n", ""},  // no line, the file has nothing to read
      {common + "01 00 00\n00 00 00 00\n", "line 6: "},
      {chassis + "\n", "line 5: "},
      {chassis + " 17\nC2 'AB'\n\n# end\n", "line 6: "},
      {chassis + " 17\nC2 'AB'\nC3\n'CD'\n", "line 7: "},
      {chassis + " 17\nC0 C0\nC2 'CD'\n_SEE_BOARD\n01 00\n", "line 7: "},
      {BLOCK + "_SEE_BOARD\n01 02 17 00\n00\n", "line 6: "},
      {product + "C0 C0 C0 C0 C0\n C0\n", "line 7: "},
      {records + "82 03\n", "line 5: "},
      {records + "02 01 00 00\n11\nC0 82 03 00 00\n11 22\n", "line 7: "},
      {records + "02 01 00 00\n11\n", "line 6: "},
      {common + eight + "_FRU_TITLE 'y'\n_SEE_BOARD\n", "line 6: "},
      {common + eight + "_DEV_ID 01\n", "line 6: "},
      {repeated(product, 52, "'" + std::string(40, 'x') + "'\n"), "line 57: "},
      {repeated(common, 33, eight), "line 37: "},
      {common + std::string(300, ' ') + "01\n\n02\n", "line 7: "},
  };
  for (const auto& [text, line] : cases) {
    const std::string path = file_with("refused.fru", text);
    fru_dev dev;
    const std::string out = console_of([&] { EXPECT_EQ(FileToFru(path.c_str(), &dev), 0); });
    EXPECT_TRUE(out.starts_with(line)) << out << text;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), line.empty() ? 0 : 1);
    EXPECT_EQ(fru_count(dev), 0U);
  }
  const std::string path = path_of("refused.fru");
  const char reason[] = "reading file......\nline 7: the common section has fewer than 8 bytes\n";
  EXPECT_EQ(requests_of({"--fru", path}, 1, reason + ("Cannot read file " + path) + "\n"), "");
  requests_of({"--fru", "/nowhere"}, 1, "reading file......\nCannot read file /nowhere\n");
}

TEST(FruFaults, AnImageThatDoesNotFitIsRefusedBeforeTheFirstWrite) {
  const std::string longest = "FF '" + std::string(63, 'x') + "'\n";
  const std::string chassis = "_SEE_CHASSIS\n01 01 17 C0 C0\n";
  const std::string product = "_SEE_PRODUCT\n01 01 00 C0 C0 C0 C0 C0 C0 C0\n";
  const std::string record = "C1\n_SEE_MULTIREC\n01 80 00 00 00\n";
  const std::string far =  // a chassis area that begins at byte 2056
      repeated("_SEE_INTERNAL\n01\n", 51, "'" + std::string(40, 'i') + "'\n") + chassis + "C1\n";
  serve({}, 4096);
  update_with(repeated(BLOCK + product, 31, longest) + record);
  const std::string refused[] = {
      BLOCK + far,
      repeated(BLOCK + product, 31, longest, "EC '") + std::string(44, 'y') +
          "' C1\n",  // 256 units
      repeated(repeated(BLOCK + chassis, 31, longest, "C1\n") + product, 8, longest) + record,
      BLOCK + "_SEE_COMMON\n_FRU_TITLE 'two'\n_DEV_ID 01\n" + far,
  };
  for (const std::string& text : refused) EXPECT_EQ(update_with(text, NOT_UPDATED), "");
  serve({}, 111);
  EXPECT_EQ(update_with(EXAMPLE, NOT_UPDATED), "28 10 00\n");
}

TEST(FruFaults, AWriteThatIsRefusedEndsTheUpdate) {
  serve({}, 1024).protected_from = 0x28;
  const std::string requests = update_with(EXAMPLE, NOT_UPDATED);
  EXPECT_EQ(after(after(requests, "28 12 00 20 00"), "\n"), "\n");
  serve({}, 1024);
  sim::machine().bmc.fru.devices.clear();
  EXPECT_EQ(update_with(EXAMPLE, NOT_UPDATED), "28 10 00\n");
}

TEST(FruFaults, AFieldOver63BytesIsNotBuilt) {
  fru_info fru;
  uint8_t image[FRU_IMAGE_ROOM];
  unsigned length = 0;
  fru.chassis_len = 1;
  for (const unsigned size : {63U, 64U}) {
    fru.chassis_part_number = make_text(std::string(size, 'x').data(), size);
    EXPECT_EQ(build_fru_image(&fru, image, &length), size == 63 ? 1 : 0);
  }
}

}  // namespace

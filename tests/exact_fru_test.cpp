// Inventories that are dumped and written back with --exact: no byte of a device changes.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "base/notice.h"
#include "fru/exact.h"
#include "platform/platform.h"
#include "tests/fru_images.h"
#include "tests/harness.h"
#include "transport/transaction.h"

namespace {

using sim::Bytes;
using sim::machine;

// Where a generated device has its areas, for a comparison without the gaps between them.
struct Generated {
  Bytes bytes;
  std::vector<std::pair<size_t, size_t>> areas;  // offset, length
};

struct Generator {
  std::mt19937 random;

  size_t upto(size_t most) {
    return random() % (most + 1);
  }

  Bytes any_bytes(size_t count) {
    Bytes bytes(count);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    return bytes;
  }

  // Every type code; text of every sort, often with what a text file cannot hold as it is.
  Bytes field() {
    static const std::string ALPHABET = "ab #/'\"\\ .\n\r\t//''##";
    const size_t length = upto(3) == 0 ? upto(63) : upto(12);
    Bytes text = any_bytes(length);
    if (upto(3) != 0) {
      for (uint8_t& byte : text) byte = static_cast<uint8_t>(ALPHABET[upto(ALPHABET.size() - 1)]);
    }
    return chained({{static_cast<uint8_t>(upto(3) << 6 | length)}, text});
  }

  // An area that ends early has fewer fields than the fixed ones.
  Bytes area_with(size_t fixed, size_t texts) {
    Bytes bytes = any_bytes(fixed);
    const size_t fields = upto(5) == 0 ? upto(texts) : texts + upto(4);
    for (size_t i = 0; i < fields; i++) bytes = chained({bytes, field()});
    bytes.push_back(0xC1);
    Bytes padding = upto(3) == 0 ? any_bytes(upto(20)) : Bytes(upto(9), 0);
    bytes = chained({bytes, padding});
    while (bytes.size() % 8 != 7) bytes.push_back(0);
    bytes[1] = static_cast<uint8_t>((bytes.size() + 1) / 8);
    return chained({bytes, {zero_sum(bytes)}});
  }

  Bytes records() {
    Bytes bytes;
    const size_t count = 1 + upto(5);
    for (size_t i = 1; i <= count; i++) {
      const uint8_t last = i == count ? 0x80 : 0;
      const auto format = static_cast<uint8_t>(upto(0x7F) | last);
      const auto type = static_cast<uint8_t>(upto(4) == 0 ? 0 : random());
      const size_t length = upto(2) == 0 ? upto(255) : upto(20);
      bytes = chained({bytes, multirecord(type, format, any_bytes(length))});
    }
    return bytes;
  }

  // The areas in any order, with gaps; as many of them as the device's size has room for.
  Generated device() {
    const size_t sizes[] = {8 + upto(300), 64 + upto(1000), 2048 + upto(2000), 0xFFFF};
    const size_t size = sizes[upto(40) == 0 ? 3 : upto(2)];
    const Bytes areas[] = {any_bytes(2 + upto(40)), area_with(3, 2), area_with(6, 5),
                           area_with(3, 7), records()};
    Generated made = {any_bytes(size), {{0, 8}}};
    uint8_t header[7] = {static_cast<uint8_t>(random()),
                         0,
                         0,
                         0,
                         0,
                         0,
                         static_cast<uint8_t>(upto(3) == 0 ? random() : 0)};
    unsigned order[] = {0, 1, 2, 3, 4};
    std::shuffle(std::begin(order), std::end(order), random);
    size_t at = 8;
    for (const unsigned area : order) {
      at = (at + 7) / 8 * 8 + 8 * (upto(2) == 0 ? upto(3) : 0);
      const Bytes& bytes = areas[area];
      if (upto(3) == 0 || at / 8 > 255 || at + bytes.size() > size) continue;
      header[area + 1] = static_cast<uint8_t>(at / 8);
      std::copy(bytes.begin(), bytes.end(), made.bytes.begin() + static_cast<ptrdiff_t>(at));
      made.areas.emplace_back(at, bytes.size());
      at += bytes.size();
    }
    const Bytes head = {std::begin(header), std::end(header)};
    std::copy(head.begin(), head.end(), made.bytes.begin());
    made.bytes[7] = zero_sum(head);
    return made;
  }
};

sim::FruDevice& serve(const Bytes& bytes) {
  sim::FruDevice& device = machine().bmc.fru.devices[0] = sim::fru_device(bytes, bytes.size());
  device.reads_past_end = false;
  return device;
}

// Dumps the device and writes the text back to a device of that content; the device afterwards.
Bytes written_back(const std::string& path, const Bytes& device, const Bytes& onto) {
  serve(device);
  fru_exact_dev read;
  EXPECT_EQ(read_fru_exact(&read), 1);
  EXPECT_EQ(FruToExactFile(path.c_str(), &read), 1);
  fru_exact_dev given;
  EXPECT_EQ(ExactFileToFru(path.c_str(), &given), 1);
  serve(onto);
  EXPECT_EQ(write_fru_exact(&given), 1);
  return machine().bmc.fru.devices[0].contents;
}

bool same_area(const Bytes& one, const Bytes& other, std::pair<size_t, size_t> area) {
  return std::equal(one.begin() + static_cast<ptrdiff_t>(area.first),
                    one.begin() + static_cast<ptrdiff_t>(area.first + area.second),
                    other.begin() + static_cast<ptrdiff_t>(area.first));
}

TEST(ExactFru, dump_that_is_written_back_changes_no_byte_of_any_device) {
  sim::reset(sim::Kind::plain);
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
  strictFlag = 1;
  const unsigned count = std::getenv("QARN_TEST_ALL") != nullptr ? 10000 : 300;
  // A file without a path is written as it is, and not brought to the disk.
  const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("text", MFD_CLOEXEC));
  for (unsigned seed = 0; seed < count && !testing::Test::HasFailure(); seed++) {
    SCOPED_TRACE(seed);
    const Generated made = Generator{std::mt19937(seed)}.device();
    EXPECT_TRUE(written_back(path, made.bytes, made.bytes) == made.bytes);
    const Bytes erased(made.bytes.size(), 0xFF);
    const Bytes again = written_back(path, made.bytes, erased);
    for (const auto& area : made.areas) EXPECT_TRUE(same_area(again, made.bytes, area));
  }
  strictFlag = 0;
  openIpmiFlag = 0;
}

// A chassis at 8, a board at 24 with one unit of room after it, a product area at the end.
const std::string SERIAL = "PN#4";
Bytes three_areas(const std::string& serial = SERIAL) {
  const Bytes chassis = area({0x17}, {"CP", serial});
  const Bytes board = area({0, 1, 2, 3}, {"Maker", "Fan '1'", "S", "", ""}, {.units = 4});
  const Bytes product = area({0}, {"#", "a//b", "", "", "", "", ""});
  const Header header = {.chassis = 1, .board = 3, .product = 8};
  return chained({header_of(header), chassis, board, Bytes(8, 0xEE), product});
}

// What an update with the text that is dumped exactly, after one change, does to the device.
struct Edited {
  RunResult result;
  Bytes device;
};
Edited edited(const std::string& from, const std::string& to, const Bytes& device,
              const std::string& options = "--strict --exact") {
  sim::reset(sim::Kind::plain);
  serve(device);
  const std::string path = path_of("edited.fru");
  run("--exact --wfru " + path);
  std::string text = content_of(path);
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << text;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  file_with("edited.fru", text);
  Edited edited;
  edited.result = run(options + " --fru " + path);
  edited.device = machine().bmc.fru.devices[0].contents;
  return edited;
}

TEST(ExactFru, edit_of_a_serial_number_changes_the_serial_number) {
  const Edited same = edited("'PN'23'4'", "'PN'23'5'", three_areas());
  EXPECT_EQ(same.result.err + std::to_string(same.result.status), "0");
  EXPECT_TRUE(same.device == three_areas("PN#5"));
  const Edited shorter = edited("C4\n   'PN'23'4'", "C2\n   'PN'", three_areas());
  EXPECT_TRUE(shorter.device == three_areas("PN"));
}

TEST(ExactFru, area_that_outgrows_its_place_moves_those_after_it_and_says_so) {
  const std::string longer = "PN#4 and twenty more bytes";
  Bytes device = three_areas();
  device.resize(200, 0xEE);
  const Edited moved = edited("C4\n   'PN'23'4'", "DA\n   'PN'23'4 and twenty more bytes'", device);
  EXPECT_EQ(moved.result.err,
            "qarn: inventory device 0: the board area moves from 24 to 48\n"
            "qarn: inventory device 0: the product area moves from 64 to 80\n");
  EXPECT_EQ(moved.result.status, 0);
  const Bytes chassis = area({0x17}, {"CP", longer});
  const Bytes header = header_of({.chassis = 1, .board = 6, .product = 10});
  EXPECT_TRUE(std::equal(header.begin(), header.end(), moved.device.begin()));
  EXPECT_TRUE(std::equal(chassis.begin(), chassis.end(), moved.device.begin() + 8));
  EXPECT_TRUE(std::equal(device.begin() + 24, device.begin() + 56, moved.device.begin() + 48));
  EXPECT_TRUE(std::equal(device.begin() + 64, device.begin() + 96, moved.device.begin() + 80));
  device = three_areas();
  const Edited full = edited("C4\n   'PN'23'4'", "DA\n   'PN'23'4 and twenty more bytes'", device);
  EXPECT_TRUE(full.result.err.ends_with("the product area ends at 104, the device at 88\n"))
      << full.result.err;
  EXPECT_TRUE(full.device == device) << "nothing is written";
}

TEST(ExactFru, field_whose_length_does_not_fit_its_text_is_refused_with_the_line) {
  for (const auto& [from, to, line] :
       {std::tuple{"'PN'23'4'", "'PN'23'4567'", 22}, {"'Maker'", "'Make'", 37}}) {
    const Edited refused = edited(from, to, three_areas(), "--exact");
    EXPECT_EQ(refused.result.status, 1);
    EXPECT_TRUE(refused.device == three_areas());
    EXPECT_NE(refused.result.out.find("line " + std::to_string(line) + ": "), std::string::npos)
        << refused.result.out;
  }
}

TEST(ExactFru, field_that_swallows_the_next_line_is_refused_though_no_text_follows) {
  const Bytes device = image_of({area({0x17}, {"A", "X0001", "", ""})});
  const Edited refused = edited("'X0001'", "'X00'", device, "--exact");
  EXPECT_NE(refused.result.out.find("line 22: a field's length does not fit its text"),
            std::string::npos)
      << refused.result.out;
  EXPECT_TRUE(refused.device == device);
}

TEST(ExactFru, bytes_after_the_end_mark_stay_when_a_text_grows) {
  const Bytes chassis = {1, 2, 0x17, 0xC1, 'A', 0xC0, 0xC1, 'O', 'E', 'M', 0, 0, 0, 0, 0};
  Bytes device = image_of({chained({chassis, {zero_sum(chassis)}})});
  device.resize(64);
  const Edited grown = edited("C1\n   'A'", "C8\n   'ABCDEFGH'", device);
  EXPECT_EQ(grown.result.status, 0);
  const std::string area(grown.device.begin() + 8, grown.device.begin() + 32);
  EXPECT_EQ(area.substr(0, 17), std::string("\1\3\x17\xC8"
                                            "ABCDEFGH"
                                            "\xC0\xC1OEM"));
}

// Each with what a part of it says; a header of the common section goes before.
TEST(ExactFru, text_that_cannot_be_a_device_is_refused_before_anything_is_written) {
  const std::string head = "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01 00 01 00 00 08 00 F6\n";
  const std::string many = repeated(80, "D0 '0123456789ABCDEF' 00 00 00 00 00 00 00 00 00 00 00\n");
  const std::pair<std::string, std::string> cases[] = {
      {"_SEE_CHASSIS\n01 02\n", "line 6: the section ends before its fields do"},
      {"_SEE_CHASSIS\n01 02 17 C0 C0\n", "line 6: the section has no end mark C1"},
      {"_SEE_CHASSIS\n01 02 17 C0 C0\n" + many + "C1\n", "line 6: the area is too long"},
      {"_SEE_MULTIREC\n02 82 04 00 00 01\n", "line 6: a record is not whole"},
      {"_SEE_MULTIREC\n00 82 01 00 00 01\n", "line 6: a first record of type 00 needs a right"}};
  for (const auto& [text, says] : cases) {
    sim::reset(sim::Kind::plain);
    serve(Bytes(4096, 0xFF));
    const RunResult refused = run("--exact --fru " + file_with("bad.fru", head + text));
    EXPECT_NE(refused.out.find(says), std::string::npos) << text.substr(0, 60) << refused.out;
    EXPECT_TRUE(machine().bmc.fru.devices[0].contents == Bytes(4096, 0xFF));
  }
  sim::reset(sim::Kind::plain);
  serve(Bytes(40, 0xFF));
  const std::string area = "_SEE_CHASSIS\n01 02 17\nC0\nC0\nC1\n";
  const std::string internal = "_SEE_INTERNAL\n" + repeated(9, "01 ") + "\n";
  const RunResult full =
      run("--strict --exact --fru " + file_with("bad.fru", head + internal + area));
  EXPECT_TRUE(full.err.ends_with("the internal use area ends at 81, the device at 40\n"))
      << full.err;
}

TEST(ExactFru, section_without_its_checksum_keeps_its_end_mark) {
  sim::reset(sim::Kind::plain);
  serve(Bytes(64, 0xFF));
  const std::string text =
      "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01 00 01 00 00 00 00 FE\n_SEE_CHASSIS\n01 02 17\n"
      "C4 'CP-1'\nC6 'CS1234'\nC1\n";
  EXPECT_EQ(run("--strict --exact --fru " + file_with("bare.fru", text)).status, 0);
  const Bytes chassis = area({0x17}, {"CP-1", "CS1234"});
  const Bytes& device = machine().bmc.fru.devices[0].contents;
  EXPECT_TRUE(std::equal(chassis.begin(), chassis.end(), device.begin() + 8));
}

TEST(ExactFru, checksum_that_looks_like_an_end_mark_is_none) {
  Bytes board = {1,   5,   0,    1,   2,   3,    0xC5, 'M', 'a',  'k',
                 'e', 'r', 0xC2, 'B', '1', 0xC2, 'S',  '1', 0xC0, 0xC1};  // no file ID, then zeros
  board.resize(39);
  board[3] = static_cast<uint8_t>(board[3] + zero_sum(board) - 0xC1);
  ASSERT_EQ(zero_sum(board), 0xC1);
  const Bytes device = image_of({{}, chained({board, {0xC1}})});
  board[17] = '2';
  const Edited same = edited("'S1'", "'S2'", device);
  EXPECT_TRUE(same.device == image_of({{}, chained({board, {zero_sum(board)}})}));
  board[15] = 0xC3;
  board[17] = '1';
  board.insert(board.begin() + 18, '2');
  board.pop_back();
  const Edited longer = edited("C2\n   'S1'", "C3\n   'S12'", device);
  EXPECT_TRUE(longer.device == image_of({{}, chained({board, {zero_sum(board)}})}));
}

TEST(ExactFru, area_that_is_added_does_not_touch_one_whose_section_is_left_out) {
  const Bytes device =
      image_of({area({0x17}, {"A", ""}), area({0, 1, 2, 3}, {"B", "", "", "", ""})});
  sim::reset(sim::Kind::plain);
  serve(device);
  const std::string text =
      "_FRU\n_DEV_ID 00\n_SEE_COMMON\n01 00 01 02 00 00 00 FC\n"
      "_SEE_PRODUCT\n01 02 00 C0 C0 C0 C0 C0 C0 C0 C1\n";
  const RunResult added = run("--strict --exact --fru " + file_with("added.fru", text));
  EXPECT_TRUE(added.err.ends_with("the product area ends at 48, the device at 32\n")) << added.err;
  EXPECT_TRUE(machine().bmc.fru.devices[0].contents == device);
  sim::reset(sim::Kind::plain);
  serve(Bytes(9, 0));
  const std::string path = path_of("zero.fru");
  run("--exact --wfru " + path);
  EXPECT_EQ(run("--strict --exact --fru " + path).status, 0);
  EXPECT_TRUE(machine().bmc.fru.devices[0].contents == Bytes(9, 0)) << "a header of zeros";
}

TEST(ExactFru, area_of_length_zero_is_taken_out_and_two_areas_with_the_same_bytes_are_refused) {
  Bytes device = three_areas();
  const Edited without = edited("_SEE_PRODUCT\n   01\n   03", "_SEE_PRODUCT\n   01\n   00", device);
  EXPECT_EQ(without.result.status, 0);
  EXPECT_EQ(without.device[4], 0);
  device[4] = device[2];
  device[7] = zero_sum({device.begin(), device.begin() + 7});
  sim::reset(sim::Kind::plain);
  serve(device);
  EXPECT_EQ(run("--strict --exact --wfru " + path_of("shared.fru")).err,
            "qarn: inventory device 0, product area at 8: another area has its bytes\n");
}

TEST(ExactFru, records_that_are_wrong_are_named_with_their_place) {
  const Bytes good = multirecord(2, 2, {1, 2, 3});
  for (const auto& [at, plain, exact] :
       {std::tuple{8U, "16: its bytes sum up to 01, not 00", "16: its bytes sum up to 01, not 00"},
        {13U, "16: the checksum of its bytes is ", "21: its bytes sum up to 01, not 00"},
        {0U, "8: its bytes sum up to 01, not 00", "8: its bytes sum up to 01, not 00"}}) {
    sim::reset(sim::Kind::plain);
    Bytes device = records_of({good, multirecord(3, 0x82, {4})});
    device[8 + at] = static_cast<uint8_t>(device[8 + at] + 1);
    serve(device);
    const std::string head = "qarn: inventory device 0, multi-record area at ";
    const std::string path = path_of("records.fru");
    EXPECT_EQ(run("--strict --wfru " + path).err.find(head + plain), 0U) << at;
    EXPECT_EQ(run("--strict --exact --wfru " + path).err.find(head + exact), 0U) << at;
  }
}

TEST(ExactFru, text_is_read_in_the_plain_form_too) {
  sim::reset(sim::Kind::plain);
  serve(three_areas());
  const std::string path = path_of("exact.fru");
  run("--exact --wfru " + path);
  run("--fru " + path);
  run("--exact --wfru " + path);
  EXPECT_NE(content_of(path).find("'PN'23'4'"), std::string::npos);
  EXPECT_NE(content_of(path).find("'a'2F2F'b'"), std::string::npos);
}

TEST(PlainFru, dump_that_would_not_restore_names_what_is_lost) {
  sim::reset(sim::Kind::plain);
  const Bytes records = multirecord(0, 0x92, {1, 2});
  Bytes device = three_areas();
  device =
      chained({header_of({.internal = 11, .chassis = 1, .board = 3, .product = 8, .records = 13}),
               {device.begin() + 8, device.end()},
               Bytes(16, 1),
               records});
  const Bytes typed = area({0x17}, {"A", "bc", "d"}, {.type = 2});
  std::copy(typed.begin(), typed.end(), device.begin() + 8);
  serve(device);
  const std::string lost =
      "qarn: FRU 0: board product name, product manufacturer, product name: the text does not read "
      "back; use --exact\n"
      "qarn: FRU 0: chassis part number, chassis custom field: the type of the field is not kept; "
      "use --exact\n"
      "qarn: FRU 0: chassis custom field: a field of one byte ends the fields; use --exact\n"
      "qarn: FRU 0: internal use area: it is not dumped; use --exact\n"
      "qarn: FRU 0: the format byte of an area or a record is not kept; use --exact\n"
      "qarn: FRU 0: multi-record area: its first record is of type 00; use --exact\n";
  const std::string path = path_of("plain.fru");
  const RunResult script = run("--wfru " + path);
  EXPECT_EQ(script.err + std::to_string(script.status), "0");
  const std::string dump = content_of(path);
  const RunResult strict = run("--strict --wfru " + path);
  EXPECT_EQ(strict.err + std::to_string(strict.status), lost + "2");
  EXPECT_EQ(content_of(path), dump) << "the file is written";
  const std::string shown = run("--wfru " + path, {.terminals = "2"}).terminal;
  EXPECT_TRUE(shown.ends_with(lost)) << shown;
  EXPECT_EQ(run("--strict --exact --wfru " + path).err, "");
}

TEST(PlainFru, records_that_a_file_cannot_hold_are_told) {
  sim::reset(sim::Kind::plain);
  std::vector<Bytes> records(9, multirecord(2, 2, Bytes(255, 1)));
  records.push_back(multirecord(2, 0x82, {1}));
  serve(records_of(records));
  EXPECT_EQ(run("--strict --wfru " + path_of("long.fru")).err,
            "qarn: FRU 0: multi-record area: it is too long to be read back; use --exact\n");
}

TEST(ExactFru, text_without_a_common_section_gets_a_header_for_its_areas) {
  sim::reset(sim::Kind::plain);
  serve(Bytes(64, 0xFF));
  const std::string text = "_FRU\n_DEV_ID 00\n_SEE_CHASSIS\n01 01 17\nC1 'A'\nC0\nC1\n00\n";
  const RunResult result = run("--strict --exact --fru " + file_with("small.fru", text));
  EXPECT_EQ(result.err, "qarn: inventory device 0: the chassis area is put at 8\n");
  const Bytes device = machine().bmc.fru.devices[0].contents;
  const Bytes image = chained({header_of({.chassis = 1}), area({0x17}, {"A", ""})});
  EXPECT_TRUE(std::equal(image.begin(), image.end(), device.begin()));
}

TEST(PlainFru, fields_that_end_early_and_areas_at_the_very_end_can_be_read) {
  sim::reset(sim::Kind::plain);
  const Bytes board = area({0, 1, 2, 3}, {"Maker", "Board", "S1", "P1"});  // no file ID
  const Bytes small = area({0x17}, {"A", ""});
  const Bytes records = multirecord(2, 0x82, {1, 2});
  const std::string path = path_of("odd.fru");
  for (const Bytes& device : {image_of({{}, board}), image_of({small}), records_of({records})}) {
    serve(device);
    const RunResult result = run("--strict --wfru " + path);
    EXPECT_EQ(result.err + std::to_string(result.status), "0");
  }
  serve(image_of({{}, board}));
  run("--wfru " + path);
  EXPECT_NE(content_of(path).find("'P1'\n   C0\n   C1\n"), std::string::npos) << content_of(path);
}

TEST(PlainFru, checksum_error_names_the_area_and_the_sum) {
  for (const auto& [offset, says] :
       {std::pair{7U, "common header at 0: its bytes sum up to 01, not 00"},
        {30U, "board area at 24: its bytes sum up to 01, not 00"},
        {65U, "product area at 64: "}}) {
    sim::reset(sim::Kind::plain);
    Bytes device = three_areas();
    device[offset] = static_cast<uint8_t>(device[offset] + 1);
    serve(device);
    for (const char* option : {"--strict --wfru ", "--strict --exact --wfru "}) {
      const RunResult result = run(option + path_of("wrong.fru"));
      EXPECT_EQ(result.out.substr(result.out.find("check")), "checksum error\n");
      EXPECT_EQ(result.err.substr(0, 26 + std::strlen(says)),
                "qarn: inventory device 0, " + std::string(says));
      EXPECT_EQ(result.status, 1);
    }
  }
}

}  // namespace

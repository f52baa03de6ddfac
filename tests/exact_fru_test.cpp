// Inventories that are dumped and written back with --exact: no byte of a device changes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "base/notice.h"
#include "fru/exact.h"
#include "tests/fru_images.h"
#include "tests/harness.h"

namespace {

using sim::Bytes;

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
    return closed_area(
        chained({bytes, {0xC1}, upto(3) == 0 ? any_bytes(upto(20)) : Bytes(upto(9))}));
  }

  Bytes records() {
    Bytes bytes;
    for (size_t left = upto(5) + 1; left > 0; left--) {
      const auto format = static_cast<uint8_t>(upto(0x7F) | (left == 1 ? 0x80 : 0));
      const auto type = static_cast<uint8_t>(upto(4) == 0 ? 0 : random());
      const size_t length = upto(2) == 0 ? upto(255) : upto(20);
      bytes = chained({bytes, multirecord(type, format, any_bytes(length))});
    }
    return bytes;
  }

  // The areas in any order, as many as the device has room for, with gaps of any bytes; and the
  // same device with erased gaps.
  std::pair<Bytes, Bytes> device() {
    const size_t sizes[] = {8 + upto(300), 64 + upto(1000), 2048 + upto(2000), 0xFFFF};
    const size_t size = sizes[upto(40) == 0 ? 3 : upto(2)];
    std::pair<Bytes, Bytes> made = {any_bytes(size), Bytes(size, 0xFF)};
    const auto put = [&](const Bytes& bytes, size_t at) {
      std::ranges::copy(bytes, &made.first[at]);
      std::ranges::copy(bytes, &made.second[at]);
    };
    const Bytes areas[] = {any_bytes(2 + upto(40)), area_with(3, 2), area_with(6, 5),
                           area_with(3, 7), records()};
    Bytes header = any_bytes(1);
    header.resize(7);
    if (upto(3) == 0) header[6] = any_bytes(1)[0];
    unsigned order[] = {0, 1, 2, 3, 4};
    std::ranges::shuffle(order, random);
    size_t at = 8;
    for (const unsigned area : order) {
      at = (at + 7) / 8 * 8 + 8 * (upto(2) == 0 ? upto(3) : 0);
      if (upto(3) == 0 || at / 8 > 255 || at + areas[area].size() > size) continue;
      header[area + 1] = static_cast<uint8_t>(at / 8);
      put(areas[area], at);
      at += areas[area].size();
    }
    put(chained({header, {zero_sum(header)}}), 0);
    return made;
  }
};

Bytes& serve(const Bytes& bytes) {
  sim::FruDevice& device = sim::machine().bmc.fru.devices[0] = sim::fru_device(bytes, bytes.size());
  device.reads_past_end = false;
  return device.contents;
}

const Bytes& content() {
  return sim::machine().bmc.fru.devices[0].contents;
}

// Dumps the device and writes the text back to a device of that content; the device afterwards.
Bytes written_back(const Bytes& device, const Bytes& onto) {
  static const std::string path = memory_file();
  serve(device);
  fru_exact_dev read;
  EXPECT_EQ(read_fru_exact(&read), 1);
  EXPECT_EQ(FruToExactFile(path.c_str(), &read), 1);
  fru_exact_dev given;
  EXPECT_EQ(ExactFileToFru(path.c_str(), &given), 1);
  serve(onto);
  EXPECT_EQ(write_fru_exact(&given), 1);
  return content();
}

TEST(ExactFru, dump_that_is_written_back_changes_no_byte_of_any_device) {
  open_kernel_device();
  strictFlag = 1;
  for (unsigned seed = 0; seed < generated() && !HasFailure(); seed++) {
    SCOPED_TRACE(seed);
    const auto [device, erased] = Generator{std::mt19937(seed)}.device();
    EXPECT_TRUE(written_back(device, device) == device);
    EXPECT_TRUE(written_back(erased, Bytes(erased.size(), 0xFF)) == erased);
  }
  EXPECT_EQ(written_back(Bytes(9), Bytes(9)), Bytes(9)) << "a header of zeros";
}

// What an update with this text does to a device with these bytes.
struct Update {
  RunResult result;
  Bytes device;
};
Update updated(const Bytes& device, const std::string& text,
               const std::string& options = "--strict --exact") {
  serve(device);
  const RunResult result = run(options + " --fru " + file_with("given.fru", text));
  return {result, content()};
}

// The same with the text that is dumped exactly, after one change.
Update edited(const Bytes& device, const std::string& from, const std::string& to,
              const std::string& options = "--strict --exact") {
  serve(device);
  run("--exact --wfru " + path_of("edited.fru"));
  std::string text = content_of(path_of("edited.fru"));
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << text;
  return updated(device, text.replace(std::min(at, text.size()), from.size(), to), options);
}

const Bytes BOARD = area({0, 1, 2, 3}, {"Maker", "Fan '1'", "S", "", ""}, {.units = 4});
const Bytes PRODUCT = area({0}, {"#", "a//b", "", "", "", "", ""});
const std::string LONGER = "PN#4 and twenty more bytes";

Bytes chassis(const std::string& serial = "PN#4") {
  return area({0x17}, {"CP", serial});
}

// A chassis at 8, a board at 24 with one unit of room after it, a product area at the end.
Bytes three_areas(const std::string& serial = "PN#4") {
  const Bytes header = header_of({.chassis = 1, .board = 3, .product = 8});
  return chained({header, chassis(serial), BOARD, Bytes(8, 0xEE), PRODUCT});
}

// A board without a file ID; a byte of its date makes the checksum of the one with "S1" C1.
Bytes without_file_id(const std::string& serial) {
  Bytes board = area({0, 0, 0, 0}, {"Maker", "B1", serial, ""}, {.units = 5});
  const Bytes first = area({0, 0, 0, 0}, {"Maker", "B1", "S1", ""}, {.units = 5});
  board[3] = static_cast<uint8_t>(first.back() - 0xC1);
  board.back() = static_cast<uint8_t>(board.back() - board[3]);
  return image_of({{}, board});
}

TEST(ExactFru, edit_changes_what_is_edited_and_no_other_byte) {
  const auto with_rest = [](const Bytes& field) {
    return image_of({closed_area(chained({{1, 0, 0x17}, field, {0xC0, 0xC1, 'O', 'E', 'M'}}))});
  };
  const Bytes packed = image_of({chassis(), BOARD, PRODUCT});
  Bytes without_product = three_areas();
  std::ranges::copy(header_of({.chassis = 1, .board = 3}), without_product.begin());
  const std::string serial = "C4\n   'PN'23'4'";
  const std::tuple<const char*, Bytes, std::string, std::string, Bytes> edits[] = {
      {"a serial number", three_areas(), serial, "C4\n   'PN'23'5'", three_areas("PN#5")},
      {"a shorter one", three_areas(), serial, "C2\n   'PN'", three_areas("PN")},
      {"bytes after the end mark", chained({with_rest({0xC1, 'A'}), Bytes(8)}), "C1\n   'A'",
       "C8\n   'ABCDEFGH'", with_rest({0xC8, 'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'})},
      {"a checksum that looks like an end mark", without_file_id("S1"), "'S1'", "'S2'",
       without_file_id("S2")},
      {"the same, longer", without_file_id("S1"), "C2\n   'S1'", "C3\n   'S12'",
       without_file_id("S12")},
      {"a length of zero", three_areas(), "_SEE_PRODUCT\n   01\n   03",
       "_SEE_PRODUCT\n   01\n   00", without_product}};
  for (const auto& [what, before, from, to, after] : edits) {
    const Update update = edited(before, from, to);
    EXPECT_EQ(update.result.told(), "0") << what;
    EXPECT_EQ(update.device, after) << what;
  }
  EXPECT_EQ(edited(packed, "'23'4'", "'23'5'", "").device,
            image_of({chassis("PN#5"), BOARD, PRODUCT}))
      << "the exact text is read in the plain form, too";
}

TEST(ExactFru, area_that_outgrows_its_place_moves_those_after_it_and_says_so) {
  Bytes device = three_areas();
  const std::string to = "DA\n   'PN'23'4 and twenty more bytes'";
  const Update full = edited(device, "C4\n   'PN'23'4'", to);
  EXPECT_TRUE(full.result.err.ends_with("the product area ends at 104, the device at 88\n"))
      << full.result.err;
  EXPECT_EQ(full.device, device) << "nothing is written";
  device.resize(200, 0xEE);
  const Update moved = edited(device, "C4\n   'PN'23'4'", to);
  EXPECT_EQ(moved.result.told(),
            "qarn: inventory device 0: the board area moves from 24 to 48\n"
            "qarn: inventory device 0: the product area moves from 64 to 80\n0");
  EXPECT_EQ(moved.device, chained({header_of({.chassis = 1, .board = 6, .product = 10}),
                                   chassis(LONGER), BOARD, PRODUCT, Bytes(96, 0xEE)}));
}

TEST(ExactFru, field_whose_length_does_not_fit_its_text_is_refused_with_the_line) {
  // The last one swallows the next line, though no text follows.
  const std::tuple<Bytes, const char*, const char*, const char*> cases[] = {
      {three_areas(), "'PN'23'4'", "'PN'23'4567'", "line 22: "},
      {three_areas(), "'Maker'", "'Make'", "line 37: "},
      {image_of({area({0x17}, {"A", "X0001", "", ""})}), "'X0001'", "'X00'",
       "line 22: a field's length does not fit its text"}};
  for (const auto& [device, from, to, line] : cases) {
    const Update refused = edited(device, from, to, "--exact");
    EXPECT_EQ(refused.result.status, 1);
    EXPECT_EQ(refused.device, device);
    EXPECT_NE(refused.result.out.find(line), std::string::npos) << refused.result.out;
  }
}

const std::string DEVICE = "_FRU\n_DEV_ID 00\n";

TEST(ExactFru, text_that_cannot_be_a_device_is_refused_before_anything_is_written) {
  const std::string many = repeated(80, "D0 '0123456789ABCDEF' 00 00 00 00 00 00 00 00 00 00 00\n");
  const std::string last_place = "_SEE_COMMON\n01 00 01 03 00 00 00 FB\n_SEE_PRODUCT\n01 02 00";
  const Bytes erased(4096, 0xFF);
  const Bytes board = area({0, 1, 2, 3}, {"B", "", "", "", ""});
  const std::tuple<std::string, Bytes, std::string> cases[] = {
      {"_SEE_CHASSIS\n01 02\n", erased, "line 4: the section ends before its fields do"},
      {"_SEE_CHASSIS\n01 02 17 C0 C0\n", erased, "line 4: the section has no end mark C1"},
      {"_SEE_CHASSIS\n01 02 17 C0 C0\n" + many + "C1\n", erased, "line 4: the area is too long"},
      {"_SEE_MULTIREC\n02 82 04 00 00 01\n", erased, "line 4: a record is not whole"},
      {"_SEE_MULTIREC\n00 82 01 00 00 01\n", erased,
       "line 4: a first record of type 00 needs a right"},
      {"_SEE_COMMON\n01 00 01 00 00 08 00 F6\n_SEE_INTERNAL\n" + repeated(9, "01 ") +
           "\n_SEE_CHASSIS\n01 02 17\nC0\nC0\nC1\n",
       Bytes(40, 0xFF), "the internal use area ends at 81, the device at 40\n"},
      // It must not touch areas whose sections are left out.
      {last_place + repeated(7, " C0") + " C1\n", image_of({chassis("A"), board}),
       "the product area ends at 56, the device at 40\n"}};
  for (const auto& [sections, device, says] : cases) {
    const Update refused = updated(device, DEVICE + sections);
    EXPECT_NE((refused.result.out + refused.result.err).find(says), std::string::npos)
        << sections << refused.result.out << refused.result.err;
    EXPECT_EQ(refused.device, device);
  }
}

TEST(ExactFru, text_without_a_checksum_or_a_header_gets_them) {
  const std::string header = "_SEE_COMMON\n01 00 01 00 00 00 00 FE\n";
  for (const auto& [sections, told, chassis] :
       {std::tuple(header + "_SEE_CHASSIS\n01 02 17\nC4 'CP-1'\nC6 'CS1234'\nC1\n", "0",
                   area({0x17}, {"CP-1", "CS1234"})),
        {"_SEE_CHASSIS\n01 01 17\nC1 'A'\nC0\nC1\n00\n",
         "qarn: inventory device 0: the chassis area is put at 8\n0", area({0x17}, {"A", ""})}}) {
    const Bytes image = image_of({chassis});
    const Update update = updated(Bytes(image.size(), 0xFF), DEVICE + sections);
    EXPECT_EQ(update.result.told(), told);
    EXPECT_EQ(update.device, image);
  }
}

// With the place as the plain dump and as the exact one name it.
TEST(ExactFru, broken_device_is_not_dumped_and_its_place_is_named) {
  const Bytes records = records_of({multirecord(2, 2, {1, 2, 3}), multirecord(3, 0x82, {4})});
  const char second[] = "multi-record area at 16: its bytes sum up to 01, not 00";
  const std::tuple<Bytes, size_t, std::string, std::string> cases[] = {
      {three_areas(), 7, "common header at 0: its bytes sum up to 01, not 00", ""},
      {three_areas(), 30, "board area at 24: its bytes sum up to 01, not 00", ""},
      {three_areas(), 65, "product area at 64: ", ""},
      {records, 8, "multi-record area at 8: its bytes sum up to 01, not 00", ""},
      {records, 16, second, ""},
      {records, 21, "multi-record area at 16: the checksum of its bytes is ",
       "multi-record area at 21: its bytes sum up to 01, not 00"}};
  for (const auto& [sound, at, plain, exact] : cases) {
    serve(sound)[at]++;
    for (const std::string option : {"", "--exact "}) {
      const std::string& place = option.empty() || exact.empty() ? plain : exact;
      const RunResult result = run("--strict " + option + "--wfru " + path_of("wrong.fru"));
      EXPECT_TRUE(result.out.ends_with("reading FRU......\nchecksum error\n")) << result.out;
      EXPECT_TRUE(result.err.starts_with("qarn: inventory device 0, " + place)) << result.err;
      EXPECT_EQ(result.status, 1);
    }
  }
  Bytes shared = three_areas();
  std::ranges::copy(header_of({.chassis = 1, .board = 3, .product = 1}), shared.begin());
  serve(shared);
  EXPECT_EQ(run("--strict --exact --wfru " + path_of("shared.fru")).err,
            "qarn: inventory device 0, product area at 8: another area has its bytes\n");
}

TEST(PlainFru, dump_that_would_not_restore_names_what_is_lost) {
  const Bytes typed = area({0x17}, {"A", "bc", "d"}, {.type = 2});
  const std::string path = path_of("plain.fru");
  serve(chained({header_of({.internal = 10, .chassis = 1, .board = 3, .product = 7, .records = 12}),
                 typed, BOARD, PRODUCT, Bytes(16, 1), multirecord(0, 0x92, {1, 2})}));
  expect_told({.line = "--wfru " + path,
               .tells = "FRU 0: board product name, product manufacturer, product name: the text "
                        "does not read back; use --exact\n"
                        "FRU 0: chassis part number, chassis custom field: the type of the field "
                        "is not kept; use --exact\n"
                        "FRU 0: chassis custom field: a field of one byte ends the fields; use "
                        "--exact\n"
                        "FRU 0: internal use area: it is not dumped; use --exact\n"
                        "FRU 0: the format byte of an area or a record is not kept; use --exact\n"
                        "FRU 0: multi-record area: its first record is of type 00; use --exact",
               .to_people = true});
  EXPECT_TRUE(content_of(path).starts_with("_FRU\n")) << "the file is written";
  EXPECT_EQ(run("--strict --exact --wfru " + path).told(), "0");
  std::vector<Bytes> records(7, multirecord(2, 2, Bytes(255, 1)));
  records.push_back(multirecord(2, 0x82, Bytes(224, 1)));  // one byte too long
  serve(records_of(records));
  expect_told({.line = "--wfru " + path,
               .tells = "FRU 0: multi-record area: it is too long to be read back; use --exact",
               .to_people = true});
}

TEST(PlainFru, fields_that_end_early_and_areas_at_the_very_end_can_be_read) {
  const Bytes board = area({0, 1, 2, 3}, {"Maker", "Board", "S1", "P1"});  // no file ID
  const std::string path = path_of("odd.fru");
  for (const Bytes& device : {image_of({chassis("")}), records_of({multirecord(2, 0x82, {1, 2})}),
                              image_of({{}, board})}) {
    serve(device);
    EXPECT_EQ(run("--strict --wfru " + path).told(), "0");
  }
  EXPECT_NE(content_of(path).find("'P1'\n   C0\n   C1\n"), std::string::npos) << content_of(path);
}

}  // namespace

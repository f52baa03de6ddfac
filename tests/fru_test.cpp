// FRU: requests on the wire, the text form, images there and back; broken devices and files.
#include "fru/fru.h"

#include <algorithm>
#include <filesystem>

#include "tests/fru_images.h"
#include "tests/harness.h"

namespace {

using sim::Bytes;
using Texts = std::vector<std::string>;

const std::string DUMPED = "0 reading FRU......\nwriting file......ok\n";
const std::string UPDATED = "0 reading file......\nwriting FRU......\nUpdate successfully\n";
const std::string NOT_UPDATED = "1 reading file......\nwriting FRU......\nUpdate FRU fail\n";
const std::string BLOCK = "_FRU\n_FRU_TITLE 'x'\n_DEV_ID 00\n";  // the sections of a device follow

// A device without a product area, with an internal use area of unknown length, as it is dumped.
const std::string DUMP =
    "_FRU\n\n_FRU_TITLE '(null)'\n_DATA_LEN 0000\n_DEV_ACCESS_ADDR 00\n_DEV_SLAVE_ADDR 00\n"
    "_DEV_ID 00\n_DEV_ACCESS_LUN 00\n_BUS_ID 00\n"
    "\n_SEE_COMMON\n   01\n   01\n   01\n   04\n   00\n   09\n   00\n   00\n"
    "\n_SEE_INTERNAL\n   00\n\n_SEE_CHASSIS\n   01\n   03\n   17\n   C4\n   'CP-1'\n   C5\n"
    "   'CS123'\n   C0\n   ''\n   C1\n   BE\n"
    "\n_SEE_BOARD\n   01\n   05\n   19\n   80 1A 9B\n   C5\n   'Maker'\n   C5\n   'Board'\n   C5\n"
    "   'B0001'\n   C5\n   'P-100'\n   C0\n   C1\n   2E\n"
    "\n_SEE_PRODUCT\n   01\n   00\n   00\n   C0\n   C0\n   C0\n   C0\n   C0\n   C0\n   C0\n   C1\n"
    "   00\n\n_SEE_MULTIREC\n\n   01\n   02\n   00\n   00\n   8D     // header checksum\n"
    "\n   C0\n   82\n   0A\n   7C\n   C8     // header checksum\n"
    "\n   5A 5A 5A 5A 5A 5A 5A 5A\n   5A 5A";

// A fresh server whose FRU device 0 begins with `image` and has `size` bytes, at least the image's.
sim::FruDevice& serve(const Bytes& image, size_t size = 0) {
  sim::reset(sim::Kind::plain);
  return sim::machine().bmc.fru.devices[0] = sim::fru_device(image, std::max(size, image.size()));
}

// The status of a run, what it says after its headings, and what it sends.
std::pair<std::string, std::string> outcome(const std::string& option, const std::string& path,
                                            const Start& start = {}) {
  const RunResult result = run("--open " + option + " " + path, start);
  const std::string said = result.out.substr(result.out.find("\nreading ") + 1);
  return {std::to_string(result.status) + " " + said, result.sent};
}

// What an update with this text says, and what it sends.
std::string updated(const std::string& text) {
  const auto [said, sent] = outcome("--fru", file_with("new.fru", text));
  return said + sent;
}

// Device 0 as text, or "(no file)" when it cannot be read whole.
std::string read_device(const std::string& faults = "") {
  const std::string path = path_of("read.fru");
  std::filesystem::remove(path);
  run("--open --wfru " + path, {faults});
  return content_of(path);
}

// Every kind of field and record.
Bytes full_image(AreaForm form) {
  const std::string longest(63, 'z');
  return image_of(
      {area({0x17}, {"", "CS", "custom 1", "", longest}, form),
       area({0x19, 1, 2, 3}, {"\x81\xFE\x7F", longest, "", "P\t1", "id"}, form),
       area({0x19}, {"Maker", "Server", "", "1.0", longest, "", "id", "xy"}, form),
       chained({multirecord(2, 2, Bytes(11, 0x5A)), multirecord(0xC0, 0x82, Bytes(255, 7))})});
}

TEST(Fru, is_read_area_by_area_dumped_as_text_and_written_back_by_sixteen_bytes) {
  serve(chained({header_of({.format = 0xF1, .internal = 1, .chassis = 1, .board = 4, .records = 9}),
                 area({0x17}, {"CP-1", "CS123", ""}),
                 area({0x19, 0x80, 0x1A, 0x9B}, {"Maker", "Board", "B0001", "P-100", ""}),
                 multirecord(1, 0x72, {}), multirecord(0xC0, 0xF2, Bytes(10, 0x5A))}));
  // Device 0 is read even if it does not answer the probe.
  const auto [said, sent] = outcome("--wfru", path_of("dump.fru"), {"refuse cmd=10 value=c1"});
  EXPECT_EQ(said + content_of(path_of("dump.fru")), DUMPED + DUMP);
  EXPECT_EQ(sent,
            "28 10 00\n28 11 00 00 00 08\n28 11 00 08 00 10\n28 11 00 08 00 10\n"
            "28 11 00 18 00 08\n28 11 00 20 00 10\n28 11 00 20 00 10\n28 11 00 30 00 10\n"
            "28 11 00 40 00 08\n28 11 00 48 00 10\n28 11 00 48 00 05\n28 11 00 4D 00 10\n"
            "28 11 00 4D 00 0F\n");
  serve({}, 92);
  EXPECT_EQ(updated(DUMP),
            UPDATED +
                "28 10 00\n28 12 00 00 00 01 00 01 04 00 09 00 F1 01 03 17 C4 43 50 2D 31\n"
                "28 12 00 10 00 C5 43 53 31 32 33 C0 C1 00 00 00 00 00 00 00 BE\n"
                "28 12 00 20 00 01 05 19 80 1A 9B C5 4D 61 6B 65 72 C5 42 6F 61\n"
                "28 12 00 30 00 72 64 C5 42 30 30 30 31 C5 50 2D 31 30 30 C0 C1\n"
                "28 12 00 40 00 00 00 00 00 00 00 00 2E 01 02 00 00 FD C0 82 0A\n"
                "28 12 00 50 00 7C 38 5A 5A 5A 5A 5A 5A 5A 5A 5A 5A\n");
}

TEST(Fru, every_area_field_and_record_survives_dump_and_update) {
  Texts fields(7 + 31, std::string(63, 'x'));
  std::fill_n(fields.begin(), 7, "");
  fields.emplace_back(43, 'y');  // the greatest length of an area, no byte is left for padding
  const Bytes greatest = image_of({{}, {}, area({0}, fields)});
  ASSERT_EQ(greatest.size(), 8U + 255 * 8);
  for (const auto& [image, rebuilt] :
       {std::pair(full_image({.type = 0}), full_image({})), {greatest, greatest}}) {
    serve(image);
    const std::string text = read_device();
    serve({}, image.size());
    updated(text);
    EXPECT_EQ(sim::machine().bmc.fru.devices[0].contents, rebuilt);
  }
  serve({}, 1024);
  EXPECT_TRUE(updated(content_of("data/sample.fru")).starts_with(UPDATED));
}

TEST(Fru, each_block_is_written_to_its_own_device) {
  serve({}, 64);
  sim::machine().bmc.fru.devices[7] = sim::fru_device({}, 64);
  EXPECT_EQ(
      updated(
          "_fru_title 'replaced'\n_FRU_TITLE 'one'\n_data_len 01 02 00 03\n_dev_id 07\n_BUS_ID 0A\n"
          "_ACCESS_LUN 3\nnothing\n_see_common // the pad is kept\n 01 FF FF FF FF FF 5A FF\n"
          "_SEE_BOARD\n01 00\n_SEE_COMMON\n09\n"  // too late: bytes of the board area
          "_FRU_TITLE 'two'\n_DEV_ID 00\n_SEE_COMMON\n 02 00 00 00 00 00 00 00"),
      UPDATED +
          "28 10 07\n28 12 07 00 00 01 00 00 00 00 00 5A A5\n28 10 00\n"
          "28 12 00 00 00 02 00 00 00 00 00 00 FE\n");
}

TEST(Fru, lengths_padding_offsets_and_end_bits_come_out_right) {
  const Bytes nothing = header_of({});
  const Bytes internal = header_of({.internal = 1});
  const Bytes product = area({0}, {"AB", "", "", "", "", "", "", ""});
  const Bytes empty_board = area({0x19, 0, 0, 0}, Texts(5));
  const Bytes wide_board = area({0x19, 0, 0, 0}, Texts(5), {.units = 5});
  const std::pair<const char*, Bytes> cases[] = {
      {"_SEE_INTERNAL\n05\n", nothing},
      {"_SEE_INTERNAL\n05 AA", chained({internal, {5, 0xAA, 0, 0, 0, 0, 0, 0}})},
      {"_SEE_INTERNAL\n05 '7777777'", chained({internal, {5}, Bytes(7, '7')})},
      {"_SEE_INTERNAL\n05 '88888888'", chained({internal, {5}, Bytes(8, '8'), Bytes(7)})},
      {"_SEE_CHASSIS\n0F 7F 17 02 'AB' C1 'X' C1", image_of({area({0x17}, {"AB", "X"})})},
      {"_SEE_CHASSIS\n01 7F 17 C0 C0 C1 'X' C1", image_of({area({0x17}, {"", ""})})},
      {"_SEE_CHASSIS\n01 00 17 anything", nothing},
      {"_SEE_BOARD\n01 01 19 000000 C0C0C0C0C0 C1", image_of({{}, empty_board})},
      {"_SEE_BOARD\n01 05 19 000000 C0C0C0C0C0 C1", image_of({{}, wide_board})},
      {"_SEE_PRODUCT\n01 7F 00 C2 'AB' C0C0C0C0C0C0 C0 C1", image_of({{}, {}, product})},
      {"_SEE_MULTIREC\n00 82 00 00 00", nothing},
      {"_SEE_MULTIREC\nC0 72 01 00 00 11  C1 F3 00 00 00  C2 80",
       records_of({multirecord(0xC0, 2, {0x11}), multirecord(0xC1, 0x83, {})})},
  };
  for (const auto& [section, image] : cases) {
    serve(Bytes(image.size(), 0xEE));
    updated(BLOCK + section);
    EXPECT_EQ(sim::machine().bmc.fru.devices[0].contents, image) << section;
  }
}

// A board area of 16 bytes that ends with `tail` after its five texts; a byte of the date makes its
// checksum hold.
Bytes board_ending(const Bytes& tail) {
  Bytes board = chained({{1, 2, 0, 0, 0, 0}, Bytes(5, 0xC0), tail});
  board[3] = zero_sum(board);
  return image_of({{}, board});
}

TEST(FruFaults, a_broken_device_leaves_no_dump) {
  const Bytes good = sim::example_fru_image();
  // Empty custom fields: its second chunk holds zeros only.
  const Bytes zeros = image_of({chained({{1, 5}, Bytes(30), {0xC1, 0, 0, 0, 0, 0, 0, 0x39}})});
  const Bytes unended = multirecord(0xC0, 2, {1, 2});
  const std::tuple<const char*, Bytes, const char*> cases[] = {
      {"erased", Bytes(256, 0xFF), ""},
      {"header cut", good, "shorten cmd=11 value=9"},
      {"header counted as 7 bytes", good, "answer cmd=11 bytes=000701000103080d00e6"},
      {"refused where zeros are", zeros, "refuse cmd=11 skip=3 value=81"},
      {"8 bytes of 16", good, "shorten cmd=11 skip=2 value=a"},
      {"length that changes", good, "answer cmd=11 skip=1 bytes=00100104"},
      {"area of length 0", image_of({Bytes(40)}), ""},
      {"area after the end", header_of({.chassis = 0xFF}), ""},
      {"no end mark", board_ending({0, 0, 0, 0, 0}), ""},
      {"end mark is the checksum", board_ending({0, 0, 0, 0, 0xC1}), ""},
      {"field past the end", board_ending({0xC5, 0, 0, 0, 0}), ""},
      {"no end bit", records_of({unended, unended}), ""},
  };
  for (const auto& [name, image, faults] : cases) {
    serve(image);
    EXPECT_EQ(read_device(faults), "(no file)") << name;
  }
  serve(zeros);
  EXPECT_NE(read_device(), "(no file)");
  for (const char* path : {"/dev/full", "/no/f"})
    EXPECT_EQ(outcome("--wfru", path).first, "1 reading FRU......\nwriting file......fail\n");
  serve(good).claimed_size = 110;  // of 112
  EXPECT_EQ(outcome("--wfru", path_of("f")).first, "1 reading FRU......\nchecksum error\n");
}

TEST(FruFaults, zeros_are_no_endless_list_of_records) {
  serve(records_of({Bytes(8)}), 0x10000).claimed_size = 0;  // it does not say its size
  const std::string sent = outcome("--wfru", "/dev/null").second;
  EXPECT_TRUE(sent.ends_with("28 11 00 F8 FF 05\n")) << sent;
}

TEST(FruFaults, every_corrupt_byte_and_every_truncation_is_read_right_or_is_a_fault) {
  const Bytes good =
      image_of({area({0x17}, {"A", "BC", "custom"}), {}, {}, multirecord(0xC0, 0x82, {0x11})});
  const Bytes image = chained({good, {0x33}});
  serve(image);
  const std::string sound = read_device();
  for (size_t at = 0; at < image.size(); at++) {
    const std::string expected = at < good.size() ? "(no file)" : sound;
    serve(image).contents[at] ^= 1;
    EXPECT_EQ(read_device(), expected) << at;
    serve(image).contents.resize(at);
    EXPECT_EQ(read_device(), expected) << at;
  }
}

TEST(FruFaults, a_refused_file_names_the_line_and_writes_nothing) {
  const std::string common = BLOCK + "_SEE_COMMON\n";
  const std::string chassis = BLOCK + "_SEE_CHASSIS\n01 02";
  const std::string product = BLOCK + "_SEE_PRODUCT\n01 01 00\n";
  const std::string records = BLOCK + "_SEE_MULTIREC\nC0 ";
  const std::string eight = "01 00 00 00 00 00 00 00\n";
  const std::string few = ": the common section has fewer than 8 bytes\n";
  const std::string ends = ": the section ends before its fields do\n";
  const std::string many = ": the section has too many bytes\n";
  const std::pair<std::string, std::string> cases[] = {
      {"_FRU\n_FRU_TITLE 'x'\n", ""},  // no line, the file has nothing to read
      {common + "01 00 00\n00 00 00 00\n", "line 6" + few},
      {common + std::string(300, ' ') + "01\n\n02\n", "line 7" + few},
      {chassis + " 17\nC2 'AB'\n\n# end\n", "line 6" + ends},
      {chassis + " 17\nC2 'AB'\nC3\n'CD'\n",
       "line 7: a field is longer than what is left of the section\n"},
      {chassis + " 17\nC0 C0\nC2 'CD'\n_SEE_BOARD\n01 00\n",
       "line 7: the section has no end mark C1\n"},
      {records + "02 01 00 00\n11\nC0 82 03 00 00\n11 22\n",
       "line 7: a record is longer than what is left of the section\n"},
      {records + "02 01 00 00\n11\n", "line 6: no record has the end-of-list bit 80\n"},
      {common + eight + "_FRU_TITLE 'y'\n_SEE_BOARD\n",
       "line 6: more device blocks than _DEV_ID lines\n"},
      {common + eight + "_DEV_ID 01\n", "line 6: fewer device blocks than _DEV_ID lines\n"},
      {repeated(256, "_DEV_ID 01\n"), "line 256: fewer device blocks than _DEV_ID lines\n"},
      {repeated(257, "_DEV_ID 01\n"), "line 257: more than 256 devices\n"},
      {product + repeated(52, "'" + std::string(40, 'x') + "'\n"), "line 57" + many},
      {common + repeated(33, eight), "line 37" + many},
  };
  for (const auto& [text, reason] : cases) {
    EXPECT_EQ(updated(text),
              "1 reading file......\n" + reason + "Cannot read file " + path_of("new.fru") + "\n");
  }
  EXPECT_EQ(outcome("--fru", "/no/f").first, "1 reading file......\nCannot read file /no/f\n");
}

TEST(FruFaults, what_does_not_fit_is_not_written_and_a_refused_write_is_the_last) {
  // A product area with a last field of so many characters: 35 make it 254 units long.
  const auto product = [](size_t length) {
    return "_SEE_PRODUCT\n01 01 00 C0 C0 C0 C0 C0 C0 C0\n" +
           repeated(31, "FF '" + std::string(63, 'x') + "'\n") +
           sim::hex_text({static_cast<uint8_t>(0xC0 | length)}) + "'" + std::string(length, 'y') +
           "' C1\n";
  };
  const std::string record = "_SEE_MULTIREC\n01 80 00 00 00\n";  // begins in unit 255 at most
  const std::string two = BLOCK + "_SEE_COMMON\n_FRU_TITLE 'two'\n_DEV_ID 01\n";
  serve({}, 4096);
  EXPECT_TRUE(updated(BLOCK + product(35) + record).starts_with(UPDATED));
  for (const std::string& text :
       {BLOCK + product(36) + record, BLOCK + product(44), two + product(44)})
    EXPECT_EQ(updated(text), NOT_UPDATED);
  serve({}, 91);
  EXPECT_EQ(updated(DUMP), NOT_UPDATED + "28 10 00\n");
  sim::machine().bmc.fru.devices.clear();
  EXPECT_EQ(updated(DUMP), NOT_UPDATED + "28 10 00\n");
  // A write that is refused is the last one.
  serve({}, 92).protected_from = 0x28;
  const std::string sent = updated(DUMP);
  EXPECT_EQ(sent.find('\n', sent.find("28 12 00 20 00 ")), sent.size() - 1) << sent;
}

}  // namespace

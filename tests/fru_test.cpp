// FRU: requests on the wire, the text form, and images there and back.
#include "fru/fru.h"

#include "tests/fru_support.h"

namespace {

const char NO_MULTIRECORD_AREAS[] =
    "\n_SEE_CHASSIS\n   01\n   00\n   00\n   C0\n   C0\n   C1\n   00\n"
    "\n_SEE_BOARD\n   01\n   00\n   00\n   00 00 00\n   C0\n   C0\n   C0\n   C0\n   C0\n   C1\n"
    "   00\n"
    "\n_SEE_PRODUCT\n   01\n   00\n   00\n   C0\n   C0\n   C0\n   C0\n   C0\n   C0\n   C0\n   C1\n"
    "   00\n";

// Every kind of field and record. `type` as for `area`.
Bytes full_image(int type) {
  const std::string longest(63, 'z');
  Bytes records = multirecord(0x02, 0x02, Bytes(11, 0x5A));  // 16 bytes with its header
  for (const Bytes& record : {multirecord(0x01, 0x02, {}), multirecord(0xC0, 0x82, Bytes(255, 7))})
    records.insert(records.end(), record.begin(), record.end());
  return image_of({
      area({0x17}, {"", "CS", "custom 1", "", longest}, type),
      area({0x19, 1, 2, 3}, {"\x81\xFE\x7F", longest, "", "P\t1", "id"}, type),
      area({0x19}, {"Maker", "Server", "", "1.0", longest, "", "id", "xy"}, type),
      records,
  });
}

TEST(Fru, DumpReadsEachAreaBySixteenBytesAndWritesTheText) {
  serve_exactly(sim::example_fru_image());
  const std::string path = path_of("dump.fru");
  const RunResult result = run({"--wfru", path});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(content_of(path), EXAMPLE);
  EXPECT_EQ(after(result.out, "Dump FRU to file"),
            "Dump FRU to file " + path + "\nDump FRU to File " + path +
                "\nreading FRU......\nwriting file......ok\n");
  EXPECT_EQ(fru_requests(result.traffic),
            "10 00; 11 00 00 00 08; 11 00 08 00 10; 11 00 08 00 10; "
            "11 00 18 00 10; 11 00 18 00 10; 11 00 28 00 10; 11 00 38 00 08; "
            "11 00 40 00 10; 11 00 40 00 10; 11 00 50 00 10; 11 00 60 00 08; "
            "11 00 68 00 10; 11 00 68 00 08");
}

TEST(Fru, UpdateWritesTheImageOfTheTextBySixteenBytes) {
  serve_image(Bytes(256, 0xEE), 256);
  const RunResult result = update_with(EXAMPLE);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(after(result.out, "reading"),
            "reading file......\nwriting FRU......\nUpdate successfully\n");
  EXPECT_EQ(contents(0, 112), sim::example_fru_image());
  EXPECT_EQ(store().devices[0].contents[112], 0xEE);
  const std::string requests = fru_requests(result.traffic);
  EXPECT_EQ(requests.substr(0, 65),
            "10 00; 12 00 00 00 01 00 01 03 08 0D 00 E6 01 02 17 C4 43 50 2D 3");
  EXPECT_EQ(after(requests, "12 00 60"),
            "12 00 60 00 C1 00 00 00 00 00 00 23 C0 82 03 A0 1B 10 20 30");
}

TEST(Fru, EveryAreaFieldAndRecordSurvivesDumpAndUpdate) {
  for (const int type : {0, 1, 2, 3}) {
    serve_image(full_image(type), 1024);
    const std::string path = path_of("round.fru");
    ASSERT_EQ(run({"--wfru", path}).status, 0) << type;
    serve_image({}, 1024);
    ASSERT_EQ(run({"--fru", path}).status, 0) << type;
    const Bytes expected = full_image(-1);
    EXPECT_EQ(contents(0, expected.size()), expected) << type;
  }
}

TEST(Fru, AnAreaOfTheGreatestLengthIsReadAndWritten) {
  std::vector<std::string> fields(7);
  fields.resize(7 + 31, std::string(63, 'x'));
  fields.emplace_back(43, 'y');  // no byte is left for padding
  const Bytes image = image_of({{}, {}, area({0}, fields)});
  ASSERT_EQ(image.size(), 8U + 255 * 8);
  serve_exactly(image);
  Bytes built;
  EXPECT_EQ(read_device(&built), 1);
  EXPECT_EQ(built, image);
}

TEST(Fru, RecordOfWholeChunksEndsWithAReadOfNothing) {
  serve_image(image_of({{}, {}, {}, multirecord(0xC0, 0x82, Bytes(11, 1))}), 64);
  EXPECT_EQ(fru_requests(run({"--wfru", path_of("dump.fru")}).traffic),
            "10 00; 11 00 00 00 08; 11 00 08 00 10; 11 00 08 00 10; 11 00 18 00 00");
}

TEST(Fru, ADeviceWithoutAreasOrWithInternalUseOnlyIsDumped) {
  serve_image({}, 64);
  const std::string path = path_of("dump.fru");
  EXPECT_EQ(run({"--wfru", path}).status, 0);
  EXPECT_EQ(after(content_of(path), "\n_SEE_INTERNAL"),
            std::string("\n_SEE_INTERNAL\n   01\n") + NO_MULTIRECORD_AREAS);
  serve_image({0xF1, 1, 0, 0, 0, 0, 0, 0x0E, 1, 2, 3}, 64);
  EXPECT_EQ(run({"--wfru", path}).status, 0);
  EXPECT_EQ(after(content_of(path), "\n_SEE_COMMON").substr(0, 26),
            "\n_SEE_COMMON\n   01\n   01\n ");
  EXPECT_EQ(after(content_of(path), "\n_SEE_INTERNAL"),
            std::string("\n_SEE_INTERNAL\n   00\n") + NO_MULTIRECORD_AREAS);
}

TEST(Fru, TheSampleFileIsWrittenAsItStands) {
  serve_image({}, 1024);
  EXPECT_EQ(run({"--fru", "data/sample.fru"}).status, 0);
  const std::string path = path_of("sample.fru");
  EXPECT_EQ(run({"--wfru", path}).status, 0);
  const std::string text = content_of(path);
  for (const char* field : {"'Rack 7'", "'BRD00042'", "'ASSET-123'", "   10 20 30 40"}) {
    EXPECT_NE(text.find(field), std::string::npos) << field;
  }
}

TEST(Fru, ADeviceThatHidesFromTheProbeIsReadAllTheSame) {
  serve_exactly(sim::example_fru_image());
  sim::Fault hidden;
  hidden.netfn = 0x0A;
  hidden.command = 0x10;
  hidden.value = 0xC1;
  sim::machine().bmc.faults = {hidden};
  EXPECT_EQ(run({"--wfru", path_of("dump.fru")}).status, 0);
  EXPECT_EQ(content_of(path_of("dump.fru")), EXAMPLE);
}

TEST(Fru, EachBlockIsWrittenToItsOwnDevice) {
  serve_image({}, 64);
  store().devices[7] = sim::fru_device({}, 64);
  const std::string two =
      "_fru_title 'replaced'\n_FRU_TITLE 'one'\n_data_len 01 02 00 03\n_dev_id 07\n_BUS_ID 0A\n"
      "_ACCESS_LUN 3\nnothing\n_see_common // the pad is kept\n 01 FF FF FF FF FF 5A FF\n"
      "_SEE_BOARD\n01 00\n_SEE_COMMON\n09\n"  // too late: bytes of an absent area
      "_FRU_TITLE 'two'\n_DEV_ID 00\n_SEE_COMMON\n 02 00 00 00 00 00 00 00";
  fru_dev dev;
  ASSERT_EQ(FileToFru(file_with("two.fru", two).c_str(), &dev), 1);
  ASSERT_EQ(fru_count(dev), 2U);
  EXPECT_STREQ(dev.records[0].title.get(), "one");
  EXPECT_STREQ(dev.records[1].title.get(), "two");
  EXPECT_EQ(dev.records[0].data_len, 0x0102);
  EXPECT_EQ(dev.records[0].bus_id, 0x0A);
  EXPECT_EQ(dev.records[0].access_lun, 3);
  EXPECT_EQ(destroy_fru_dev(&dev), 1);
  EXPECT_EQ(destroy_fru_dev(&dev), 1);
  EXPECT_EQ(fru_requests(run({"--fru", path_of("two.fru")}).traffic),
            "10 07; 12 07 00 00 01 00 00 00 00 00 5A A5; "
            "10 00; 12 00 00 00 02 00 00 00 00 00 00 FE");
}

// The image that one section of a block gives.
Bytes image_from(const std::string& section) {
  fru_dev dev;
  EXPECT_EQ(FileToFru(file_with("one.fru", block(section)).c_str(), &dev), 1) << section;
  uint8_t image[FRU_IMAGE_ROOM];
  unsigned length = 0;
  EXPECT_EQ(build_fru_image(&dev.records[0], image, &length), 1) << section;
  const Bytes first(image, image + length);
  EXPECT_EQ(build_fru_image(&dev.records[0], image, &length), 1);
  EXPECT_EQ(Bytes(image, image + length), first);  // building changes the model, not the image
  destroy_fru_dev(&dev);
  return first;
}

TEST(Fru, LengthsPaddingOffsetsAndEndBitsComeOutRight) {
  const Bytes empty_board = area({0x19, 0, 0, 0}, {"", "", "", "", ""});
  const struct {
    const char* section;
    Bytes image;
  } cases[] = {
      {"", {1, 0, 0, 0, 0, 0, 0, 0xFF}},
      {"_SEE_INTERNAL\n05\n", {1, 0, 0, 0, 0, 0, 0, 0xFF}},
      {"_SEE_INTERNAL\n05 AA", {1, 1, 0, 0, 0, 0, 0, 0xFE, 5, 0xAA, 0, 0, 0, 0, 0, 0}},
      {"_SEE_INTERNAL\n05 'seven77'",
       {1, 1, 0, 0, 0, 0, 0, 0xFE, 5, 's', 'e', 'v', 'e', 'n', '7', '7'}},
      {"_SEE_INTERNAL\n05 'eight888'",
       {1, 1, 0, 0, 0, 0, 0, 0xFE, 5, 'e', 'i', 'g', 'h', 't', '8', '8', '8', 0, 0, 0, 0, 0, 0, 0}},
      {"_SEE_CHASSIS\n0F 7F 17 02 'AB' C1 'X' C1", image_of({area({0x17}, {"AB", "X"})})},
      {"_SEE_CHASSIS\n01 7F 17 C0 C0 C1 'X' C1", image_of({area({0x17}, {"", ""})})},
      {"_SEE_CHASSIS\n01 00 17 anything", {1, 0, 0, 0, 0, 0, 0, 0xFF}},
      {"_SEE_BOARD\n01 01 19 000000 C0C0C0C0C0 C1", image_of({{}, empty_board})},
      {"_SEE_BOARD\n01 02 19 000000 C0C0C0C0C0 C1", image_of({{}, empty_board})},
      {"_SEE_PRODUCT\n01 7F 00 C2 'AB' C0C0C0C0C0C0 C0 C1",
       image_of({{}, {}, area({0}, {"AB", "", "", "", "", "", "", ""})})},
      {"_SEE_MULTIREC\n00 82 00 00 00", {1, 0, 0, 0, 0, 0, 0, 0xFF}},
      {"_SEE_MULTIREC\nC0 72 01 00 00 11  C1 F3 00 00 00  C2 80",
       {1, 0, 0, 0, 0, 1, 0, 0xFE, 0xC0, 2, 1, 0xEF, 0x4E, 0x11, 0xC1, 0x83, 0, 0, 0xBC}},
  };
  for (const auto& one : cases) EXPECT_EQ(image_from(one.section), one.image) << one.section;
  const Bytes kept = image_from("_SEE_BOARD\n01 05 19 000000 C0C0C0C0C0 C1");
  EXPECT_EQ(kept.size(), 8U + 40U);
  EXPECT_EQ(kept[9], 5);
}

}  // namespace

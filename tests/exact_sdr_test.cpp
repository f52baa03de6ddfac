// Sensor records in their exact form: what it looks like, and that it loses nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "base/notice.h"
#include "sdr/sdr.h"
#include "tests/harness.h"
#include "textfile/quoted.h"

namespace {

using sim::Bytes;

sim::SdrStore& sdr() {
  return sim::machine().bmc.sdr;
}

// The repository holds one record of this type.
void hold(uint8_t type, const Bytes& body) {
  Bytes record = {1, 0, 0x51, type, static_cast<uint8_t>(body.size())};
  record.insert(record.end(), body.begin(), body.end());
  sdr().records = {{1, record}};
}

// A management controller's record whose ID string has this type and length and these bytes.
void hold_name(uint8_t type_and_length, const std::string& name) {
  Bytes body(10);
  body.push_back(type_and_length);
  body.insert(body.end(), name.begin(), name.end());
  hold(0x12, body);
}

// The exact dump of what is held.
std::string dumped() {
  run("--exact --sdrdump " + path_of("d"));
  return content_of(path_of("d"));
}

TEST(Exact_dump, spells_every_byte_of_an_id_string_and_after_it) {
  const auto named = [](const std::string& text) {
    return "   " + text + std::string(37 - text.size(), ' ') + "// Sensor ID String\n";
  };
  const std::tuple<uint8_t, std::string, std::string> cases[] = {
      {0xC6, "Fan #1", named("'Fan '23'1'")},
      {0xC8, "Bob's //", named("'Bob'27's '2F2F")},
      {0xC3, "a/b", named("'a/b'")},
      {0x82, "\xFF\n", named("FF0A")},
      {0xC2, " xyz", named("' x'") + "   79\n   7A\n"},
      {0xC0, "y", "   79\n"},
      {0xDF, "short", named("'short'")},
      {0xC0, "", ""}};
  for (const auto& [type_and_length, name, lines] : cases) {
    hold_name(type_and_length, name);
    const std::string length = "   00\n   " + sim::hex_text({type_and_length}) + "\n";
    EXPECT_TRUE(dumped().ends_with(length + lines + "\n\n)\n")) << dumped();
  }
}

TEST(Exact_dump, gives_the_length_of_a_long_record_in_two_bytes) {
  for (const auto& [size, length] : {std::pair(250, "FF\n"), {251, "0100\n"}, {255, "0104\n"}}) {
    hold(0xC0, Bytes(size));
    EXPECT_NE(dumped().find(std::string("_REC_LEN     ") + length), std::string::npos);
  }
}

TEST(Exact_dump, is_text_under_a_name_for_binary_files_and_has_nothing_to_tell) {
  hold_name(0xC1, "#.");
  sdr().records[2] = Bytes(5 + 255, 0xAB);
  std::ranges::copy(Bytes{2, 0, 0x51, 0xC0, 255}, sdr().records[2].begin());
  const sim::SdrRecords before = sdr().records;
  EXPECT_EQ(run("--strict --exact --sdrdump " + path_of("d.dat")).told(), "0");
  sdr().records.clear();
  EXPECT_EQ(run("--strict --exact --nrst --sdr " + path_of("d.dat")).told(), "0");
  EXPECT_EQ(sdr().records, before);
}

// The offset of a part is one byte.
TEST(Long_record, takes_all_that_is_left_along_in_the_part_at_the_last_offset) {
  for (const size_t size : {251, 255}) {
    hold(0xC0, Bytes(size, 0xAB));
    dumped();
    const std::string last = "\n28 25 03 00 01 00 F0 01" + repeated(size - 235, " AB");
    EXPECT_TRUE(run("--nrst --sdr " + path_of("d")).sent.ends_with(last + "\nsleep 1000000\n"));
  }
}

// What a dump of what is held tells; the file is the same with --strict.
void expect_dump_tells(const std::string& name, const std::string& lines) {
  const std::string dump = "--sdrdump " + path_of(name);
  run(dump);
  const std::string text = content_of(path_of(name));
  expect_told({.line = dump, .tells = lines, .to_people = true});
  EXPECT_EQ(content_of(path_of(name)), text);
}

// Which ones these are is seen with the generated ones below.
TEST(Plain_dump, tells_which_records_do_not_read_back) {
  const std::string name = ": the name does not read back; use --exact\n";
  const std::string rest = ": the bytes after the name are not dumped; use --exact\n";
  const std::tuple<uint8_t, std::string, std::string> cases[] = {
      {0xC6, "Fan #1", "SDR 0001" + name},
      {0xCE, "\n_SDR_TYPE\n_RE", "SDR 0001" + name},
      {0xC2, "ab.", "SDR 0001" + rest},
      {0xC1, "#.", "SDR 0001" + name + "SDR 0001" + rest},
      {0xC2, std::string("ab\0", 3), ""},  // it comes back
      {0xDF, "/a\xFF ", ""}};
  for (const auto& [type_and_length, text, lines] : cases) {
    SCOPED_TRACE(text);
    hold_name(type_and_length, text);
    expect_dump_tells("d", lines);
  }
}

TEST(Plain_dump, tells_eight_records_of_a_kind_and_counts_the_others) {
  hold_name(0xC1, "#");
  for (uint16_t id = 0x10; id < 0x1A; id++) {
    sdr().records[id] = sdr().records[1];
    sdr().records[id][0] = static_cast<uint8_t>(id);
  }
  expect_dump_tells("d",
                    "SDR 0001, 0010, 0011, 0012, 0013, 0014, 0015, 0016 and 3 more: the name does "
                    "not read back; use --exact");
}

TEST(Plain_dump, tells_of_a_record_and_of_a_name_that_the_reader_does_not_take) {
  hold(0xC0, Bytes(250));
  expect_dump_tells("d", "");
  expect_dump_tells("d.DAT", path_of("d.DAT") + ": under this name it is read as binary");
  hold(0xC0, Bytes(251));
  expect_dump_tells("d",
                    "SDR 0001: a record of more than 255 bytes does not read back; use --exact");
}

// A record of any type, length and content; often a name with what means something in a text.
Bytes any_record(uint8_t id, std::mt19937& random) {
  const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
  const auto any = static_cast<uint8_t>(random());
  const std::pair<uint8_t, size_t> kinds[] = {{0x01, 43}, {0x02, 27}, {0x03, 12},
                                              {0x10, 11}, {0x11, 11}, {0x12, 11},
                                              {0x14, 0},  {0xC0, 0},  {any, 0}};
  const std::string letters("Fan 1''##///\\\"\0\n\r\t_)AFz\xFF", 24);
  const auto [type, fixed] = kinds[below(9)];
  const size_t lengths[] = {below(256), 245 + below(11), fixed, fixed + below(32), below(64)};
  Bytes body(lengths[below(5)]);
  const size_t content = below(3);  // any bytes, letters, zeros at the end
  for (uint8_t& byte : body)
    byte = static_cast<uint8_t>(content == 0 ? random() : letters[below(24)]);
  const size_t zeros = content == 2 ? below(body.size() + 1) : 0;
  std::ranges::fill(std::span(body).last(zeros), 0);
  // The name ends with the record, or anywhere.
  if (fixed > 0 && body.size() > fixed && below(2) == 0) {
    const size_t length = std::min(body.size() - fixed, size_t{31});
    body[fixed - 1] = static_cast<uint8_t>(below(8) << 5 | length);
  }
  Bytes record = {id, 0, any, type, static_cast<uint8_t>(body.size())};
  record.insert(record.end(), body.begin(), body.end());
  return record;
}

// Writes the file to a BMC without records: in this process, over the kernel's device.
bool restore(const std::string& file) {
  sdr().records.clear();
  sdr_repository repository{};
  const bool written = FileToSdr(file.c_str(), &repository) == 1 && Write_Sdr(&repository) == 1;
  freespace(&repository);
  return written;
}

// Dumps what the BMC holds; whether a loss was told.
bool dump_tells(const std::string& file) {
  sdr_repository repository{};
  testing::internal::CaptureStderr();
  EXPECT_EQ(init_sdr(&repository), 1);
  EXPECT_EQ(SdrToFile(file.c_str(), &repository), 1);
  freespace(&repository);
  return !testing::internal::GetCapturedStderr().empty();
}

TEST(Repositories, of_any_content_come_back_and_a_plain_dump_tells_when_they_do_not) {
  const std::string file = memory_file();
  std::filesystem::current_path("data");  // with its util.dat
  strictFlag = 1;
  unsigned lost = 0;
  for (unsigned seed = 1; seed <= generated() && !HasFailure(); seed++) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    sim::reset(sim::Kind::card);
    open_kernel_device();
    sdr().partial_add = random() % 2 == 0;
    sdr().records.clear();
    for (uint8_t id = 1, last = 1 + random() % 8; id <= last; id++) {
      sdr().records[id] = any_record(id, random);
    }
    const sim::SdrRecords before = sdr().records;
    exactFlag = 1;
    EXPECT_FALSE(dump_tells(file));
    // An exact file is for every reader.
    for (exactFlag = 1; exactFlag >= 0; exactFlag--) {
      EXPECT_TRUE(restore(file));
      EXPECT_EQ(sdr().records, before);
    }
    exactFlag = 0;
    const bool told = dump_tells(file);
    console_of([&] { restore(file); });
    EXPECT_EQ(sdr().records != before, told);
    lost += told ? 1 : 0;
  }
  EXPECT_GT(lost, generated() / 4);
  EXPECT_LT(lost, generated());
}

}  // namespace

// Sensor records in their exact form: what it looks like, and that it loses nothing.
#include <gtest/gtest.h>

#include "tests/harness.h"

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

TEST(Exact_dump, is_written_back_whatever_its_name_and_length) {
  for (const char* name : {"d", "d.dat"}) {
    for (size_t size = 250; size <= 255; size++) {
      hold(0xC0, Bytes(size, 0xAB));
      const sim::SdrRecords before = sdr().records;
      run("--exact --sdrdump " + path_of(name));
      const RunResult written = run("--exact --strict --nrst --sdr " + path_of(name));
      EXPECT_EQ(sdr().records, before) << name << size << written.err << written.said;
    }
  }
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

}  // namespace

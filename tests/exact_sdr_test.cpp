// Sensor records in their exact form: what it looks like, and that it loses nothing.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <filesystem>
#include <random>

#include "base/notice.h"
#include "platform/platform.h"
#include "sdr/sdr.h"
#include "tests/harness.h"
#include "textfile/quoted.h"
#include "transport/transaction.h"

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

// Puts the record that is held there once more for each of these IDs.
void repeat_record(uint16_t count) {
  const Bytes record = sdr().records.begin()->second;
  for (uint16_t id = 0x10; id < 0x10 + count; id++) {
    Bytes& copy = sdr().records[id] = record;
    copy[0] = static_cast<uint8_t>(id);
  }
}

// A script is told nothing and ends with 0; with --strict the same lines as a person's, and 2.
void expect_told(const std::string& name, const std::string& lines) {
  const std::string dump = "--sdrdump " + path_of(name);
  const RunResult script = run(dump);
  EXPECT_EQ(script.err + std::to_string(script.status), "0");
  const std::string text = content_of(path_of(name));
  const RunResult strict = run("--strict " + dump);
  EXPECT_EQ(strict.err + std::to_string(strict.status), lines + (lines.empty() ? "0" : "2"));
  EXPECT_EQ(content_of(path_of(name)), text);
  EXPECT_EQ(strict.out + strict.traffic, script.out + script.traffic);
  EXPECT_TRUE(run(dump, {.terminals = "2"}).terminal.ends_with(lines));
}

TEST(Plain_dump, tells_which_records_do_not_read_back) {
  const std::string name = ": the name does not read back; use --exact\n";
  const std::string rest = ": the bytes after the name are not dumped; use --exact\n";
  const std::string zero(1, '\0');
  const std::tuple<uint8_t, std::string, std::string> cases[] = {
      {0xC6, "Fan #1", "SDR 0001" + name},
      {0xC3, "a'b", "SDR 0001" + name},
      {0xC3, "a//", "SDR 0001" + name},
      {0xC3, "a\nb", "SDR 0001" + name},
      {0xC3, "a" + zero + "b", "SDR 0001" + name},
      {0xCE, "\n_SDR_TYPE\n_RE", "SDR 0001" + name},
      {0xC2, "ab.", "SDR 0001" + rest},
      {0xC0, ".", "SDR 0001" + rest},
      {0xC1, "#.", "SDR 0001" + name + "qarn: SDR 0001" + rest},
      // These come back.
      {0xC2, "ab" + zero, ""},
      {0xDF, "/a\xFF ", ""},
      {0xC2, "a\n", ""}};
  for (const auto& [type_and_length, text, lines] : cases) {
    SCOPED_TRACE(text);
    hold_name(type_and_length, text);
    expect_told("d", lines.empty() ? "" : "qarn: " + lines);
  }
}

TEST(Plain_dump, tells_eight_records_of_a_kind_and_counts_the_others) {
  hold_name(0xC1, "#");
  repeat_record(10);
  expect_told("d",
              "qarn: SDR 0001, 0010, 0011, 0012, 0013, 0014, 0015, 0016 and 3 more: the name does "
              "not read back; use --exact\n");
}

TEST(Plain_dump, tells_of_a_record_and_of_a_name_that_the_reader_does_not_take) {
  hold(0xC0, Bytes(250));
  expect_told("d", "");
  expect_told("d.DAT", "qarn: " + path_of("d.DAT") + ": under this name it is read as binary\n");
  hold(0xC0, Bytes(251));
  expect_told("d",
              "qarn: SDR 0001: a record of more than 255 bytes does not read back; use --exact\n");
}

TEST(Exact_dump, has_nothing_to_tell) {
  hold_name(0xC1, "#.");
  const RunResult strict = run("--strict --exact --sdrdump " + path_of("d.dat"));
  EXPECT_EQ(strict.err + std::to_string(strict.status), "0");
}

// A record of any type, length and content; often a name with what means something in a text.
Bytes any_record(std::mt19937& random) {
  const auto below = [&](size_t limit) { return static_cast<size_t>(random() % limit); };
  const uint8_t types[] = {0x01, 0x02, 0x03, 0x10, 0x11, 0x12, 0x14, 0xC0};
  const size_t fixed_sizes[] = {43, 27, 12, 11, 11, 11, 0, 0};
  const std::string letters("Fan 1''##///\\\"\0\n\r\t_)AFz\xFF", 24);
  const size_t kind = below(9);
  const size_t fixed = kind < 8 ? fixed_sizes[kind] : 0;
  const size_t lengths[] = {below(256), 245 + below(11), fixed, fixed + below(32), below(64)};
  const size_t content = below(3);  // any bytes, letters, zeros at the end
  Bytes record(5 + lengths[below(5)]);
  for (size_t i = 5; i < record.size(); i++) {
    record[i] = static_cast<uint8_t>(content == 0 ? below(256) : letters[below(24)]);
  }
  if (content == 2)
    std::fill(record.end() - static_cast<std::ptrdiff_t>(below(record.size() - 4)), record.end(),
              0);
  record[2] = static_cast<uint8_t>(below(256));
  record[3] = static_cast<uint8_t>(kind < 8 ? types[kind] : below(256));
  record[4] = static_cast<uint8_t>(record.size() - 5);
  // The name ends with the record, or anywhere.
  if (fixed > 0 && record.size() > 5 + fixed && below(2) == 0) {
    record[4 + fixed] =
        static_cast<uint8_t>(below(8) << 5 | std::min(record.size() - 5 - fixed, size_t{31}));
  }
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

struct Repositories : testing::Test {
  Repositories() {
    std::filesystem::current_path("data");  // with its util.dat
    strictFlag = 1;
    openIpmiFlag = 1;
  }
  ~Repositories() override {
    std::filesystem::current_path("..");
    strictFlag = exactFlag = openIpmiFlag = 0;
  }
};

TEST_F(Repositories, of_any_content_come_back_and_a_plain_dump_tells_when_they_do_not) {
  // In memory, where no disk has to be waited for.
  const std::string file = "/proc/self/fd/" + std::to_string(memfd_create("dump", MFD_CLOEXEC));
  const unsigned count = std::getenv("QARN_TEST_ALL") != nullptr ? 10000 : 300;
  unsigned lost = 0;
  for (unsigned seed = 1; seed <= count && !HasFailure(); seed++) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    sim::reset(sim::Kind::card);
    driverHandle = platform::device_open("/dev/ipmi0");
    sdr().partial_add = random() % 2 == 0;
    sdr().records.clear();
    for (uint8_t id = 1, last = 1 + random() % 8; id <= last; id++) {
      sdr().records[id] = any_record(random);
      sdr().records[id][0] = id;
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
  EXPECT_GT(lost, count / 4);
  EXPECT_LT(lost, count);
}

}  // namespace

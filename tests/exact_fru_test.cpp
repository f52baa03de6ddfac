// Inventories that are dumped and written back with --exact: no byte of a device changes.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdlib>
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

}  // namespace

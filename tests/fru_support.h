// What the FRU tests share: a server with FRU devices, images built by hand, a worked example.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fru/fru.h"
#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/transaction.h"

using sim::Bytes;

// The text of sim::example_fru_image(), as a dump gives it.
inline constexpr char EXAMPLE[] =
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

inline sim::FruStore& store() {
  return sim::machine().bmc.fru;
}

// A fresh server whose FRU device 0 has `size` bytes and begins with `image`.
inline void serve_image(const Bytes& image, size_t size) {
  sim::reset(sim::Kind::plain);
  store().devices = {{uint8_t{0}, sim::fru_device(image, size)}};
}

inline void serve_exactly(const Bytes& image) {
  serve_image(image, image.size());
}

// The storage requests of a transcript, joined by "; ".
inline std::string fru_requests(const std::string& traffic) {
  std::string found;
  for (size_t at = 0; at < traffic.size();) {
    const size_t end = std::min(traffic.find('\n', at), traffic.size());
    if (traffic.compare(at, 3, "28 ") == 0) {
      found += (found.empty() ? "" : "; ") + traffic.substr(at + 3, end - at - 3);
    }
    at = end + 1;
  }
  return found;
}

inline std::string after(const std::string& text, const std::string& mark) {
  const size_t at = text.find(mark);
  return at == std::string::npos ? "(no \"" + mark + "\")" : text.substr(at);
}

inline RunResult update_with(const std::string& text) {
  return run({"--fru", file_with("update.fru", text)});
}

inline Bytes contents(uint8_t id, size_t count) {
  Bytes bytes = store().devices[id].contents;
  bytes.resize(count);
  return bytes;
}

inline uint8_t zero_sum(const Bytes& bytes, size_t from) {
  unsigned sum = 0;
  for (size_t i = from; i < bytes.size(); i++) sum += bytes[i];
  return static_cast<uint8_t>(0x100 - sum % 0x100);
}

// An area of our own: fixed bytes (format and length go before them), fields, end mark, zeros.
// `type` is the type code of the first field; each next field has the next code.
inline Bytes area(const Bytes& fixed, const std::vector<std::string>& fields, int type = -1) {
  Bytes bytes = {0x01, 0x00};
  bytes.insert(bytes.end(), fixed.begin(), fixed.end());
  for (const std::string& field : fields) {
    const unsigned code = type < 0 ? 3U : static_cast<unsigned>(type++ % 4);
    bytes.push_back(static_cast<uint8_t>(code << 6 | field.size()));
    bytes.insert(bytes.end(), field.begin(), field.end());
  }
  bytes.push_back(0xC1);
  while (bytes.size() % 8 != 7) bytes.push_back(0);
  bytes[1] = static_cast<uint8_t>((bytes.size() + 1) / 8);
  bytes.push_back(zero_sum(bytes, 0));
  return bytes;
}

inline Bytes multirecord(uint8_t type, uint8_t format, const Bytes& data) {
  Bytes bytes = {type, format, static_cast<uint8_t>(data.size()), zero_sum(data, 0)};
  bytes.push_back(zero_sum(bytes, 0));
  bytes.insert(bytes.end(), data.begin(), data.end());
  return bytes;
}

// Chassis, board, product, multi-record: an empty one is absent.
inline Bytes image_of(const std::vector<Bytes>& areas) {
  Bytes image = {0x01, 0, 0, 0, 0, 0, 0, 0};
  for (size_t i = 0; i < areas.size(); i++) {
    if (!areas[i].empty()) image[2 + i] = static_cast<uint8_t>(image.size() / 8);
    image.insert(image.end(), areas[i].begin(), areas[i].end());
  }
  const Bytes header(image.begin(), image.begin() + 7);
  image[7] = zero_sum(header, 0);
  return image;
}

// A block whose sections are the text.
inline std::string block(const std::string& sections) {
  return "_FRU\n_FRU_TITLE 'x'\n_DEV_ID 00\n" + sections;
}

// Reads the device in this process, by the kernel's device; the result and what was read, as an
// image.
inline int read_device(Bytes* image) {
  openIpmiFlag = 1;
  driverHandle = platform::device_open("/dev/ipmi0");
  fru_dev dev;
  init_fru_dev(&dev);
  const int result = get_fru_dev(&dev);
  uint8_t built[FRU_IMAGE_ROOM];
  unsigned length = 0;
  if (result == 1 && build_fru_image(&dev.records[0], built, &length) == 1) {
    image->assign(built, built + length);
  }
  destroy_fru_dev(&dev);
  platform::device_close(driverHandle);
  return result;
}

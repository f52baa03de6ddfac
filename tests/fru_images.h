// Inventory images for tests, built from fields, records and areas.
#pragma once
#include <numeric>
#include <string>
#include <vector>

#include "sim/types.h"

inline sim::Bytes chained(const std::vector<sim::Bytes>& parts) {
  sim::Bytes bytes;
  for (const sim::Bytes& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

// The byte that makes the sum of the bytes and itself 0.
inline uint8_t zero_sum(const sim::Bytes& bytes) {
  return static_cast<uint8_t>(0U - std::accumulate(bytes.begin(), bytes.end(), 0U));
}

// A common header: offsets in units of 8 bytes, 0 = no such area. The checksum follows.
struct Header {
  uint8_t format = 1;
  uint8_t internal = 0;
  uint8_t chassis = 0;
  uint8_t board = 0;
  uint8_t product = 0;
  uint8_t records = 0;
  uint8_t pad = 0;
};

inline sim::Bytes header_of(const Header& header) {
  const sim::Bytes bytes = {header.format,  header.internal, header.chassis, header.board,
                            header.product, header.records,  header.pad};
  return chained({bytes, {zero_sum(bytes)}});
}

struct AreaForm {
  int type = -1;     // type code of the first field, each next field has the next; -1: all 3, text
  size_t units = 0;  // the least length, in units of 8 bytes
};

// The bytes of an area from its format on; the length, zeros and the checksum are put in.
inline sim::Bytes closed_area(sim::Bytes bytes, size_t units = 0) {
  while (bytes.size() % 8 != 7 || bytes.size() + 1 < units * 8) bytes.push_back(0);
  bytes[1] = static_cast<uint8_t>((bytes.size() + 1) / 8);
  bytes.push_back(zero_sum(bytes));
  return bytes;
}

// An area: fixed bytes (format and length go before them), fields, end mark.
inline sim::Bytes area(const sim::Bytes& fixed, const std::vector<std::string>& fields,
                       AreaForm form = {}) {
  sim::Bytes bytes = chained({{1, 0}, fixed});
  for (const std::string& field : fields) {
    const unsigned code = form.type < 0 ? 3U : static_cast<unsigned>(form.type++ % 4);
    bytes.push_back(static_cast<uint8_t>(code << 6 | field.size()));
    bytes.insert(bytes.end(), field.begin(), field.end());
  }
  bytes.push_back(0xC1);
  return closed_area(bytes, form.units);
}

// A multi-record; bit 7 of `format` says that it is the last.
inline sim::Bytes multirecord(uint8_t type, uint8_t format, const sim::Bytes& data) {
  const sim::Bytes header = {type, format, static_cast<uint8_t>(data.size()), zero_sum(data)};
  return chained({header, {zero_sum(header)}, data});
}

// A header, then chassis, board, product, multi-records: an empty one is absent.
inline sim::Bytes image_of(const std::vector<sim::Bytes>& areas) {
  Header header;
  uint8_t* const offsets[] = {&header.chassis, &header.board, &header.product, &header.records};
  size_t units = 1;
  for (size_t i = 0; i < areas.size(); i++) {
    if (!areas[i].empty()) *offsets[i] = static_cast<uint8_t>(units);
    units += areas[i].size() / 8;
  }
  return chained({header_of(header), chained(areas)});
}

inline sim::Bytes records_of(const std::vector<sim::Bytes>& records) {
  return image_of({{}, {}, {}, chained(records)});
}

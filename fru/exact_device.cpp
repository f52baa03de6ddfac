// Reads FRU devices byte by byte, and writes them part by part.
#include <algorithm>

#include "base/memory.h"
#include "base/notice.h"
#include "base/progress.h"
#include "fru/access.h"
#include "fru/exact.h"
#include "transport/completion.h"

namespace {

constexpr size_t LARGEST_DEVICE = 0x10000;
constexpr char PAST_END[] = "it goes on after the end of the device";

struct Device {
  fru_exact* fru;
  size_t size;
  std::span<uint8_t> image;  // room for the whole device
};

bool read_failed(const Device& device, const char* what, size_t offset, const char* reason) {
  hint_failed("inventory device %u, %s at %zu: %s", device.fru->id, what, offset, reason);
  return false;
}

bool sum_failed(const Device& device, const char* what, size_t offset, unsigned checksum) {
  hint_failed("inventory device %u, %s at %zu: its bytes sum up to %02X, not 00", device.fru->id,
              what, offset, 0xFF & -checksum);
  return false;
}

// Where the part after `offset` begins, or the device ends.
size_t next_start(const Device& device, size_t offset) {
  size_t next = device.size;
  for (unsigned part = 0; part < FRU_PARTS; part++) {
    const size_t start = device.fru->header[part + 1] * size_t{FRU_UNIT};
    if (start > offset) next = std::min(next, start);
  }
  return next;
}

// Why the bytes up to `end` were not read.
const char* read_fault(const Device& device, size_t end) {
  return device.size < end ? PAST_END : failure_text();
}

bool read_bytes_at(const Device& device, size_t offset, size_t length) {
  return offset + length <= device.size &&
         read_fru_bytes(device.fru->id, offset, device.image.subspan(offset, length));
}

// The length of an area, read with its checksum; 0 after a message.
size_t read_whole_area(const Device& device, unsigned part, size_t offset) {
  const char* name = part_name(part);
  if (!read_bytes_at(device, offset, FRU_AREA_LENGTH + 1)) {
    return read_failed(device, name, offset, read_fault(device, offset + FRU_AREA_LENGTH + 1));
  }
  const size_t length = device.image[offset + FRU_AREA_LENGTH] * size_t{FRU_UNIT};
  if (length == 0) return read_failed(device, name, offset, "its length is 0");
  if (!read_bytes_at(device, offset, length)) {
    return read_failed(device, name, offset, read_fault(device, offset + length));
  }
  const uint8_t checksum = GetChecksum(device.image.subspan(offset, length));
  return checksum == 0 ? length : sum_failed(device, name, offset, checksum);
}

// The length of the record at `at`; 0 after a message.
size_t read_whole_record(const Device& device, size_t at) {
  const char* name = part_name(RECORDS_PART);
  if (!read_bytes_at(device, at, FRU_RECORD_HEADER)) {
    return read_failed(device, name, at, read_fault(device, at + FRU_RECORD_HEADER));
  }
  const auto header = device.image.subspan(at, FRU_RECORD_HEADER);
  const uint8_t checksum = GetChecksum(header);
  if (checksum != 0) return sum_failed(device, name, at, checksum);
  const size_t data = at + FRU_RECORD_HEADER;
  const size_t length = header[FRU_RECORD_LENGTH];
  if (!read_bytes_at(device, data, length)) {
    return read_failed(device, name, at, read_fault(device, data + length));
  }
  const unsigned difference =
      header[FRU_RECORD_CHECKSUM] - GetChecksum(device.image.subspan(data, length));
  if ((difference & 0xFF) != 0) return sum_failed(device, name, data, 0U - difference);
  return FRU_RECORD_HEADER + length;
}

size_t read_all_records(const Device& device, size_t offset) {
  for (size_t at = offset;;) {
    const size_t length = read_whole_record(device, at);
    if (length == 0) return 0;
    const uint8_t format = device.image[at + FRU_RECORD_FORMAT];
    at += length;
    if ((format & FRU_LAST_RECORD) != 0) return at - offset;
  }
}

// The length of the part; 0 after a message.
size_t read_part(const Device& device, unsigned part, size_t offset) {
  if (part == RECORDS_PART) return read_all_records(device, offset);
  if (part != INTERNAL_PART) return read_whole_area(device, part, offset);
  const size_t length = next_start(device, offset) - std::min(device.size, offset);
  if (length > 0 && read_bytes_at(device, offset, length)) return length;
  return read_failed(device, part_name(part), offset, length == 0 ? PAST_END : failure_text());
}

// Two areas that share bytes could not be edited apart. False after a message.
bool areas_apart(const Device& device) {
  const fru_exact& fru = *device.fru;
  for (unsigned part = 0; part < FRU_PARTS; part++) {
    const size_t offset = fru.header[part + 1] * size_t{FRU_UNIT};
    const size_t end = offset + fru.parts[part].length;
    for (unsigned other = 0; offset != 0 && other < FRU_PARTS; other++) {
      const size_t start = fru.header[other + 1] * size_t{FRU_UNIT};
      const bool inside = other != part && start >= offset && start < end;
      if (inside) return read_failed(device, part_name(other), start, "another area has its bytes");
    }
  }
  return true;
}

bool read_device(const Device& device) {
  fru_exact* fru = device.fru;
  const bool read = read_bytes_at(device, 0, FRU_HEADER_SIZE);
  std::ranges::copy(device.image.first(FRU_HEADER_SIZE), fru->header);
  if (!read) return read_failed(device, "common header", 0, read_fault(device, FRU_HEADER_SIZE));
  const uint8_t checksum = GetChecksum(fru->header);
  if (checksum != 0) return sum_failed(device, "common header", 0, checksum);
  for (unsigned part = 0; part < FRU_PARTS; part++) {
    const size_t offset = fru->header[part + 1] * size_t{FRU_UNIT};
    if (offset == 0) continue;
    const size_t length = read_part(device, part, offset);
    if (length == 0) return false;
    progress("FRU", part + 1, FRU_PARTS);
    if (!set_part(&fru->parts[part], device.image.subspan(offset, length))) return false;
  }
  return areas_apart(device);
}

// A part with its place in the device.
struct Placed {
  unsigned part;
  size_t offset;
  size_t length;
};

// A part in its place, or the next place after `end`. False after a message.
bool place(const fru_exact& fru, Placed* placed, size_t end) {
  const size_t given = placed->offset;
  const size_t free = (end + FRU_UNIT - 1) / FRU_UNIT * FRU_UNIT;
  if (given >= end) return true;
  placed->offset = free;
  if (placed->length == 0 || free / FRU_UNIT > FRU_UNITS_LIMIT) {
    step_failed("inventory device %u: no place for the %s", fru.id, part_name(placed->part));
    return false;
  }
  if (given != 0) {
    remark("inventory device %u: the %s moves from %zu to %zu", fru.id, part_name(placed->part),
           given, free);
  } else {
    remark("inventory device %u: the %s is put at %zu", fru.id, part_name(placed->part), free);
  }
  return true;
}

// One whose place is not known comes last.
size_t order_of(const Placed& one) {
  return one.offset != 0 ? one.offset : LARGEST_DEVICE;
}

// Sets the offsets in the header. The parts in the order of their places; those that the header
// does not have come last, those without bytes stay as they are. False after a message.
bool place_parts(fru_exact* fru, size_t size) {
  if (!fru->has_header) fru->header[FRU_HEADER_FORMAT] = 1;
  Placed placed[FRU_PARTS];
  unsigned count = 0;
  for (unsigned part = 0; part < FRU_PARTS; part++) {
    if (fru->parts[part].absent) fru->header[part + 1] = 0;
    const size_t offset = fru->header[part + 1] * size_t{FRU_UNIT};
    if (offset == 0 && fru->parts[part].length == 0) continue;
    const Placed one = {part, offset, fru->parts[part].length};
    unsigned at = count++;
    for (; at > 0 && order_of(placed[at - 1]) > order_of(one); at--) placed[at] = placed[at - 1];
    placed[at] = one;
  }
  const auto used = std::span(placed).first(count);
  size_t end = FRU_HEADER_SIZE;
  for (size_t i = 0; i < used.size(); i++) {
    Placed& one = used[i];
    if (!place(*fru, &one, end)) return false;
    fru->header[one.part + 1] = static_cast<uint8_t>(one.offset / FRU_UNIT);
    // One without bytes stays in the device: it may reach up to the next.
    const size_t next = i + 1 < used.size() && used[i + 1].offset != 0 ? used[i + 1].offset : size;
    end = one.length > 0 ? one.offset + one.length : std::max(one.offset + 1, next);
    if (one.length > 0 && end > size) {
      step_failed("inventory device %u: the %s ends at %zu, the device at %zu", fru->id,
                  part_name(one.part), end, size);
      return false;
    }
  }
  const auto before = std::span<const uint8_t>(fru->header).first(FRU_HEADER_CHECKSUM);
  fru->header[FRU_HEADER_CHECKSUM] = GetChecksum(before);
  return true;
}

bool write_parts(const fru_exact& fru) {
  for (unsigned part = 0; part < FRU_PARTS; part++) {
    const size_t offset = fru.header[part + 1] * size_t{FRU_UNIT};
    if (!write_fru_bytes(fru.id, offset, bytes_of(fru.parts[part]))) return false;
  }
  return write_fru_bytes(fru.id, 0, fru.header);
}

}  // namespace

int read_fru_exact(fru_exact_dev* dev) {
  uint8_t ids[FRU_ID_LIST];
  uint32_t sizes[FRU_ID_LIST];
  // Device 0 is read even if it did not answer.
  dev->count = std::max(getFruDeviceInfo(ids, sizes, FRU_ID_LIST), 1U);
  dev->records = make_owned<fru_exact>(dev->count);
  const auto image = make_owned<uint8_t>(LARGEST_DEVICE);
  bool whole = dev->records != nullptr && image != nullptr;
  for (unsigned i = 0; whole && i < dev->count; i++) {
    fru_exact& fru = dev->records[i];
    fru.id = ids[i] != 0xFF ? ids[i] : 0;
    const size_t size = sizes[i] != 0 ? sizes[i] : LARGEST_DEVICE;
    whole = read_device({&fru, size, {image.get(), LARGEST_DEVICE}});
  }
  progress_end();
  return whole ? 1 : 0;
}

int write_fru_exact(fru_exact_dev* dev) {
  for (fru_exact& fru : records_of(*dev)) {
    uint32_t size = 0;
    if (!ask_fru_size(fru.id, &size) || !place_parts(&fru, size)) return 0;
  }
  bool written = true;
  for (const fru_exact& fru : records_of(*dev)) written = written && write_parts(fru);
  progress_end();
  return written ? 1 : 0;
}

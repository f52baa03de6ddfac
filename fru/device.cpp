// The BMC that holds a FRU device: reads it area after area, and writes its image.
#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "base/notice.h"
#include "base/progress.h"
#include "fru/access.h"
#include "fru/image.h"
#include "fru/losses.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

// The length of the area that the request points at; 0 when it has none.
unsigned probe_units(Read_request request, Response* response) {
  request[READ_COUNT] = FRU_CHUNK;
  const auto data = read_chunk(request, FRU_AREA_LENGTH + 1, response);
  return data.empty() ? 0U : data[FRU_AREA_LENGTH];
}

constexpr char RECORDS[] = "multi-record area";
constexpr char PAST_END[] = "it goes on after the end of the device";

// Says which area is at fault, and why. False.
bool area_failed(const fru_info& fru, const char* area, unsigned offset, const char* reason) {
  hint_failed("inventory device %u, %s at %u: %s", fru.dev_id, area, offset, reason);
  return false;
}

bool checksum_failed(const fru_info& fru, const char* area, unsigned offset,
                     std::span<const uint8_t> bytes) {
  hint_failed("inventory device %u, %s at %u: its bytes sum up to %02X, not 00", fru.dev_id, area,
              offset, 0xFF & -GetChecksum(bytes));
  return false;
}

// The bytes that the device has after `offset`, at most a chunk.
size_t left_in_chunk(const fru_info& fru, unsigned offset) {
  return fru.inventory_size > offset ? std::min(fru.inventory_size - offset, FRU_CHUNK) : FRU_CHUNK;
}

// Fills the buffer as ReadFRUData does. A device may refuse to be read past its end: then what it
// has is asked for.
bool read_into(const fru_info& fru, unsigned offset, std::span<uint8_t, FRU_AREA_ROOM> buffer) {
  uint8_t request[FRU_READ_REQUEST];
  build_read(request, fru.dev_id, offset, 0);
  if (ReadFRUData(request, buffer) >= 0) return true;
  uint8_t head[FRU_AREA_LENGTH + 1];
  if (left_in_chunk(fru, offset) == FRU_CHUNK || !read_fru_bytes(fru.dev_id, offset, head))
    return false;
  build_read(request, fru.dev_id, offset, head[FRU_AREA_LENGTH]);
  return head[FRU_AREA_LENGTH] != 0 && ReadFRUData(request, buffer) >= 0;
}

int read_area(fru_info* fru, const fru_layout& layout) {
  const unsigned offset = fru->common_header[layout.header_byte] * FRU_UNIT;
  if (offset == 0) return 1;
  uint8_t buffer[FRU_AREA_ROOM] = {};
  const char* const name = layout.name;
  if (!read_into(*fru, offset, buffer)) return area_failed(*fru, name, offset, failure_text());

  const auto room = std::span<const uint8_t>(buffer).subspan(FRU_READ_HEADER);
  const auto area = room.first(room[FRU_AREA_LENGTH] * FRU_UNIT);
  fru->*layout.length = room[FRU_AREA_LENGTH];
  if (area.empty()) return area_failed(*fru, name, offset, "its length is 0");
  if (GetChecksum(area) != 0) return checksum_failed(*fru, name, offset, area);
  if (parse_device_area(layout, area, fru) != 1) {
    return area_failed(*fru, name, offset, "its fields do not end within it");
  }
  if (warnings_wanted()) note_losses(layout, area, fru);
  return 1;
}

// Fills `record`, whose length is known. When it is a whole number of chunks, a last read asks for
// no bytes.
bool read_inventory_record(uint8_t id, size_t position, std::span<uint8_t> record) {
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  for (size_t stored = 0; stored <= record.size(); stored += FRU_CHUNK) {
    const size_t part = std::min<size_t>(record.size() - stored, FRU_CHUNK);
    build_read(request, id, position + stored, part);
    const auto data = read_chunk(request, part, &response);
    if (part == 0) break;
    if (data.empty()) return false;
    std::ranges::copy(data.first(part), record.subspan(stored).begin());
  }
  return true;
}

// Whether the record has the length that it says, and both checksums hold; false after a message.
bool record_sound(const fru_info& fru, unsigned position, std::span<const uint8_t> record) {
  const auto header = record.first(FRU_RECORD_HEADER);
  const auto body = record.subspan(FRU_RECORD_HEADER);
  if (GetChecksum(header) != 0) return checksum_failed(fru, RECORDS, position, header);
  if (body.size() != header[FRU_RECORD_LENGTH]) {
    return area_failed(fru, RECORDS, position, "its length is not what it was before");
  }
  if (header[FRU_RECORD_CHECKSUM] == GetChecksum(body)) return true;
  hint_failed("inventory device %u, %s at %u: the checksum of its bytes is %02X, not %02X",
              fru.dev_id, RECORDS, position, header[FRU_RECORD_CHECKSUM], GetChecksum(body));
  return false;
}

// The length of the record; 0 after a message.
unsigned probe_record(const fru_info& fru, unsigned size, unsigned position) {
  if (position + FRU_RECORD_HEADER > size) return area_failed(fru, RECORDS, position, PAST_END);
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  build_read(request, fru.dev_id, position, FRU_CHUNK);
  auto probed = read_chunk(request, FRU_RECORD_LENGTH + 1, &response);
  if (probed.empty() && size - position < FRU_CHUNK) {
    build_read(request, fru.dev_id, position, size - position);
    probed = read_chunk(request, FRU_RECORD_LENGTH + 1, &response);
  }
  if (probed.empty()) return area_failed(fru, RECORDS, position, failure_text());
  const unsigned length = FRU_RECORD_HEADER + probed[FRU_RECORD_LENGTH];
  return position + length <= size ? length : area_failed(fru, RECORDS, position, PAST_END);
}

// Reads the record at `*position`, and sets that to the next one. Null on a fault, after a message,
// or when the record does not lie in the first `size` bytes of the device.
std::unique_ptr<fru_multirecord> take_record(const fru_info& fru, unsigned size, unsigned* position,
                                             uint8_t* format) {
  const unsigned length = probe_record(fru, size, *position);
  if (length == 0) return nullptr;
  uint8_t room[FRU_RECORD_HEADER + FRU_RECORD_LIMIT] = {};
  const auto record = std::span<uint8_t>(room).first(length);
  if (!read_inventory_record(fru.dev_id, *position, record)) {
    area_failed(fru, RECORDS, *position, failure_text());
    return nullptr;
  }
  if (!record_sound(fru, *position, record)) return nullptr;
  *position += length;
  *format = record[FRU_RECORD_FORMAT];
  return make_multirecord(record);
}

}  // namespace

unsigned getFruDeviceInfo(uint8_t* ids, uint32_t* sizes, unsigned capacity) {
  if (capacity == 0) return 0;
  std::memset(ids, 0xFF, capacity);
  std::fill_n(sizes, capacity, 0U);
  if (!ask_size(0, 0, &sizes[0])) return 0;
  ids[0] = 0;
  return 1;
}

int get_fru_dev(fru_dev* dev) {
  if (dev == nullptr) return 0;
  uint8_t ids[FRU_ID_LIST];
  uint32_t sizes[FRU_ID_LIST];
  unsigned count = getFruDeviceInfo(ids, sizes, FRU_ID_LIST);
  // Device 0 is read even if it did not answer the probe.
  if (count < 1) {
    count = 1;
    ids[0] = 0;
  }
  dev->records = make_owned<fru_info>(count);
  if (!dev->records) return 0;
  dev->count = static_cast<int32_t>(count);
  int result = 1;
  for (unsigned i = 0; i < count; i++) {
    init_fru_info(&dev->records[i]);
    dev->records[i].dev_id = ids[i];
    dev->records[i].inventory_size = sizes[i];
    if (get_fru_info(&dev->records[i]) != 1) result = 0;
  }
  progress_end();
  return result;
}

int get_fru_info(fru_info* fru) {
  if (GetCommonHeader(fru) != 1) return 0;
  if (GetInternalInforArea(fru) != 1) return 0;
  if (GetChassisInforArea(fru) != 1) return 0;
  if (GetBoardInforArea(fru) != 1) return 0;
  if (GetProductInforArea(fru) != 1) return 0;
  return GetMultirecordInforArea(fru);
}

int GetCommonHeader(fru_info* fru) {
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  build_read(request, fru->dev_id, 0, FRU_HEADER_SIZE);
  const auto answer = ask(request, 1 + FRU_HEADER_SIZE, &response);
  if (answer.empty() || answer[0] != FRU_HEADER_SIZE) {
    return area_failed(*fru, "common header", 0, failure_text());
  }
  const auto header = answer.subspan(1, FRU_HEADER_SIZE);
  if (GetChecksum(header) != 0) return checksum_failed(*fru, "common header", 0, header);
  std::ranges::copy(header, fru->common_header);
  fru->lost_format_bits = header[FRU_HEADER_FORMAT] > FRU_FORMAT_MASK;
  fru->common_header[FRU_HEADER_FORMAT] &= FRU_FORMAT_MASK;
  return 1;
}

// The length of an internal use area is stored nowhere, so nothing says where its bytes end.
int GetInternalInforArea(fru_info* fru) {
  if (fru->common_header[FRU_HEADER_INTERNAL] == 0) return 1;
  fru->internal_format = 0;
  fru->internal_len = 0;
  return 1;
}

int GetChassisInforArea(fru_info* fru) {
  return read_area(fru, FRU_AREAS[CHASSIS_AREA]);
}

int GetBoardInforArea(fru_info* fru) {
  return read_area(fru, FRU_AREAS[BOARD_AREA]);
}

int GetProductInforArea(fru_info* fru) {
  return read_area(fru, FRU_AREAS[PRODUCT_AREA]);
}

int GetMultirecordInforArea(fru_info* fru) {
  fru->multirecord_count = 0;
  const unsigned offset = fru->common_header[FRU_HEADER_MULTIRECORD];
  if (offset == 0) return 1;
  const unsigned size = fru->inventory_size > 0 ? fru->inventory_size : FRU_ANY_SIZE;
  unsigned position = offset * FRU_UNIT;
  std::unique_ptr<fru_multirecord>* tail = &fru->multirecords;
  // Zeros look like records whose checksums are right: the size of the device ends the list.
  for (bool last = false; !last;) {
    progress("FRU", position, size);
    uint8_t format = 0;
    *tail = take_record(*fru, size, &position, &format);
    if (!*tail) return 0;
    last = (format & FRU_LAST_RECORD) != 0;
    if ((format & ~(FRU_LAST_RECORD | FRU_FORMAT_MASK)) != 0) fru->lost_format_bits = true;
    fru->multirecord_count++;
    tail = &(*tail)->next;
  }
  return 1;
}

int ReadFRUData(std::span<const uint8_t, FRU_READ_REQUEST> request,
                std::span<uint8_t, FRU_AREA_ROOM> output) {
  uint8_t read[FRU_READ_REQUEST];
  std::ranges::copy(request, read);
  Response response;
  const bool whole = read[READ_COUNT] == 0;
  const unsigned units = whole ? probe_units(read, &response) : read[READ_COUNT];
  if (units == 0) return -1;

  const unsigned start = static_cast<unsigned>(read[READ_OFFSET] | read[READ_OFFSET + 1] << 8);
  const auto area = output.subspan(FRU_READ_HEADER, units * FRU_UNIT);
  int reported = 0;
  for (size_t stored = 0; stored < area.size(); stored += FRU_CHUNK) {
    const size_t part = std::min<size_t>(area.size() - stored, FRU_CHUNK);
    set_range(read, start + stored, part);
    const auto data = read_chunk(read, part, &response);
    if (data.empty()) return -1;
    if (stored == 0) std::copy_n(response.bytes, FRU_READ_HEADER, output.begin());
    std::ranges::copy(data.first(part), area.subspan(stored).begin());
    reported += response.bytes[RESPONSE_DATA];
  }
  // When the length is not the one that was read before, these bytes are not the area.
  return whole && area[FRU_AREA_LENGTH] != units ? -1 : reported;
}

int write_fru_dev(fru_dev* dev) {
  if (dev == nullptr) return 0;
  if (!dev->records) return 1;
  const std::span<fru_info> records(dev->records.get(), fru_count(*dev));
  uint8_t room[FRU_IMAGE_ROOM];
  for (fru_info& fru : records) {
    if (!build_fru_image(&fru, room).empty()) continue;
    step_failed("the inventory of device %u does not fit an image", fru.dev_id);
    return 0;
  }
  int result = 1;
  for (size_t i = 0; i < records.size() && result == 1; i++) {
    if (write_fru_info(&records[i]) != 1) result = 0;
  }
  progress_end();
  return result;
}

int write_fru_info(fru_info* fru) {
  uint8_t room[FRU_IMAGE_ROOM];
  const auto image = build_fru_image(fru, room);
  return image.empty() ? 0 : WriteToFRU(image, fru->dev_id);
}

int WriteToFRU(std::span<const uint8_t> image, uint8_t id) {
  uint32_t size = 0;
  if (!ask_fru_size(id, &size)) return -1;
  if (image.size() > size) {
    step_failed("the inventory has %zu bytes, device %u only %u", image.size(), id, size);
    return -2;
  }
  return write_fru_bytes(id, 0, image) ? 1 : -1;
}

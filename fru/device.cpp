// The BMC that holds a FRU device: reads it area after area, and writes its image, both by 16 bytes
// a request.
#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "base/notice.h"
#include "base/progress.h"
#include "fru/image.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned CHUNK = 16;  // bytes read or written at once

// Get FRU Inventory Area Info: 20 28 10, device ID. The answer: size LSB, MSB, access.
constexpr unsigned SIZE_BYTES = 2;

// Read FRU Data: 20 28 11, device ID, offset LSB, MSB, count. The answer: count, bytes.
using Read_request = std::span<uint8_t, FRU_READ_REQUEST>;
constexpr unsigned READ_ID = 3;
constexpr unsigned READ_OFFSET = 4;
constexpr unsigned READ_COUNT = 6;
constexpr unsigned READ_DATA = FRU_READ_HEADER;

// Write FRU Data: 20 28 12, device ID, offset LSB, MSB, bytes.
constexpr unsigned WRITE_HEADER = 6;

// The size of the device, 0 when it does not say; true when it answers with `needed` bytes.
bool ask_size(uint8_t id, unsigned needed, uint32_t* size) {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, GET_FRU_AREA_INFO, id};
  Response response;
  const bool answered = exchange(request, &response);
  const auto answer = response_part(response, RESPONSE_DATA, 0);
  *size = answer.size() < SIZE_BYTES ? 0U : static_cast<uint32_t>(answer[0] | answer[1] << 8);
  return answered && answer.size() >= needed;
}

void set_range(Read_request request, size_t offset, size_t count) {
  request[READ_OFFSET] = static_cast<uint8_t>(offset);
  request[READ_OFFSET + 1] = static_cast<uint8_t>(offset >> 8);
  request[READ_COUNT] = static_cast<uint8_t>(count);
}

void build_read(Read_request request, uint8_t id, size_t offset, size_t count) {
  UpdateCommandToSendText(request.data(), ReadFRUCmd);
  request[READ_ID] = id;
  set_range(request, offset, count);
}

// The bytes that the device returns, at least `needed`; null when fewer arrive. The completion code
// does not count: the checksum of the area shows whether its bytes are right.
std::span<const uint8_t> read_chunk(Read_request request, size_t needed, Response* response) {
  exchange({request}, response);
  return response_part(*response, READ_DATA, static_cast<unsigned>(needed));
}

// The length of the area that the request points at; 0 when it has none.
unsigned probe_units(Read_request request, Response* response) {
  request[READ_COUNT] = CHUNK;
  const auto data = read_chunk(request, FRU_AREA_LENGTH + 1, response);
  return data.empty() ? 0U : data[FRU_AREA_LENGTH];
}

int read_area(fru_info* fru, const fru_layout& layout) {
  const unsigned offset = fru->common_header[layout.header_byte];
  if (offset == 0) return 1;
  uint8_t request[FRU_READ_REQUEST];
  uint8_t buffer[FRU_AREA_ROOM] = {};
  build_read(request, fru->dev_id, offset * FRU_UNIT, 0);
  if (ReadFRUData(request, buffer) < 0) return 0;

  const auto room = std::span<const uint8_t>(buffer).subspan(FRU_READ_HEADER);
  const auto area = room.first(room[FRU_AREA_LENGTH] * FRU_UNIT);
  fru->*layout.length = room[FRU_AREA_LENGTH];
  if (area.empty() || GetChecksum(area) != 0) return 0;
  fru_fault unused;
  return parse_area(layout, area, area.size() - 1, fru, &unused);
}

// Fills `record`, whose length is known. When it is a whole number of chunks, a last read asks for
// no bytes.
bool read_inventory_record(uint8_t id, size_t position, std::span<uint8_t> record) {
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  for (size_t stored = 0; stored <= record.size(); stored += CHUNK) {
    const size_t part = std::min<size_t>(record.size() - stored, CHUNK);
    build_read(request, id, position + stored, part);
    const auto data = read_chunk(request, part, &response);
    if (part == 0) break;
    if (data.empty()) return false;
    std::ranges::copy(data.first(part), record.subspan(stored).begin());
  }
  return true;
}

// True when the record has the length that it says, and both checksums hold.
bool record_sound(std::span<const uint8_t> record) {
  return FRU_RECORD_HEADER + record[FRU_RECORD_LENGTH] == record.size() &&
         record[FRU_RECORD_CHECKSUM] == GetChecksum(record.subspan(FRU_RECORD_HEADER)) &&
         record[FRU_RECORD_HEADER_CHECKSUM] ==
             GetChecksum(record.first(FRU_RECORD_HEADER_CHECKSUM));
}

// Reads the record at `*position`, and sets that to the next one. Null on a fault, or when the
// record does not lie in the first `size` bytes of the device.
std::unique_ptr<fru_multirecord> take_record(uint8_t id, unsigned size, unsigned* position,
                                             bool* last) {
  if (*position + FRU_RECORD_HEADER > size) return nullptr;
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  build_read(request, id, *position, CHUNK);
  const auto probed = read_chunk(request, FRU_RECORD_LENGTH + 1, &response);
  if (probed.empty()) return nullptr;
  const unsigned length = FRU_RECORD_HEADER + probed[FRU_RECORD_LENGTH];
  if (*position + length > size) return nullptr;

  uint8_t room[FRU_RECORD_HEADER + FRU_RECORD_LIMIT] = {};
  const auto record = std::span<uint8_t>(room).first(length);
  if (!read_inventory_record(id, *position, record) || !record_sound(record)) return nullptr;
  *position += length;
  *last = (record[FRU_RECORD_FORMAT] & FRU_LAST_RECORD) != 0;
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
    if (get_fru_info(&dev->records[i]) == 1) continue;
    step_failed("the inventory of device %u cannot be read, or a checksum in it is wrong", ids[i]);
    result = 0;
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
  if (answer.empty() || answer[0] != FRU_HEADER_SIZE) return 0;
  const auto header = answer.subspan(1, FRU_HEADER_SIZE);
  if (GetChecksum(header) != 0) return 0;
  std::ranges::copy(header, fru->common_header);
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
    *tail = take_record(fru->dev_id, size, &position, &last);
    if (!*tail) return 0;
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
  for (size_t stored = 0; stored < area.size(); stored += CHUNK) {
    const size_t part = std::min<size_t>(area.size() - stored, CHUNK);
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
  if (!ask_size(id, SIZE_BYTES, &size)) {
    step_failed("the size of inventory device %u: %s", id, failure_text());
    return -1;
  }
  if (image.size() > size) {
    step_failed("the inventory has %zu bytes, device %u only %u", image.size(), id, size);
    return -2;
  }
  for (size_t offset = 0; offset < image.size(); offset += CHUNK) {
    const auto part = image.subspan(offset, std::min<size_t>(image.size() - offset, CHUNK));
    uint8_t request[WRITE_HEADER + CHUNK] = {BMC_ADDRESS, NETFN_STORAGE, WRITE_FRU_DATA, id};
    request[4] = static_cast<uint8_t>(offset);
    request[5] = static_cast<uint8_t>(offset >> 8);
    std::ranges::copy(part, request + WRITE_HEADER);
    Response response;
    progress("FRU", static_cast<unsigned>(offset), static_cast<unsigned>(image.size()));
    now_under_way(Unfinished::fru);
    if (exchange({request, WRITE_HEADER + part.size()}, &response)) continue;
    step_failed("writing inventory device %u at %zu: %s", id, offset, failure_text());
    return -1;
  }
  return 1;
}

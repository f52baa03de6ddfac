// Reads a FRU device: 16 bytes a request, area after area, up to the first fault.
#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "base/progress.h"
#include "fru/layout.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned CHUNK = 16;  // bytes asked for at once

// Read FRU Data: 20 28 11, device ID, offset LSB, MSB, count. The answer: count, bytes.
constexpr unsigned READ_ID = 3;
constexpr unsigned READ_OFFSET = 4;
constexpr unsigned READ_COUNT = 6;
constexpr unsigned READ_DATA = FRU_READ_HEADER;

void put_range(uint8_t* request, unsigned offset, unsigned count) {
  request[READ_OFFSET] = static_cast<uint8_t>(offset);
  request[READ_OFFSET + 1] = static_cast<uint8_t>(offset >> 8);
  request[READ_COUNT] = static_cast<uint8_t>(count);
}

void build_read(uint8_t* request, uint8_t id, unsigned offset, unsigned count) {
  UpdateCommandToSendText(request, ReadFRUCmd);
  request[READ_ID] = id;
  put_range(request, offset, count);
}

// The first `needed` bytes of what the device returns; null when fewer arrive. An area's checksum
// is the judge of its bytes, whatever the completion code says of them.
std::span<const uint8_t> read_data(const uint8_t* request, unsigned needed, Response* response) {
  exchange(request, FRU_READ_REQUEST, response);
  return response_part(*response, READ_DATA, needed);
}

// The length of the area that the request points at; 0 when it has none.
unsigned probe_units(uint8_t* request, Response* response) {
  request[READ_COUNT] = CHUNK;
  const auto data = read_data(request, FRU_AREA_LENGTH + 1, response);
  return data.empty() ? 0U : data[FRU_AREA_LENGTH];
}

int read_area(fru_info* fru, const fru_layout& layout, fru_parser parse) {
  const unsigned offset = fru->common_header[layout.header_byte];
  if (offset == 0) return 1;
  uint8_t request[FRU_READ_REQUEST];
  uint8_t buffer[FRU_AREA_ROOM] = {};
  build_read(request, fru->dev_id, offset * FRU_UNIT, 0);
  if (ReadFRUData(request, buffer) < 0) return 0;

  const uint8_t* area = buffer + FRU_READ_HEADER;
  const unsigned length = area[FRU_AREA_LENGTH] * FRU_UNIT;
  fru->*layout.length = area[FRU_AREA_LENGTH];
  if (length == 0 || GetChecksum(area, length) != 0) return 0;
  fru_fault unused;
  return parse(area, length, length - 1, fru, &unused);
}

// Reads the `size` bytes of one record. A size of whole chunks ends with a read of no bytes.
bool read_record(uint8_t id, unsigned position, unsigned size, uint8_t* record) {
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  for (unsigned stored = 0; stored <= size; stored += CHUNK) {
    const unsigned part = std::min(size - stored, CHUNK);
    build_read(request, id, position + stored, part);
    const auto data = read_data(request, part, &response);
    if (part == 0) break;
    if (data.empty()) return false;
    std::memcpy(record + stored, data.data(), part);
  }
  return true;
}

bool record_sound(const uint8_t* record) {
  return record[3] == GetChecksum(record + FRU_RECORD_HEADER, record[2]) &&
         record[4] == GetChecksum(record, FRU_RECORD_HEADER - 1);
}

// Reads the record at `*position`, which moves behind it. Null on a fault, or when the record does
// not lie in the first `size` bytes of the device.
std::unique_ptr<fru_multirecord> take_record(uint8_t id, unsigned size, unsigned* position,
                                             bool* last) {
  if (*position + FRU_RECORD_HEADER > size) return nullptr;
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  build_read(request, id, *position, CHUNK);
  const auto probed = read_data(request, 3, &response);
  if (probed.empty()) return nullptr;
  const unsigned length = FRU_RECORD_HEADER + probed[2];
  if (*position + length > size) return nullptr;

  uint8_t record[FRU_AREA_ROOM] = {};
  if (!read_record(id, *position, length, record)) return nullptr;
  if (record[2] + FRU_RECORD_HEADER != length || !record_sound(record)) return nullptr;
  *position += length;
  *last = (record[1] & FRU_LAST_RECORD) != 0;
  return make_multirecord(record);
}

}  // namespace

unsigned getFruDeviceInfo(uint8_t* ids, uint32_t* sizes, unsigned capacity) {
  if (capacity == 0) return 0;
  std::memset(ids, 0xFF, capacity);
  std::fill_n(sizes, capacity, 0U);
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, GET_FRU_AREA_INFO, 0x00};  // device 0
  Response response;
  const auto size = ask(request, sizeof request, 0, &response);
  if (size.data() == nullptr) return 0;
  ids[0] = 0;
  if (size.size() >= 2) sizes[0] = static_cast<uint32_t>(size[0] | size[1] << 8);
  return 1;
}

int get_fru_dev(fru_dev* dev) {
  if (dev == nullptr) return 0;
  uint8_t ids[FRU_ID_LIST];
  uint32_t sizes[FRU_ID_LIST];
  unsigned count = getFruDeviceInfo(ids, sizes, FRU_ID_LIST);
  // A device that hides from the probe may still be read.
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
  const auto answer = ask(request, sizeof request, 1 + FRU_HEADER_SIZE, &response);
  if (answer.empty() || answer[0] != FRU_HEADER_SIZE) return 0;
  const uint8_t* header = answer.data() + 1;
  if (GetChecksum(header, FRU_HEADER_SIZE) != 0) return 0;
  std::memcpy(fru->common_header, header, FRU_HEADER_SIZE);
  fru->common_header[FRU_HEADER_FORMAT] &= FRU_FORMAT_MASK;
  return 1;
}

// Its length is stored nowhere, so its bytes cannot be told from those behind them.
int GetInternalInforArea(fru_info* fru) {
  if (fru->common_header[FRU_HEADER_INTERNAL] == 0) return 1;
  fru->internal_format = 0;
  fru->internal_len = 0;
  return 1;
}

int GetChassisInforArea(fru_info* fru) {
  return read_area(fru, FRU_AREAS[CHASSIS_AREA], GetChassis);
}

int GetBoardInforArea(fru_info* fru) {
  return read_area(fru, FRU_AREAS[BOARD_AREA], GetBoard);
}

int GetProductInforArea(fru_info* fru) {
  return read_area(fru, FRU_AREAS[PRODUCT_AREA], GetProduct);
}

int GetMultirecordInforArea(fru_info* fru) {
  fru->multirecord_count = 0;
  const unsigned offset = fru->common_header[FRU_HEADER_MULTIRECORD];
  if (offset == 0) return 1;
  const unsigned size = fru->inventory_size > 0 ? fru->inventory_size : FRU_ANY_SIZE;
  unsigned position = offset * FRU_UNIT;
  std::unique_ptr<fru_multirecord>* tail = &fru->multirecords;
  // Zeros are records too, with checksums that hold: the device's size ends the list.
  for (bool last = false; !last;) {
    progress("FRU", position, size);
    *tail = take_record(fru->dev_id, size, &position, &last);
    if (!*tail) return 0;
    fru->multirecord_count++;
    tail = &(*tail)->next;
  }
  return 1;
}

int ReadFRUData(const uint8_t* request, uint8_t* output) {
  uint8_t read[FRU_READ_REQUEST];
  std::memcpy(read, request, sizeof read);
  Response response;
  const bool whole = read[READ_COUNT] == 0;
  const unsigned units = whole ? probe_units(read, &response) : read[READ_COUNT];
  if (units == 0) return -1;

  const unsigned start = static_cast<unsigned>(read[READ_OFFSET] | read[READ_OFFSET + 1] << 8);
  const unsigned total = units * FRU_UNIT;
  int reported = 0;
  for (unsigned stored = 0; stored < total; stored += CHUNK) {
    const unsigned part = std::min(total - stored, CHUNK);
    put_range(read, start + stored, part);
    const auto data = read_data(read, part, &response);
    if (data.empty()) return -1;
    if (stored == 0) std::memcpy(output, response.bytes, FRU_READ_HEADER);
    std::memcpy(output + FRU_READ_HEADER + stored, data.data(), part);
    reported += response.bytes[RESPONSE_DATA];
  }
  // Another length than before: what was read is not the area.
  const bool steady = !whole || output[FRU_READ_HEADER + FRU_AREA_LENGTH] == units;
  return steady ? reported : -1;
}

// The requests that a FRU device knows.
#include "fru/access.h"

#include <algorithm>

#include "base/notice.h"
#include "base/progress.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"

namespace {

// Get FRU Inventory Area Info: 20 28 10, device ID. The answer: size LSB, MSB, access.
constexpr unsigned SIZE_BYTES = 2;

// Read FRU Data: 20 28 11, device ID, offset LSB, MSB, count. The answer: count, bytes.
constexpr unsigned READ_ID = 3;
constexpr unsigned READ_DATA = FRU_READ_HEADER;

// Write FRU Data: 20 28 12, device ID, offset LSB, MSB, bytes.
constexpr unsigned WRITE_HEADER = 6;

}  // namespace

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

std::span<const uint8_t> read_chunk(Read_request request, size_t needed, Response* response) {
  exchange({request}, response);
  return response_part(*response, READ_DATA, static_cast<unsigned>(needed));
}
bool ask_fru_size(uint8_t id, uint32_t* size) {
  if (ask_size(id, SIZE_BYTES, size)) return true;
  step_failed("the size of inventory device %u: %s", id, failure_text());
  return false;
}

bool read_fru_bytes(uint8_t id, size_t offset, std::span<uint8_t> bytes) {
  uint8_t request[FRU_READ_REQUEST];
  Response response;
  for (size_t done = 0; done < bytes.size(); done += FRU_CHUNK) {
    const size_t part = std::min<size_t>(bytes.size() - done, FRU_CHUNK);
    build_read(request, id, offset + done, part);
    const auto data = read_chunk(request, part, &response);
    if (data.empty()) return false;
    std::ranges::copy(data.first(part), bytes.subspan(done).begin());
  }
  return true;
}

bool write_fru_bytes(uint8_t id, size_t offset, std::span<const uint8_t> bytes) {
  for (size_t done = 0; done < bytes.size(); done += FRU_CHUNK) {
    const auto part = bytes.subspan(done, std::min<size_t>(bytes.size() - done, FRU_CHUNK));
    const size_t at = offset + done;
    uint8_t request[WRITE_HEADER + FRU_CHUNK] = {BMC_ADDRESS, NETFN_STORAGE, WRITE_FRU_DATA, id};
    request[4] = static_cast<uint8_t>(at);
    request[5] = static_cast<uint8_t>(at >> 8);
    std::ranges::copy(part, request + WRITE_HEADER);
    Response response;
    progress("FRU", static_cast<unsigned>(done), static_cast<unsigned>(bytes.size()));
    now_under_way(Unfinished::fru);
    if (exchange({request, WRITE_HEADER + part.size()}, &response)) continue;
    step_failed("writing inventory device %u at %zu: %s", id, at, failure_text());
    return false;
  }
  return true;
}

// The BMC's SDR repository: read whole; erased and written anew.
#include <algorithm>
#include <cstring>

#include "base/error_text.h"
#include "base/memory.h"
#include "base/progress.h"
#include "platform/platform.h"
#include "sdr/records.h"
#include "transport/bmc.h"
#include "transport/transaction.h"

namespace {

// NetFn Storage and the commands of IPMI v2.0 chapter 33.
constexpr uint8_t STORAGE = 0x28;
constexpr uint8_t GET_INFO = 0x20;
constexpr uint8_t RESERVE = 0x22;
constexpr uint8_t GET_SDR = 0x23;
constexpr uint8_t ADD_SDR = 0x24;
constexpr uint8_t PARTIAL_ADD_SDR = 0x25;
constexpr uint8_t CLEAR = 0x27;
constexpr unsigned REQUEST_HEADER = 3;

constexpr uint8_t INVALID_COMMAND = 0xC1;
constexpr unsigned CHUNK = 16;  // record bytes that one request or response carries
constexpr unsigned OFFSET_LIMIT = 0xFF;

// Get SDR Repository Info response data: version, record count (2), free space (2), time of last
// addition (4), time of last erase (4), operation support.
constexpr unsigned INFO_SIZE = 14;
// Get SDR response data: next record ID (2), record bytes.
constexpr unsigned RECORD_BYTES = RESPONSE_DATA + 2;

enum Erase_action : uint8_t { ERASE_STATUS = 0x00, ERASE_START = 0xAA };
enum Erase_state : uint8_t { ERASE_IN_PROGRESS = 0x00, ERASE_COMPLETE = 0x01 };
constexpr unsigned ERASE_POLLS = 5;
constexpr unsigned ERASE_PAUSE_US = 100000;

enum Add_progress : uint8_t { MORE_TO_COME = 0x00, LAST_FRAGMENT = 0x01 };

uint32_t get_u32(const uint8_t* bytes) {
  uint32_t value = 0;
  for (unsigned i = 4; i > 0; i--) value = value << 8 | bytes[i - 1];
  return value;
}

// Zeros when the BMC gives none: the request that follows then shows whether it needs one.
void reserve(uint8_t reservation[2]) {
  const uint8_t request[] = {BMC_ADDRESS, STORAGE, RESERVE};
  Response response;
  const bool accepted = exchange(request, sizeof request, &response);
  const uint8_t* id = response_part(response, RESPONSE_DATA, 2);
  const bool given = accepted && id != nullptr;
  reservation[0] = given ? id[0] : 0;
  reservation[1] = given ? id[1] : 0;
}

bool get_info(sdr_repository* repository) {
  const uint8_t request[] = {BMC_ADDRESS, STORAGE, GET_INFO};
  Response response;
  if (!exchange(request, sizeof request, &response)) return false;
  const uint8_t* info = response_part(response, RESPONSE_DATA, INFO_SIZE);
  if (info == nullptr) return false;
  repository->repo_version = info[0];
  repository->count_ls = info[1];
  repository->count_ms = info[2];
  repository->free_ls = info[3];
  repository->free_ms = info[4];
  repository->free_space = static_cast<uint32_t>(info[4] << 8 | info[3]);
  repository->add_timestamp = get_u32(info + 5);
  repository->erase_timestamp = get_u32(info + 9);
  repository->op_support = info[13];
  return true;
}

bool read_part(const uint8_t id[2], unsigned offset, unsigned count, Response* response) {
  uint8_t request[] = {BMC_ADDRESS,
                       STORAGE,
                       GET_SDR,
                       0,
                       0,
                       id[0],
                       id[1],
                       static_cast<uint8_t>(offset),
                       static_cast<uint8_t>(count)};
  reserve(request + REQUEST_HEADER);
  return exchange(request, sizeof request, response);
}

// Reads the bytes of `record` from `done` to `total`.
bool read_rest(const uint8_t id[2], uint8_t* record, unsigned done, unsigned total) {
  while (done < total) {
    // Beyond the reach of the offset byte, the record's last bytes come with some before them.
    const unsigned offset = done <= OFFSET_LIMIT ? done : total - CHUNK;
    const unsigned count = std::min(total - offset, CHUNK);
    Response response;
    if (!read_part(id, offset, count, &response)) return false;
    const uint8_t* bytes = response_part(response, RECORD_BYTES, count);
    if (bytes == nullptr) return false;
    std::memcpy(record + offset, bytes, count);
    done = offset + count;
  }
  return true;
}

bool read_record(sdr_repository* repository, const uint8_t id[2]) {
  Response first;
  if (!read_part(id, 0, CHUNK, &first)) return false;
  const uint8_t* header = response_part(first, RECORD_BYTES, SDR_HEADER_SIZE);
  if (header == nullptr) return false;
  const unsigned total = SDR_HEADER_SIZE + header[SDR_LENGTH_BYTE];
  const unsigned arrived = std::min(total, CHUNK);
  const uint8_t* bytes = response_part(first, RECORD_BYTES, arrived);
  if (bytes == nullptr) return false;

  const sdr_entry* entry = next_entry(repository, header);
  if (entry == nullptr || !entry->sdr_data) return false;
  uint8_t record[SDR_SIZE_LIMIT];
  std::memcpy(record, bytes, arrived);
  if (!read_rest(id, record, arrived, total)) return false;
  std::memcpy(entry->sdr_data.get(), record + SDR_HEADER_SIZE, entry->record_length);
  repository->record_count++;
  repository->next_id_ls = first.bytes[RESPONSE_DATA];
  repository->next_id_ms = first.bytes[RESPONSE_DATA + 1];
  return true;
}

// Reads to the end of the chain, but no more records than the BMC claims.
bool read_records(sdr_repository* repository) {
  const uint32_t claimed = static_cast<uint32_t>(repository->count_ms << 8 | repository->count_ls);
  repository->next_id_ls = 0;
  repository->next_id_ms = 0;
  while (repository->record_count < claimed) {
    if (get_sdr(repository) != 1) return false;
    progress("SDR", repository->record_count, claimed);
    if (repository->next_id_ls == 0xFF && repository->next_id_ms == 0xFF) break;
  }
  return true;
}

bool clear(Erase_action action, Response* response) {
  uint8_t request[] = {BMC_ADDRESS, STORAGE, CLEAR, 0, 0, 'C', 'L', 'R', action};
  reserve(request + REQUEST_HEADER);
  return exchange(request, sizeof request, response);
}

bool erase() {
  Response response;
  if (!clear(ERASE_START, &response)) return false;
  for (unsigned poll = 1; poll <= ERASE_POLLS; poll++) {
    if (!clear(ERASE_STATUS, &response)) return false;
    const uint8_t* state = response_part(response, RESPONSE_DATA, 1);
    if (state == nullptr) return false;
    if (*state == ERASE_COMPLETE) return true;
    if (*state != ERASE_IN_PROGRESS) return false;
    if (poll < ERASE_POLLS) platform::usleep(ERASE_PAUSE_US);
  }
  return false;
}

bool has_partial_add() {
  const uint8_t request[] = {BMC_ADDRESS, STORAGE, PARTIAL_ADD_SDR};
  Response response;
  exchange(request, sizeof request, &response);
  return completion_code(response) != INVALID_COMMAND;
}

bool write_failed(uint8_t id_ls, uint8_t id_ms) {
  set_err_message("Write Sdr Record %02X %02X fail", id_ls, id_ms);
  return false;
}

bool add_whole(const sdr_entry& entry) {
  uint8_t request[REQUEST_HEADER + SDR_SIZE_LIMIT] = {BMC_ADDRESS, STORAGE, ADD_SDR};
  const unsigned length = REQUEST_HEADER + lay_out_record(entry, request + REQUEST_HEADER);
  Response response;
  // A request that the KCS driver cannot carry would end the process.
  if (length <= request_limit() && exchange(request, length, &response)) return true;
  return write_failed(entry.record_id_ls, entry.record_id_ms);
}

bool add_in_parts(const sdr_entry& entry) {
  uint8_t record[SDR_SIZE_LIMIT];
  const unsigned total = lay_out_record(entry, record);
  // The offset byte reaches no further.
  if (total > OFFSET_LIMIT + 1) return write_failed(entry.record_id_ls, entry.record_id_ms);

  // Reservation (2), record ID (2), offset, progress, record bytes.
  uint8_t request[9 + CHUNK] = {BMC_ADDRESS, STORAGE, PARTIAL_ADD_SDR};
  uint8_t* id = request + 5;
  reserve(request + REQUEST_HEADER);
  for (unsigned offset = 0;; offset += CHUNK) {
    const unsigned count = std::min(total - offset, CHUNK);
    const bool last = offset + count == total;
    request[7] = static_cast<uint8_t>(offset);
    request[8] = last ? LAST_FRAGMENT : MORE_TO_COME;
    std::memcpy(request + 9, record + offset, count);
    Response response;
    if (!exchange(request, 9 + count, &response)) return write_failed(id[0], id[1]);
    if (last) return true;
    const uint8_t* given = response_part(response, RESPONSE_DATA, 2);
    if (given == nullptr) return write_failed(id[0], id[1]);
    std::memcpy(id, given, 2);
  }
}

// Without Partial Add the first failure ends the writing; with it the other records go on.
bool add_records(const sdr_repository& repository) {
  const bool in_parts = has_partial_add();
  bool complete = true;
  for (uint32_t i = 0; i < repository.record_count && (complete || in_parts); i++) {
    const sdr_entry& entry = repository.psdr_entry[i];
    complete = (in_parts ? add_in_parts(entry) : add_whole(entry)) && complete;
    progress("SDR", i + 1, repository.record_count);
  }
  return complete;
}

bool has_all_bodies(const sdr_repository& repository) {
  for (uint32_t i = 0; i < repository.record_count; i++) {
    if (!repository.psdr_entry[i].sdr_data) return false;
  }
  return true;
}

}  // namespace

int init_sdr(sdr_repository* repository) {
  freespace(repository);
  if (!get_info(repository)) {
    set_err_message("Get Sdr Repository Fail");
    return 0;
  }
  repository->source_name = make_text("BMC", 3);
  const bool complete = read_records(repository);
  progress_end();
  return complete ? 1 : 0;
}

int get_sdr(sdr_repository* repository) {
  const uint8_t id[2] = {repository->next_id_ls, repository->next_id_ms};
  if (read_record(repository, id)) return 1;
  set_err_message("Get SDR Record %02X %02X Fail", id[0], id[1]);
  return 0;
}

int Write_Sdr(sdr_repository* repository) {
  if (!has_all_bodies(*repository)) {
    set_err_message("psdr_entry.sdr_data error");
    return 0;
  }
  if (!erase()) {
    set_err_message("Clear SDR Fail");
    return 0;
  }
  const bool complete = add_records(*repository);
  progress_end();
  return complete ? 1 : 0;
}

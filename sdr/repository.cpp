// The BMC's SDR repository: read whole; erased and written anew.
#include <algorithm>
#include <cstring>

#include "base/error_text.h"
#include "base/memory.h"
#include "base/progress.h"
#include "platform/platform.h"
#include "sdr/records.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned REQUEST_HEADER = 3;  // address, NetFn/LUN, command
constexpr unsigned CHUNK = 16;          // record bytes that one request or response carries
constexpr unsigned OFFSET_LIMIT = 0xFF;

// Get SDR Repository Info response data: version, record count (2), free space (2), time of last
// addition (4), time of last erase (4), operation support.
constexpr unsigned INFO_SIZE = 14;
// Get SDR response data: next record ID, record bytes.
constexpr unsigned NEXT_ID_SIZE = 2;

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
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, RESERVE_SDR};
  Response response;
  const auto id = ask(request, sizeof request, 2, &response);
  reservation[0] = id.empty() ? uint8_t{0} : id[0];
  reservation[1] = id.empty() ? uint8_t{0} : id[1];
}

bool get_info(sdr_repository* repository) {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, GET_SDR_INFO};
  Response response;
  const auto info = ask(request, sizeof request, INFO_SIZE, &response);
  if (info.empty()) return false;
  repository->repo_version = info[0];
  repository->count_ls = info[1];
  repository->count_ms = info[2];
  repository->free_ls = info[3];
  repository->free_ms = info[4];
  repository->free_space = static_cast<uint32_t>(info[4] << 8 | info[3]);
  repository->add_timestamp = get_u32(info.data() + 5);
  repository->erase_timestamp = get_u32(info.data() + 9);
  repository->op_support = info[13];
  return true;
}

// The record bytes that came for these `count`, all of them or more than were asked for; null when
// they did not.
std::span<const uint8_t> read_part(const uint8_t id[2], unsigned offset, unsigned count,
                                   unsigned needed, Response* response) {
  uint8_t request[] = {BMC_ADDRESS,
                       NETFN_STORAGE,
                       GET_SDR,
                       0,
                       0,
                       id[0],
                       id[1],
                       static_cast<uint8_t>(offset),
                       static_cast<uint8_t>(count)};
  reserve(request + REQUEST_HEADER);
  const auto answer = ask(request, sizeof request, NEXT_ID_SIZE + needed, response);
  return answer.empty() ? answer : answer.subspan(NEXT_ID_SIZE);
}

// Reads the bytes of `record` from `done` to `total`.
bool read_rest(const uint8_t id[2], uint8_t* record, unsigned done, unsigned total) {
  while (done < total) {
    // Beyond the reach of the offset byte, the record's last bytes come with some before them.
    const unsigned offset = done <= OFFSET_LIMIT ? done : total - CHUNK;
    const unsigned count = std::min(total - offset, CHUNK);
    Response response;
    const auto bytes = read_part(id, offset, count, count, &response);
    if (bytes.empty()) return false;
    std::memcpy(record + offset, bytes.data(), count);
    done = offset + count;
  }
  return true;
}

bool read_record(sdr_repository* repository, const uint8_t id[2]) {
  Response first;
  const auto bytes = read_part(id, 0, CHUNK, SDR_HEADER_SIZE, &first);
  if (bytes.empty()) return false;
  const unsigned total = SDR_HEADER_SIZE + bytes[SDR_LENGTH_BYTE];
  const unsigned arrived = std::min(total, CHUNK);
  if (bytes.size() < arrived) return false;

  const sdr_entry* entry = next_entry(repository, bytes.data());
  if (entry == nullptr || !entry->sdr_data) return false;
  uint8_t record[SDR_SIZE_LIMIT];
  std::memcpy(record, bytes.data(), arrived);
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

// The BMC's answer, at least `needed` bytes; null when it refused.
std::span<const uint8_t> clear(Erase_action action, unsigned needed, Response* response) {
  uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, CLEAR_SDR, 0, 0, 'C', 'L', 'R', action};
  reserve(request + REQUEST_HEADER);
  now_under_way(Unfinished::sdr);
  return ask(request, sizeof request, needed, response);
}

bool erase() {
  Response response;
  if (clear(ERASE_START, 0, &response).data() == nullptr) return false;
  for (unsigned poll = 1; poll <= ERASE_POLLS; poll++) {
    const auto state = clear(ERASE_STATUS, 1, &response);
    if (state.empty()) return false;
    if (state[0] == ERASE_COMPLETE) return true;
    if (state[0] != ERASE_IN_PROGRESS) return false;
    if (poll < ERASE_POLLS) platform::usleep(ERASE_PAUSE_US);
  }
  return false;
}

bool has_partial_add() {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, PARTIAL_ADD_SDR};
  Response response;
  exchange(request, sizeof request, &response);
  return completion_code(response) != INVALID_COMMAND;
}

bool write_failed(uint8_t id_ls, uint8_t id_ms) {
  set_err_message("Write Sdr Record %02X %02X fail", id_ls, id_ms);
  return false;
}

bool add_whole(const sdr_entry& entry) {
  uint8_t request[REQUEST_HEADER + SDR_SIZE_LIMIT] = {BMC_ADDRESS, NETFN_STORAGE, ADD_SDR};
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
  uint8_t request[9 + CHUNK] = {BMC_ADDRESS, NETFN_STORAGE, PARTIAL_ADD_SDR};
  uint8_t* id = request + 5;
  reserve(request + REQUEST_HEADER);
  for (unsigned offset = 0;; offset += CHUNK) {
    const unsigned count = std::min(total - offset, CHUNK);
    const bool last = offset + count == total;
    request[7] = static_cast<uint8_t>(offset);
    request[8] = last ? LAST_FRAGMENT : MORE_TO_COME;
    std::memcpy(request + 9, record + offset, count);
    Response response;
    const auto given = ask(request, 9 + count, last ? 0 : 2, &response);
    if (given.data() == nullptr) return write_failed(id[0], id[1]);
    if (last) return true;
    std::memcpy(id, given.data(), 2);
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

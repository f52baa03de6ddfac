// The BMC's SDR repository: read whole; erased and written anew.
#include "sdr/sdr.h"

#include <algorithm>

#include "base/error_text.h"
#include "base/memory.h"
#include "base/notice.h"
#include "base/progress.h"
#include "platform/platform.h"
#include "textfile/quoted.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned CHUNK = 16;  // record bytes that one request or response carries
constexpr unsigned OFFSET_LIMIT = 0xFF;
constexpr unsigned RECORD_LIMIT = SDR_HEADER_SIZE + 0xFF;
// The offset is one byte: a part that begins here takes along all that is left.
constexpr unsigned LAST_PART = OFFSET_LIMIT + 1 - CHUNK;

// Get SDR Repository Info response data: version, record count (2), free space (2), time of last
// addition (4), time of last erase (4), operation support.
constexpr unsigned INFO_SIZE = 14;
constexpr unsigned INFO_NEEDED = 3;
// Get SDR response data: next record ID, record bytes.
constexpr unsigned NEXT_ID_SIZE = 2;
// Partial Add SDR request: header, reservation ID (2), record ID (2), offset, progress, record
// bytes.
constexpr unsigned FRAGMENT_HEADER = REQUEST_DATA + 6;

enum Erase_action : uint8_t { ERASE_STATUS = 0x00, ERASE_START = 0xAA };
enum Erase_state : uint8_t { ERASE_IN_PROGRESS = 0x00, ERASE_COMPLETE = 0x01 };
constexpr unsigned ERASE_POLLS = 5;
constexpr unsigned ERASE_PAUSE_US = 100000;

enum Add_progress : uint8_t { MORE_TO_COME = 0x00, LAST_FRAGMENT = 0x01 };

// Of a record or a reservation, in wire order.
struct Id {
  uint8_t ls;
  uint8_t ms;
};

uint32_t timestamp(std::span<const uint8_t, 4> bytes) {
  uint32_t value = 0;
  for (unsigned i = 4; i > 0; i--) value = value << 8 | bytes[i - 1];
  return value;
}

// Zeros when the BMC gives none; it refuses the next request if it needs one.
Id reserve_repository() {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, RESERVE_SDR};
  Response response;
  const auto id = ask(request, 2, &response);
  return id.empty() ? Id{0, 0} : Id{id[0], id[1]};
}

bool get_repository_info(sdr_repository* repository) {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, GET_SDR_INFO};
  Response response;
  const auto answer = ask(request, INFO_NEEDED, &response);
  if (answer.empty()) return false;
  // A repository can be read without what follows the count of its records.
  std::array<uint8_t, INFO_SIZE> bytes{};
  std::ranges::copy(answer.first(std::min(answer.size(), bytes.size())), bytes.begin());
  const std::span<const uint8_t, INFO_SIZE> info = bytes;
  repository->repo_version = info[0];
  repository->count_ls = info[1];
  repository->count_ms = info[2];
  repository->free_ls = info[3];
  repository->free_ms = info[4];
  repository->free_space = static_cast<uint32_t>(info[4] << 8 | info[3]);
  repository->add_timestamp = timestamp(info.subspan<5, 4>());
  repository->erase_timestamp = timestamp(info.subspan<9, 4>());
  repository->op_support = info[13];
  return true;
}

// The response data for `count` bytes of the record; null when fewer than `needed` came.
std::span<const uint8_t> ask_part(Id record, unsigned offset, unsigned count, unsigned needed,
                                  Response* response) {
  const Id reservation = reserve_repository();
  const uint8_t request[] = {BMC_ADDRESS,
                             NETFN_STORAGE,
                             GET_SDR,
                             reservation.ls,
                             reservation.ms,
                             record.ls,
                             record.ms,
                             static_cast<uint8_t>(offset),
                             static_cast<uint8_t>(count)};
  return ask(request, NEXT_ID_SIZE + needed, response);
}

// Reads the record's bytes from `done` on, all of them in its body.
bool read_rest_of_body(Id id, std::span<uint8_t> body, unsigned done) {
  const unsigned total = SDR_HEADER_SIZE + static_cast<unsigned>(body.size());
  while (done < total) {
    // The offset byte does not reach the last bytes of a long record: they are read together with
    // some that are there already.
    const unsigned offset = done <= OFFSET_LIMIT ? done : total - CHUNK;
    const unsigned count = std::min(total - offset, CHUNK);
    Response response;
    const auto data = ask_part(id, offset, count, count, &response);
    if (data.empty()) return false;
    std::ranges::copy(data.subspan(NEXT_ID_SIZE, count),
                      body.subspan(offset - SDR_HEADER_SIZE, count).begin());
    done = offset + count;
  }
  return true;
}

bool has_body(const sdr_entry& entry) {
  return entry.sdr_data != nullptr;
}

bool append_from_bmc(sdr_repository* repository, Id id) {
  Response response;
  const auto data = ask_part(id, 0, CHUNK, SDR_HEADER_SIZE, &response);
  if (data.empty()) return false;
  const auto record = data.subspan(NEXT_ID_SIZE);
  const unsigned total = SDR_HEADER_SIZE + record[SDR_LENGTH_BYTE];
  const unsigned arrived = std::min(total, CHUNK);
  if (record.size() < arrived) return false;

  const sdr_entry* entry = append_record(repository, record.first(arrived));
  if (entry == nullptr || !has_body(*entry)) return false;
  if (!read_rest_of_body(id, body_of(*entry), arrived)) return false;
  repository->next_id_ls = data[0];
  repository->next_id_ms = data[1];
  return true;
}

bool at_chain_end(const sdr_repository& repository) {
  return repository.next_id_ls == 0xFF && repository.next_id_ms == 0xFF;
}

// Reads to the end of the chain, but no more records than the BMC claims.
bool read_chain(sdr_repository* repository) {
  const uint32_t claimed = static_cast<uint32_t>(repository->count_ms << 8 | repository->count_ls);
  repository->next_id_ls = 0;
  repository->next_id_ms = 0;
  while (repository->record_count < claimed) {
    if (get_sdr(repository) != 1) return false;
    progress("SDR", repository->record_count, claimed);
    if (at_chain_end(*repository)) break;
  }
  return true;
}

// True when the BMC did not refuse.
bool clear_repository(Erase_action action, Response* response) {
  const Id reservation = reserve_repository();
  now_under_way(Unfinished::sdr);
  const uint8_t request[] = {BMC_ADDRESS, NETFN_STORAGE, CLEAR_SDR, reservation.ls, reservation.ms,
                             'C',         'L',           'R',       action};
  return exchange(request, response);
}

bool erase_repository() {
  Response response;
  if (!clear_repository(ERASE_START, &response)) return false;
  for (unsigned poll = 1; poll <= ERASE_POLLS; poll++) {
    if (!clear_repository(ERASE_STATUS, &response)) return false;
    const auto state = response_part(response, RESPONSE_DATA, 1);
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
  exchange(request, &response);
  return completion_code(response) != INVALID_COMMAND;
}

// `record` is the ID that the BMC gave, `own` the record of the file.
bool write_failed(Id record, const sdr_entry& own, const char* reason) {
  set_err_message("Write Sdr Record %02X %02X fail", record.ls, record.ms);
  step_failed("writing the sensor record %02X%02X: %s", own.record_id_ms, own.record_id_ls, reason);
  return false;
}

// Puts header and body one after the other into `room`.
std::span<const uint8_t> lay_out(const sdr_entry& entry, std::span<uint8_t, RECORD_LIMIT> room) {
  std::ranges::copy(header_of(entry), room.begin());
  std::ranges::copy(body_of(entry), room.subspan(SDR_HEADER_SIZE).begin());
  return room.first(SDR_HEADER_SIZE + size_t{entry.record_length});
}

unsigned whole_request(const sdr_entry& entry) {
  return REQUEST_DATA + SDR_HEADER_SIZE + entry.record_length;
}

// In one request; a longer one would end the process in the KCS driver.
bool can_be_carried(const sdr_entry& entry) {
  return whole_request(entry) <= request_limit();
}

// A record that cannot go in one request needs a BMC that takes parts. It is asked before the
// erase, which would cost the records that are there.
bool can_be_written(const sdr_repository& repository) {
  const auto entries = entries_of(repository);
  const auto found = std::ranges::find_if_not(entries, can_be_carried);
  if (found == entries.end() || has_partial_add()) return true;
  set_err_message("SDR Record %02X %02X needs --open", found->record_id_ls, found->record_id_ms);
  hint_failed("the sensor record %02X%02X is too long for the ports: use --open; nothing is erased",
              found->record_id_ms, found->record_id_ls);
  return false;
}

bool add_whole(const sdr_entry& entry) {
  uint8_t request[REQUEST_DATA + RECORD_LIMIT] = {BMC_ADDRESS, NETFN_STORAGE, ADD_SDR};
  lay_out(entry, std::span(request).subspan<REQUEST_DATA>());
  const unsigned length = whole_request(entry);
  Response response;
  const bool carried = can_be_carried(entry);
  if (carried && exchange({request, length}, &response)) return true;
  return write_failed({entry.record_id_ls, entry.record_id_ms}, entry,
                      carried ? failure_text() : "it is too long for the ports: use --open");
}

bool add_in_parts(const sdr_entry& entry) {
  uint8_t room[RECORD_LIMIT];
  const auto record = lay_out(entry, room);
  const unsigned total = static_cast<unsigned>(record.size());
  Id id = {0, 0};  // the BMC gives it with the first fragment
  const Id reservation = reserve_repository();
  for (unsigned offset = 0;; offset += CHUNK) {
    const unsigned left = total - offset;
    const bool last = left <= CHUNK || offset == LAST_PART;
    const unsigned count = last ? left : CHUNK;
    uint8_t request[FRAGMENT_HEADER + RECORD_LIMIT - LAST_PART] = {
        BMC_ADDRESS,
        NETFN_STORAGE,
        PARTIAL_ADD_SDR,
        reservation.ls,
        reservation.ms,
        id.ls,
        id.ms,
        static_cast<uint8_t>(offset),
        last ? LAST_FRAGMENT : MORE_TO_COME};
    std::ranges::copy(record.subspan(offset, count), request + FRAGMENT_HEADER);
    Response response;
    if (!exchange({request, FRAGMENT_HEADER + count}, &response)) {
      return write_failed(id, entry, failure_text());
    }
    if (last) return true;
    const auto given = response_part(response, RESPONSE_DATA, 2);
    if (given.empty()) return write_failed(id, entry, "a response without the record's ID");
    id = {given[0], given[1]};
  }
}

// Without Partial Add the first failure ends the writing; with it the other records are written.
bool add_records(const sdr_repository& repository) {
  const bool in_parts = has_partial_add();
  bool complete = true;
  uint32_t number = 0;
  for (const sdr_entry& entry : entries_of(repository)) {
    if (!complete && !in_parts) break;
    complete = (in_parts ? add_in_parts(entry) : add_whole(entry)) && complete;
    progress("SDR", ++number, repository.record_count);
  }
  return complete;
}

}  // namespace

int init_sdr(sdr_repository* repository) {
  freespace(repository);
  if (!get_repository_info(repository)) {
    set_err_message("Get Sdr Repository Fail");
    step_failed("the size of the sensor records: %s", failure_text());
    return 0;
  }
  repository->source_name = make_text("BMC", 3);
  const bool complete = read_chain(repository);
  progress_end();
  const bool cut = repository->record_count > 0 && !at_chain_end(*repository);
  if (exactFlag != 0 && complete && cut) {
    hint_failed("the BMC has more sensor records than the %u that it claims",
                repository->record_count);
  }
  return complete ? 1 : 0;
}

int get_sdr(sdr_repository* repository) {
  const Id id = {repository->next_id_ls, repository->next_id_ms};
  if (append_from_bmc(repository, id)) return 1;
  set_err_message("Get SDR Record %02X %02X Fail", id.ls, id.ms);
  step_failed("reading the sensor record %02X%02X: %s", id.ms, id.ls, failure_text());
  return 0;
}

int Write_Sdr(sdr_repository* repository) {
  if (!std::ranges::all_of(entries_of(*repository), has_body)) {
    set_err_message("psdr_entry.sdr_data error");
    step_failed("writing the sensor records: out of memory");
    return 0;
  }
  if (!can_be_written(*repository)) return 0;
  if (!erase_repository()) {
    set_err_message("Clear SDR Fail");
    step_failed("erasing the sensor records: %s", failure_text());
    return 0;
  }
  const bool complete = add_records(*repository);
  progress_end();
  return complete ? 1 : 0;
}

// System Event Log: read whole, written as text.
#include "sel/sel.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/dump_file.h"
#include "base/error_text.h"
#include "base/memory.h"
#include "base/notice.h"
#include "base/progress.h"
#include "transport/completion.h"
#include "transport/transaction.h"

namespace {

// Get SEL Info response: version, entries (2), free space (2), time of last addition (4), time of
// last erase (4), operation support.
constexpr unsigned LOG_INFO_SIZE = 14;
constexpr unsigned LOG_INFO_NEEDED = 3;
// Get SEL Entry response: next record ID (2), record.
constexpr unsigned ENTRY_SIZE = 2 + SEL_RECORD_SIZE;
constexpr uint8_t WHOLE_RECORD = 0xFF;

bool is_last(const uint8_t id[2]) {
  return id[0] == 0xFF && id[1] == 0xFF;
}

bool get_log_info(SelList* list) {
  uint8_t request[3];
  const unsigned length = UpdateCommandToSendText(request, GetSelRepositoryInfo);
  Response response;
  const auto answer = ask({request, length}, LOG_INFO_NEEDED, &response);
  if (answer.empty()) return false;
  // A log can be read without what follows the count of its entries.
  uint8_t info[LOG_INFO_SIZE] = {};
  std::memcpy(info, answer.data(), std::min<size_t>(answer.size(), LOG_INFO_SIZE));
  list->version = info[0];
  list->entries = info[1] | info[2] << 8;
  list->freeSpace = static_cast<uint32_t>(info[3] | info[4] << 8);
  std::memcpy(list->addTimestamp, info + 5, 4);
  std::memcpy(list->eraseTimestamp, info + 9, 4);
  list->opSupport = info[13];
  return true;
}

// Stores the record with this ID, then the ID of the next one in its place.
bool get_entry(uint8_t id[2], SelRecord* record) {
  // Reservation (0: none), record ID, offset, bytes to read.
  uint8_t request[9] = {0, 0, 0, 0, 0, id[0], id[1], 0, WHOLE_RECORD};
  UpdateCommandToSendText(request, GetSEL);
  Response response;
  const auto entry = ask(request, ENTRY_SIZE, &response);
  if (entry.empty()) return false;
  std::memcpy(id, entry.data(), 2);
  std::memcpy(record->bytes, entry.data() + 2, SEL_RECORD_SIZE);
  return true;
}

// Reads from the first record to the end of the chain, but no more records than the BMC claims.
bool get_entries(SelList* list) {
  std::size_t room = 0;
  uint8_t id[2] = {0, 0};
  while (list->count < list->entries && !is_last(id)) {
    const std::size_t used = static_cast<std::size_t>(list->count);
    if (!make_room(&list->records, used, &room)) {
      set_err_message("Out of memory");
      step_failed("the event log: out of memory");
      return false;
    }
    if (!get_entry(id, &list->records[used])) {
      set_err_message("Get SEL Record %02X%02X Fail", id[0], id[1]);
      step_failed("the event log's record %02X%02X: %s", id[1], id[0], failure_text());
      return false;
    }
    list->count++;
    progress("SEL", static_cast<unsigned>(list->count), static_cast<unsigned>(list->entries));
  }
  return true;
}

// A line of the dump: the bytes in hexadecimal, a blank after each, the last one a line end.
constexpr unsigned RECORD_LINE_SIZE = SEL_RECORD_SIZE * 3;

void format_record(const SelRecord& record, char line[RECORD_LINE_SIZE]) {
  static const char DIGITS[] = "0123456789ABCDEF";
  for (const uint8_t byte : record.bytes) {
    *line++ = DIGITS[byte >> 4];
    *line++ = DIGITS[byte & 0x0F];
    *line++ = ' ';
  }
  line[-1] = '\n';
}

}  // namespace

int get_sel(SelList* list) {
  if (!get_log_info(list)) {
    set_err_message(" Get SEL Repository Info Fail");
    step_failed("the event log's size: %s", failure_text());
    return 0;
  }
  list->count = 0;
  const bool complete = get_entries(list);
  progress_end();
  return complete ? 1 : 0;
}

int SelToFile2(const char* path, const SelList* list) {
  FILE* file = dump_open(path);
  if (file == nullptr) return 0;
  std::fprintf(file, "_SEL\n_LOG_NUM   %02X%02X\n\n", static_cast<unsigned>(list->count & 0xFF),
               static_cast<unsigned>(list->count >> 8 & 0xFF));
  for (int32_t i = 0; i < list->count; i++) {
    char line[RECORD_LINE_SIZE];
    format_record(list->records[static_cast<std::size_t>(i)], line);
    std::fwrite(line, 1, sizeof line, file);
  }
  return dump_close(file) ? 1 : 0;
}

int destroy_sel(SelList* list) {
  *list = SelList{};
  return 1;
}

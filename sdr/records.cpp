// Records in memory.
#include "sdr/records.h"

#include <cstring>

#include "base/error_text.h"
#include "base/memory.h"

sdr_entry* next_entry(sdr_repository* repository, const uint8_t header[SDR_HEADER_SIZE]) {
  if (!make_room(&repository->psdr_entry, repository->record_count, &repository->room)) {
    return nullptr;
  }
  sdr_entry* entry = &repository->psdr_entry[repository->record_count];
  entry->record_id_ls = header[0];
  entry->record_id_ms = header[1];
  entry->sdr_version = header[2];
  entry->record_type = header[3];
  entry->record_length = header[SDR_LENGTH_BYTE];
  entry->sdr_data = make_owned<uint8_t>(entry->record_length);
  return entry;
}

const char* load_record(sdr_repository* repository, const uint8_t* record, unsigned length) {
  if (length != SDR_HEADER_SIZE + unsigned{record[SDR_LENGTH_BYTE]}) {
    return "the record's fifth byte is not the number of bytes after it";
  }
  if (repository->record_count >= SDR_COUNT_LIMIT) return "more than 65535 records";
  const sdr_entry* entry = next_entry(repository, record);
  if (entry == nullptr) return "out of memory";
  if (entry->sdr_data) {
    std::memcpy(entry->sdr_data.get(), record + SDR_HEADER_SIZE, entry->record_length);
  } else {
    set_err_message("psdr_entry.sdr_data error");
  }
  repository->record_count++;
  return nullptr;
}

unsigned lay_out_record(const sdr_entry& entry, uint8_t* record) {
  record[0] = entry.record_id_ls;
  record[1] = entry.record_id_ms;
  record[2] = entry.sdr_version;
  record[3] = entry.record_type;
  record[SDR_LENGTH_BYTE] = entry.record_length;
  std::memcpy(record + SDR_HEADER_SIZE, entry.sdr_data.get(), entry.record_length);
  return SDR_HEADER_SIZE + entry.record_length;
}

void freespace(sdr_repository* repository) {
  repository->psdr_entry.reset();
  repository->room = 0;
  repository->record_count = 0;
  repository->source_name.reset();
}

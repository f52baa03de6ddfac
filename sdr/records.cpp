// The records in memory: appended, looked at, released.
#include <algorithm>

#include "base/memory.h"
#include "sdr/sdr.h"

sdr_entry* append_record(sdr_repository* repository, std::span<const uint8_t> record) {
  if (!make_room(&repository->psdr_entry, repository->record_count, &repository->room)) {
    return nullptr;
  }
  sdr_entry* entry = &repository->psdr_entry[repository->record_count++];
  entry->record_id_ls = record[0];
  entry->record_id_ms = record[1];
  entry->sdr_version = record[2];
  entry->record_type = record[3];
  entry->record_length = record[SDR_LENGTH_BYTE];
  entry->sdr_data = make_owned<uint8_t>(entry->record_length);
  const auto body = body_of(*entry);
  const auto held = record.subspan(SDR_HEADER_SIZE);
  std::ranges::copy(held.first(std::min(held.size(), body.size())), body.begin());
  return entry;
}

void freespace(sdr_repository* repository) {
  repository->psdr_entry.reset();
  repository->room = 0;
  repository->record_count = 0;
  repository->source_name.reset();
}

std::span<sdr_entry> entries_of(const sdr_repository& repository) {
  return {repository.psdr_entry.get(), repository.record_count};
}

std::array<uint8_t, SDR_HEADER_SIZE> header_of(const sdr_entry& entry) {
  return {entry.record_id_ls, entry.record_id_ms, entry.sdr_version, entry.record_type,
          entry.record_length};
}

std::span<uint8_t> body_of(const sdr_entry& entry) {
  return {entry.sdr_data.get(), entry.sdr_data ? entry.record_length : size_t{0}};
}

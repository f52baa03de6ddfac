// What the plain text of sensor records does not bring back: each is read back from memory.
#include "sdr/losses.h"

#include <algorithm>
#include <cstdio>

#include "base/error_text.h"
#include "base/notice.h"
#include "sdr/text.h"
#include "textfile/lines.h"

namespace {

constexpr unsigned NAMED = 8;          // records of a kind; the others are counted
constexpr size_t PLAIN_LENGTH = 0xFF;  // of a record that the plain form can spell

enum Kind : unsigned { NAME, REST, LENGTH };
constexpr unsigned KINDS = 3;
const char* const TEXTS[KINDS] = {
    "the name does not read back",
    "the bytes after the name are not dumped",
    "a record of more than 255 bytes does not read back",
};

struct Losses {
  unsigned count[KINDS];
  char ids[KINDS][NAMED * sizeof "0012,"];
};

void note_loss(Losses* losses, Kind kind, const sdr_entry& entry) {
  constexpr size_t STEP = sizeof "0012,";
  const unsigned number = losses->count[kind]++;
  if (number >= NAMED) return;
  char* id = losses->ids[kind] + (number > 0 ? number * STEP - 2 : 0);
  std::snprintf(id, STEP + 1, "%s%02X%02X", number > 0 ? ", " : "", entry.record_id_ms,
                entry.record_id_ls);
}

// What the record's own text is read as; false when that is refused.
bool read_back(const sdr_entry& entry, sdr_repository* again) {
  char text[RECORD_TEXT_ROOM];
  FILE* file = fmemopen(text, sizeof text, "w");
  if (file == nullptr) return false;
  put_sdr_text(file, {&entry, 1}, sdr_comments{});
  const off_t size = ftello(file);
  std::fclose(file);
  file = fmemopen(text, static_cast<size_t>(size), "r");
  if (file == nullptr) return false;
  const bool sound = load_sdr_text(file, again, nullptr);
  std::fclose(file);
  return sound;
}

void compare(const sdr_entry& entry, Losses* losses) {
  if (SDR_HEADER_SIZE + size_t{entry.record_length} > PLAIN_LENGTH) {
    return note_loss(losses, LENGTH, entry);
  }
  sdr_repository again{};
  const bool one = read_back(entry, &again) && again.record_count == 1;
  const auto body = body_of(entry);
  const auto got = one ? body_of(again.psdr_entry[0]) : std::span<uint8_t>{};
  const auto same = [&](size_t from, size_t to) {
    return got.size() == body.size() &&
           std::ranges::equal(body.subspan(from, to - from), got.subspan(from, to - from));
  };
  const auto id = id_string_of(entry);
  const size_t id_end = static_cast<size_t>(id.data() + id.size() - body.data());
  if (!same(0, id_end)) note_loss(losses, NAME, entry);
  if (id_end < body.size() && !same(id_end, body.size())) note_loss(losses, REST, entry);
  freespace(&again);
}

}  // namespace

void tell_sdr_losses(const char* path, const sdr_repository& repository) {
  Losses losses = {};
  blameFlag = 0;
  for (const sdr_entry& entry : entries_of(repository)) compare(entry, &losses);
  blameFlag = 1;
  forget_refusal();
  for (unsigned kind = 0; kind < KINDS; kind++) {
    const unsigned count = losses.count[kind];
    const char* ids = losses.ids[kind];
    if (count > NAMED) {
      hint_failed("SDR %s and %u more: %s; use --exact", ids, count - NAMED, TEXTS[kind]);
    } else if (count > 0) {
      hint_failed("SDR %s: %s; use --exact", ids, TEXTS[kind]);
    }
  }
  if (is_binary_sdr(path)) hint_failed("%s: under this name it is read as binary", path);
}

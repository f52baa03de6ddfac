// A script of raw requests.
#include "textfile/cfg.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <span>

#include "base/error_text.h"
#include "base/notice.h"
#include "base/process_end.h"
#include "base/regular_file.h"
#include "textfile/lines.h"
#include "textfile/signs.h"
#include "textfile/tokenizer.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

constexpr int STATUS_REFUSED = 1;
constexpr unsigned PIECES_UNSEEN = 256;  // looked at between two looks for a signal

// Closed whichever way the script ends.
using Script = std::unique_ptr<FILE, int (*)(FILE*)>;

void show_bytes(const char* label, std::span<const uint8_t> bytes) {
  std::printf("%s: ", label);
  for (const uint8_t byte : bytes) std::printf("%02X ", byte);
  std::putchar('\n');
}

void run_line(const char* line, unsigned number) {
  char cleaned[LINE_ROOM];
  process_string(line, cleaned);
  uint8_t request[CONTENT_SIZE];
  const unsigned length = get_content(cleaned, request);
  if (length == 0) return;
  if (length < REQUEST_DATA) {
    std::printf("line %u: %u of the 3 bytes that a request needs at least: not sent\n", number,
                length);
    return step_failed("line %u: the request is too short", number);
  }
  show_bytes("send", std::span(request).first(length));
  Response response;
  if (!exchange({request, length}, &response)) step_failed("line %u: %s", number, failure_text());
  show_bytes("recv", std::span(response.bytes).first(response.length));
  std::putchar('\n');
}

// A script may be a FIFO or a terminal: a signal ends the wait for its next line.
Script open_script(const char* path) {
  const Signals_let_in while_waiting;
  return {std::fopen(path, "re"), std::fclose};
}

bool next_script_line(Lines* lines) {
  const Signals_let_in while_waiting;
  return next_line(lines);
}

// True when the line is a request.
bool note_request(const Lines& lines, File_signs* signs) {
  char cleaned[LINE_ROOM];
  process_string(lines.text, cleaned);
  if (cleaned[0] == '\0') return false;
  note_line(signs, lines.text, lines.number);
  note_bytes(signs, cleaned, lines.number);
  uint8_t request[CONTENT_SIZE];
  const unsigned length = get_content(cleaned, request);
  if (length > 0 && length < REQUEST_DATA) note_sign(signs, Sign::short_request, lines.number);
  return true;
}

// A script that cannot be read before it is run is looked at line by line.
void check_line(const Lines& lines, const char* path) {
  File_signs signs = {};
  note_request(lines, &signs);
  tell_signs(signs, path);
  if (warnings_refuse()) end_process(STATUS_REFUSED);
}

}  // namespace

void look_at_script(const char* path) {
  bool other = false;
  const Script script(regular_open(path, &other), std::fclose);
  if (!script) return;
  Lines lines = {};
  lines.file = script.get();
  lines.room = LINE_ROOM;
  File_signs signs = {};
  bool any = false;
  blameFlag = 0;
  for (unsigned pieces = 1; next_line(&lines); pieces++) {
    if (pieces % PIECES_UNSEEN == 0) interrupt_point();
    any = note_request(lines, &signs) || any;
  }
  blameFlag = 1;
  if (!any) note_sign(&signs, Sign::no_record, 0);
  tell_signs(signs, path);
}

void process_cfg(const char* path) {
  const Script script = open_script(path);
  const int reason = errno;
  interrupt_point();
  if (!script) return hint_failed("%s: %s", path, std::strerror(reason));
  const bool looked_at = is_regular(script.get());
  Lines lines = {};
  lines.file = script.get();
  lines.room = LINE_ROOM;
  while (next_script_line(&lines)) {
    interrupt_point();
    if (!looked_at) check_line(lines, path);
    run_line(lines.text, lines.number);
  }
  if (lines.too_long) hint_failed("%s: %s", path, refusal());
  if (std::ferror(script.get()) != 0) hint_failed("%s: %s", path, std::strerror(errno));
}

// A script of raw requests.
#include "textfile/cfg.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

#include "textfile/lines.h"
#include "textfile/tokenizer.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

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
    return;
  }
  show_bytes("send", std::span(request).first(length));
  Response response;
  exchange({request, length}, &response);
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

}  // namespace

void process_cfg(const char* path) {
  const Script script = open_script(path);
  if (!script) return;
  Lines lines = {};
  lines.file = script.get();
  lines.room = LINE_ROOM;
  while (next_script_line(&lines)) {
    interrupt_point();
    run_line(lines.text, lines.number);
  }
}

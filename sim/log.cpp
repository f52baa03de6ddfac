// The log of the simulated server: in memory, and in a file when one is asked for.
#include "sim/log.h"

#include <cstdio>

#include "sim/text.h"

namespace sim {

namespace {

constexpr size_t TRANSCRIPT_LIMIT = size_t{64} << 20;

struct Log {
  std::string transcript;
  FILE* file = nullptr;
};

// Never destroyed: exit handlers still need it.
Log& the_log() {
  static Log* const kept = new Log();
  return *kept;
}

void write_line(const std::string& line) {
  if (the_log().file != nullptr) std::fprintf(the_log().file, "%s\n", line.c_str());
}

void add_line(const std::string& line) {
  std::string& text = the_log().transcript;
  if (text.size() + line.size() < TRANSCRIPT_LIMIT) text.append(line).append(1, '\n');
  write_line(line);
}

}  // namespace

void log_request(const Bytes& request) {
  add_line(hex_text(request));
}

void log_pause(uint64_t microseconds) {
  add_line("sleep " + std::to_string(microseconds));
}

void log_poke(uint8_t value) {
  add_line("poke " + hex_text({value}));
}

void log_response(const Bytes& response) {
  write_line("< " + hex_text(response));
}

std::string transcript() {
  return the_log().transcript;
}

void clear_log() {
  the_log().transcript.clear();
}

bool log_to(const std::string& path) {
  FILE*& file = the_log().file;
  if (file != nullptr) std::fclose(file);
  file = std::fopen(path.c_str(), "ae");
  if (file == nullptr) return false;
  std::setvbuf(file, nullptr, _IOLBF, BUFSIZ);
  return true;
}

}  // namespace sim

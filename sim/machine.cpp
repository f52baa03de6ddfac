// The one simulated machine: how it starts, serves, logs and ends.
#include "sim/machine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int POWER_CUT_STATUS = 137;
constexpr uint64_t SECOND_US = 1000000;
constexpr size_t TRANSCRIPT_LIMIT = size_t{64} << 20;

struct Records {
  std::string transcript;
  FILE* log = nullptr;
  std::string state_path;
  std::string transcript_path;
  bool at_exit = false;
};

bool ready = false;
Machine the_machine;

// Never destroyed: exit handlers still need it.
Records& records() {
  static Records* const kept = new Records();
  return *kept;
}

void log_only(const std::string& line) {
  if (records().log != nullptr) std::fprintf(records().log, "%s\n", line.c_str());
}

void note(const std::string& line) {
  std::string& text = records().transcript;
  if (text.size() + line.size() < TRANSCRIPT_LIMIT) text.append(line).append(1, '\n');
  log_only(line);
}

void finish_at_exit() {
  if (records().at_exit) return;
  records().at_exit = true;
  std::atexit(finish);
}

[[noreturn]] void cut_power() {
  std::fflush(stdout);
  finish();
  // No exit handlers: what the program had not written yet is lost.
  _exit(POWER_CUT_STATUS);
}

}  // namespace

Machine& machine() {
  if (!ready) {
    reset(Kind::card);
    configure_from_environment();
  }
  return the_machine;
}

void reset(Kind kind) {
  ready = true;
  the_machine = Machine();
  records().transcript.clear();
  the_machine.bmc.has_card = kind == Kind::card;
  the_machine.interfaces = {{"lo", Bytes(6), {127, 0, 0, 1}}};
  if (kind == Kind::card) the_machine.ports = {{0xCAC, 0xCA8}};
  if (kind == Kind::plain) the_machine.ports = {{0xCA3, 0xCA2}};
  if (kind == Kind::none) the_machine.devices.clear();
}

bool is_away(const Machine& machine) {
  return machine.now_us >= machine.bmc.gone_at_us && machine.now_us < machine.bmc.back_at_us;
}

Answer serve(const Bytes& request) {
  note(hex_text(request));
  if (is_away(the_machine)) {
    Answer nothing;
    nothing.silent = true;
    return nothing;
  }
  Answer result = answer(the_machine.bmc, request);
  if (result.power_cut) {
    card_power_cut(the_machine.bmc.card);
    cut_power();
  }
  if (!result.silent) log_only("< " + hex_text(result.bytes));
  return result;
}

uint32_t time_now() {
  return machine().epoch + static_cast<uint32_t>(machine().now_us / SECOND_US);
}

void pause(uint64_t microseconds) {
  machine().now_us += microseconds;
  note("sleep " + std::to_string(microseconds));
}

void log_poke(uint8_t value) {
  note("poke " + hex_text({value}));
}

std::string transcript() {
  return records().transcript;
}

bool log_to(const std::string& path) {
  Records& kept = records();
  if (kept.log != nullptr) std::fclose(kept.log);
  kept.log = std::fopen(path.c_str(), "ae");
  if (kept.log == nullptr) return false;
  std::setvbuf(kept.log, nullptr, _IOLBF, BUFSIZ);
  return true;
}

void keep_state(const std::string& path) {
  load_state(path, machine().bmc);
  records().state_path = path;
  finish_at_exit();
}

void keep_transcript(const std::string& path) {
  records().transcript_path = path;
  finish_at_exit();
}

void finish() {
  const Records& kept = records();
  if (!kept.state_path.empty() && !save_state(kept.state_path, the_machine.bmc)) {
    std::fprintf(stderr, "%s: the state cannot be written\n", kept.state_path.c_str());
  }
  if (kept.transcript_path.empty()) return;
  FILE* file = std::fopen(kept.transcript_path.c_str(), "we");
  if (file == nullptr) return;
  std::fwrite(kept.transcript.data(), 1, kept.transcript.size(), file);
  std::fclose(file);
}

}  // namespace sim

// The one simulated machine: how it starts, serves and ends.
#include "sim/machine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int POWER_CUT_STATUS = 137;

// Where to keep what when the process ends.
struct Keeping {
  std::string state_path;
  std::string transcript_path;
  bool at_exit = false;
};

bool ready = false;
Machine the_machine;

// Never destroyed: exit handlers still need it.
Keeping& keeping() {
  static Keeping* const kept = new Keeping();
  return *kept;
}

void finish_at_exit() {
  if (keeping().at_exit) return;
  keeping().at_exit = true;
  std::atexit(finish);
}

[[noreturn]] void die() {
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
  clear_log();
  the_machine.bmc.has_card = kind == Kind::card;
  the_machine.interfaces = {{"lo", Bytes(6), {127, 0, 0, 1}}};
  if (kind == Kind::card) the_machine.ports = {{0xCAC, 0xCA8}};
  if (kind == Kind::plain) the_machine.ports = {{0xCA3, 0xCA2}};
  if (kind == Kind::none) the_machine.devices.clear();
}

Answer serve(const Bytes& request) {
  log_request(request);
  if (is_away(the_machine.bmc)) {
    Answer nothing;
    nothing.silent = true;
    return nothing;
  }
  Answer result = answer(the_machine.bmc, request);
  if (result.power_cut) {
    card_power_cut(the_machine.bmc.card);
    die();
  }
  if (!result.silent) log_response(result.bytes);
  return result;
}

void pause(uint64_t microseconds) {
  machine().bmc.clock.now_us += microseconds;
  log_pause(microseconds);
}

void keep_state(const std::string& path) {
  load_state(path, machine().bmc);
  keeping().state_path = path;
  finish_at_exit();
}

void keep_transcript(const std::string& path) {
  keeping().transcript_path = path;
  finish_at_exit();
}

void finish() {
  const Keeping& kept = keeping();
  if (!kept.state_path.empty() && !save_state(kept.state_path, the_machine.bmc)) {
    std::fprintf(stderr, "%s: the state cannot be written\n", kept.state_path.c_str());
  }
  if (kept.transcript_path.empty()) return;
  FILE* file = std::fopen(kept.transcript_path.c_str(), "we");
  if (file == nullptr) return;
  const std::string lines = transcript();
  std::fwrite(lines.data(), 1, lines.size(), file);
  std::fclose(file);
}

}  // namespace sim

// The one simulated machine: how it starts, serves and ends.
#include "sim/machine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int POWER_CUT_STATUS = 137;

bool ready = false;
Machine the_machine;

// Where the contents are kept when the process ends. Never destroyed: exit handlers still need it.
std::string& state_path() {
  static std::string* const kept = new std::string();
  return *kept;
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
  if (state_path().empty()) std::atexit(finish);
  state_path() = path;
}

void finish() {
  if (!state_path().empty() && !save_state(state_path(), the_machine.bmc)) {
    std::fprintf(stderr, "%s: the state cannot be written\n", state_path().c_str());
  }
}

}  // namespace sim

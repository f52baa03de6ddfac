// What a signal does to a run.
#include "transport/interrupt.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/dump_file.h"
#include "base/notice.h"
#include "base/process_end.h"
#include "base/progress.h"
#include "platform/platform.h"
#include "transport/waiting.h"

namespace {

constexpr uint64_t PATIENCE_MS = 10000;

// For each Unfinished: what is finished first after a signal, and what is left if that fails.
struct Texts {
  const char* first;
  const char* left;
};
const Texts TEXTS[] = {
    {"ended before the BMC was touched", nullptr},
    {"the request under way is finished first, so that the BMC's interface stays usable", nullptr},
    {"the card leaves its downloader first, because it would stay in it",
     "the card may still be in its downloader: give the same command again, or -e 18 02"},
    {"the firmware update is finished first, because a card with half a firmware does not start",
     "the firmware is only half updated, and the card may still be in its downloader: "
     "give the same command again (-e 18 02 leaves the downloader)"},
    {"the sensor records are written first, because the BMC's own are erased",
     "the BMC has only some of its sensor records: give the same command again"},
    {"the BMC is reset first, because that ends an update of its sensor records",
     "the sensor records are written, but the BMC may not be reset: -e 18 02 resets it"},
    {"the inventory is written first, because half an inventory cannot be read",
     "the inventory is only partly written: give the same command again"},
    {"the address and its source are set first, because they belong together",
     "the address or its source may not be set: give the same option again"},
};

Unfinished under_way = Unfinished::start;
bool said = false;
uint64_t wait_start_ms = 0;

const Texts& texts() {
  return TEXTS[static_cast<unsigned>(under_way)];
}

// Runs at every end of the process, so that a shell sees the signal.
void end_as_interrupted() {
  const int number = platform::signals_pending();
  if (number == 0) return;
  if (!said) notice("%s: the run had come to its end", ::strsignal(number));
  std::fflush(nullptr);
  platform::end_by_signal(number);
}

[[noreturn]] void end_run() {
  dump_abandon();
  end_process(EXIT_FAILURE);  // which calls end_as_interrupted
}

}  // namespace

void hold_signals() {
  under_way = Unfinished::start;
  said = false;
  platform::signals_hold();
  at_process_end(end_as_interrupted);
}

void now_under_way(Unfinished what) {
  interrupt_point();
  under_way = what;
  interrupt_point();
}

bool interrupted() {
  const int number = platform::signals_pending();
  if (number == 0) return false;
  if (!said) notice("%s: %s", ::strsignal(number), texts().first);
  said = true;
  return true;
}

void stop_point() {
  if (!platform::signals_stop_wanted()) return;
  progress_end();
  platform::signals_stop_here();
}

void interrupt_point() {
  stop_point();
  const bool may_end = under_way == Unfinished::start || under_way == Unfinished::nothing;
  if (interrupted() && may_end) end_run();
}

void wait_began() {
  wait_start_ms = platform::clock_ms();
}

void wait_point() {
  show_wait();
  if (!interrupted() || platform::clock_ms() - wait_start_ms <= PATIENCE_MS) return;
  const char* left = texts().left;
  notice("no answer from the BMC for 10 seconds: %s",
         left != nullptr ? left : "the last request may not have been carried out");
  end_run();
}

void hint_unfinished() {
  if (texts().left != nullptr) remark("%s", texts().left);
}

Signals_let_in::Signals_let_in() {
  platform::signals_let_in(true);
}

Signals_let_in::~Signals_let_in() {
  platform::signals_let_in(false);
}

// Waits that a person should see.
#include "transport/waiting.h"

#include <cstdint>

#include "base/progress.h"
#include "platform/platform.h"

namespace {

constexpr uint64_t SILENT_MS = 3000;

// The wait that shows itself.
struct {
  const Wait* wait;  // null: none
  const char* what;
  uint64_t start_ms;
  unsigned shown_s;  // 0: it has not shown itself
} outermost;

}  // namespace

Wait::Wait(const char* what) {
  if (progressFlag == 0 || outermost.wait != nullptr) return;
  outermost = {this, what, platform::clock_ms(), 0};
}

Wait::~Wait() {
  if (outermost.wait != this) return;
  if (outermost.shown_s > 0) progress_end();
  outermost = {};
}

void show_wait() {
  if (outermost.wait == nullptr) return;
  const uint64_t waited_ms = platform::clock_ms() - outermost.start_ms;
  const unsigned seconds = static_cast<unsigned>(waited_ms / 1000);
  if (waited_ms <= SILENT_MS || seconds == outermost.shown_s) return;
  outermost.shown_s = seconds;
  progress_wait(outermost.what, seconds);
}

void wait_seconds(unsigned seconds) {
  platform::sleep(seconds, outermost.wait != nullptr ? show_wait : nullptr);
}

// Waits that a person should see: after 3 seconds a line on a terminal's standard error says what
// is waited for, and how long; it is gone when the wait is over.
#pragma once

// A wait, while it lives. One within another does not show itself.
struct Wait {
  // `what` completes "waiting for ..."; it must outlive the wait.
  explicit Wait(const char* what);
  ~Wait();
  Wait(const Wait&) = delete;
  Wait& operator=(const Wait&) = delete;
};

// Called again and again during a wait: shows it, or renews its seconds.
void show_wait();

// Sleeps, and shows the wait meanwhile.
void wait_seconds(unsigned seconds);

// What a signal does to a run: it ends the run between two requests, once what must not stay half
// done is finished.
#pragma once

// What is under way, and would be left half done.
enum class Unfinished {
  start,       // the BMC has not been touched: a signal ends the run
  nothing,     // a signal ends the run before the next request
  downloader,  // the card is in its downloader, its flash as it was
  firmware,    // the flash is being programmed
  sdr,         // the sensor records are erased
  sdr_reset,   // they are written, and the BMC is to be reset
  fru,         // an inventory is being written
  address,     // one of two LAN settings that belong together
};

// Holds signals back from now on. When one has come, the process ends by it, however it ends.
void hold_signals();

// Sets what is under way from here on; until the first call it is `start`. A signal that has come
// ends the run here when nothing was under way or nothing is now.
void now_under_way(Unfinished what);

// True when a signal has come: what is under way must come to its end, nothing else may begin. The
// first call that sees it prints a line that says what is finished first, and why.
bool interrupted();

// The run stops here if the terminal asks it to.
void stop_point();

// Before a request: the run stops here if the terminal asks it to, and ends here by a signal that
// has come, unless something is under way.
void interrupt_point();

// wait_began: from now on the BMC is waited for. wait_point, called again and again while it is:
// ends the run once 10 seconds have passed and a signal has come, after a line that says what is
// left undone.
void wait_began();
void wait_point();

// After the interface has failed: prints a hint that says what is left undone, if anything is.
void hint_unfinished();

// While it lives, a signal ends a call that blocks on a file.
struct Signals_let_in {
  Signals_let_in();
  ~Signals_let_in();
  Signals_let_in(const Signals_let_in&) = delete;
  Signals_let_in& operator=(const Signals_let_in&) = delete;
};

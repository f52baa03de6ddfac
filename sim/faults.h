// What may go wrong with a request to the simulated BMC, and the language in which people say it:
//   "refuse cmd=25 skip=3 value=c4; shorten cmd=23 value=7"
#pragma once
#include "sim/types.h"

namespace sim {

// The kinds, one row each in the table FAULT_KINDS (sim/faults.cpp), which says what each does.
enum class FaultKind {
  refuse,
  answer,
  shorten,
  lengthen,
  silent,
  stall,
  late,
  write_error,
  read_error,
  no_dummy,
  attention,
  power_cut,
  raise_signal,
  close_output,
};

// Which requests are hit, and with what.
struct Fault {
  FaultKind kind = FaultKind::refuse;
  int netfn = -1;  // not shifted; -1: any
  int command = -1;
  unsigned skip = 0;   // matching requests that pass first
  unsigned times = 1;  // then so many are hit; 0: all that follow
  unsigned value = 0;
  Bytes bytes = {};
  unsigned seen = 0;  // matching requests so far
};

// When a kind acts on a request.
enum class FaultPoint {
  byte,      // byte number `value` of the request arrives, from 0, which is NetFn/LUN
  arrival,   // the request is whole; it is carried out after the fault has acted
  instead,   // the request is not carried out; of several such faults the first one acts
  answered,  // the request was carried out, or refused
};

struct FaultRow {
  FaultKind kind;
  const char* name;
  FaultPoint point;
  void (*act)(const Fault& fault, Answer& answer);  // `answer.bytes`: completion code, data
  const char* effect;                               // for people
};

// All rows, in the order in which people read them.
std::span<const FaultRow> fault_kinds();

// The faults that a text describes, "KIND [KEY=VALUE]...; ...". Which requests are hit: netfn (not
// shifted) and cmd, hexadecimal; any without them. How many: first `skip` of these pass (decimal; 0
// without it), then `times` are hit (1 without it; 0: all). Value and bytes are hexadecimal.
// A text that is not understood aborts the process, after a line on standard error.
std::vector<Fault> faults(const std::string& text);

// The same, appended to `list`. False when the text is not understood: then `wrong` is the part of
// it that is not.
bool parse_faults(const std::string& text, std::vector<Fault>& list, std::string& wrong);

// Counts a whole request (NetFn/LUN, command, data) for each fault that it matches; returns those
// that hit it, in the order of the list. Faults that act on a single byte are left out.
std::vector<const Fault*> hit_faults(std::vector<Fault>& list, const Bytes& request);

// True when a fault hits the byte that has just arrived, the last of `received`.
bool byte_is_hit(std::vector<Fault>& list, const Bytes& received);

const FaultRow& row_of(const Fault& fault);

}  // namespace sim

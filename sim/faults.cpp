// The kinds of faults, the language in which they are written, and which requests they hit.
#include "sim/faults.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "sim/text.h"

namespace sim {

namespace {

constexpr uint8_t PADDING = 0xEE;

void refuse_request(const Fault& fault, Answer& answer) {
  answer.bytes = {static_cast<uint8_t>(fault.value)};
}

void keep_silent(const Fault&, Answer& answer) {
  answer.silent = true;
}

void cut_power(const Fault&, Answer& answer) {
  answer.power_cut = true;
}

void send_signal(const Fault& fault, Answer&) {
  std::raise(static_cast<int>(fault.value));
}

// Standard output becomes a pipe that nobody reads.
void close_output(const Fault&, Answer&) {
  int ends[2];
  if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) std::abort();
  close(ends[0]);
  close(ends[1]);
}

void answer_other_bytes(const Fault& fault, Answer& answer) {
  answer.bytes = fault.bytes;
}

void shorten_answer(const Fault& fault, Answer& answer) {
  answer.bytes.resize(std::min<size_t>(answer.bytes.size(), fault.value));
}

void lengthen_answer(const Fault& fault, Answer& answer) {
  answer.bytes.resize(std::max<size_t>(answer.bytes.size(), fault.value), PADDING);
}

void stall_answer(const Fault& fault, Answer& answer) {
  answer.stall = fault.value;
}

void delay_answer(const Fault& fault, Answer& answer) {
  answer.late_s = fault.value;
}

void break_answer(const Fault& fault, Answer& answer) {
  answer.read_error = static_cast<int>(fault.value);
}

void leave_out_dummy(const Fault&, Answer& answer) {
  answer.no_dummy = true;
}

void raise_attention(const Fault&, Answer& answer) {
  answer.attention = true;
}

using enum FaultPoint;

constexpr FaultRow FAULT_KINDS[] = {
    {FaultKind::refuse, "refuse", instead, refuse_request,
     "not carried out, answered with completion code VALUE"},
    {FaultKind::answer, "answer", answered, answer_other_bytes,
     "carried out, but answered with exactly BYTES (completion code, data; may be empty)"},
    {FaultKind::shorten, "shorten", answered, shorten_answer,
     "the answer (completion code, data) is cut to VALUE bytes"},
    {FaultKind::lengthen, "lengthen", answered, lengthen_answer,
     "the answer is filled up with EE to VALUE bytes"},
    {FaultKind::silent, "silent", instead, keep_silent, "never answered: the interface stays busy"},
    {FaultKind::stall, "stall", answered, stall_answer,
     "KCS is busy for VALUE reads of the status register before it answers"},
    {FaultKind::late, "late", answered, delay_answer, "the answer comes VALUE seconds later"},
    {FaultKind::write_error, "write_error", byte, nullptr,
     "KCS enters ERROR_STATE when byte VALUE of the request arrives"},
    {FaultKind::read_error, "read_error", answered, break_answer,
     "KCS enters ERROR_STATE when byte VALUE of the response is asked for"},
    {FaultKind::no_dummy, "no_dummy", answered, leave_out_dummy,
     "KCS never offers the byte that ends a response"},
    {FaultKind::attention, "attention", answered, raise_attention,
     "SMS_ATN is raised once the answer is ready"},
    {FaultKind::power_cut, "power_cut", instead, cut_power,
     "the machine dies first: contents are kept, the process ends with status 137"},
    {FaultKind::raise_signal, "signal", arrival, send_signal,
     "the process gets signal VALUE, then the request is carried out"},
    {FaultKind::close_output, "close_output", arrival, close_output,
     "the reader of standard output goes away, then the request is carried out"},
};

bool parse_key(const std::string& word, Fault& fault) {
  constexpr uint32_t MOST = 0xFFFFFF;
  const size_t equals = word.find('=');
  if (equals == std::string::npos) return false;
  const std::string key = word.substr(0, equals);
  const std::string value = word.substr(equals + 1);
  uint32_t number = 0;
  if (key == "bytes") return parse_hex(value, fault.bytes);
  if (key == "skip") return parse_number(value, 10, MOST, fault.skip);
  if (key == "times") return parse_number(value, 10, MOST, fault.times);
  if (key == "value") return parse_number(value, 16, MOST, fault.value);
  if (key == "netfn" && parse_number(value, 16, 0x3F, number)) {
    fault.netfn = static_cast<int>(number);
    return true;
  }
  if (key == "cmd" && parse_number(value, 16, 0xFF, number)) {
    fault.command = static_cast<int>(number);
    return true;
  }
  return false;
}

bool parse_fault(const std::string& text, Fault& fault) {
  const std::vector<std::string> words = split(text, ' ');
  const auto row =
      std::find_if(std::begin(FAULT_KINDS), std::end(FAULT_KINDS),
                   [&](const FaultRow& candidate) { return words.front() == candidate.name; });
  if (row == std::end(FAULT_KINDS)) return false;
  fault.kind = row->kind;
  return std::all_of(words.begin() + 1, words.end(),
                     [&](const std::string& word) { return parse_key(word, fault); });
}

bool matches(const Fault& fault, const Bytes& request) {
  const bool netfn = fault.netfn < 0 || (!request.empty() && request[0] >> 2 == fault.netfn);
  const bool command = fault.command < 0 || (request.size() > 1 && request[1] == fault.command);
  return netfn && command;
}

// Counts a matching request; true when this one is hit.
bool hits(Fault& fault, const Bytes& request) {
  if (!matches(fault, request)) return false;
  const unsigned earlier = fault.seen++;
  return earlier >= fault.skip && (fault.times == 0 || earlier - fault.skip < fault.times);
}

}  // namespace

std::span<const FaultRow> fault_kinds() {
  return FAULT_KINDS;
}

const FaultRow& row_of(const Fault& fault) {
  return *std::find_if(std::begin(FAULT_KINDS), std::end(FAULT_KINDS),
                       [&](const FaultRow& row) { return row.kind == fault.kind; });
}

bool parse_faults(const std::string& text, std::vector<Fault>& list, std::string& wrong) {
  for (const std::string& part : split(text, ';')) {
    Fault fault;
    wrong = part;
    if (!parse_fault(part, fault)) return false;
    list.push_back(fault);
  }
  return true;
}

std::vector<Fault> faults(const std::string& text) {
  std::vector<Fault> list;
  std::string wrong;
  if (parse_faults(text, list, wrong)) return list;
  std::fprintf(stderr, "sim::faults: \"%s\" is not understood\n", wrong.c_str());
  std::abort();
}

std::vector<const Fault*> hit_faults(std::vector<Fault>& list, const Bytes& request) {
  std::vector<const Fault*> hit;
  for (Fault& fault : list) {
    if (row_of(fault).point != byte && hits(fault, request)) hit.push_back(&fault);
  }
  return hit;
}

bool byte_is_hit(std::vector<Fault>& list, const Bytes& received) {
  bool hit = false;
  for (Fault& fault : list) {
    if (row_of(fault).point != byte || received.size() != fault.value + size_t{1}) continue;
    hit = hits(fault, received) || hit;
  }
  return hit;
}

}  // namespace sim

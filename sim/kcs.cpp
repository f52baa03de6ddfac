// The BMC's side of the KCS interface (IPMI v2.0, "KCS Interface").
#include "sim/kcs.h"

#include <utility>

namespace sim {

namespace {

// Status register.
constexpr uint8_t OBF = 0x01;
constexpr uint8_t IBF = 0x02;
constexpr uint8_t SMS_ATN = 0x04;
constexpr uint8_t COMMAND_DATA = 0x08;
constexpr uint8_t IDLE_STATE = 0x00;
constexpr uint8_t READ_STATE = 0x40;
constexpr uint8_t WRITE_STATE = 0x80;
constexpr uint8_t ERROR_STATE = 0xC0;

// Control codes.
constexpr uint8_t ABORT = 0x60;
constexpr uint8_t WRITE_START = 0x61;
constexpr uint8_t WRITE_END = 0x62;
constexpr uint8_t READ = 0x68;

// Status codes of the abort sequence.
constexpr uint8_t NO_ERROR = 0x00;
constexpr uint8_t ABORTED = 0x01;
constexpr uint8_t ILLEGAL_CODE = 0x02;
constexpr uint8_t LENGTH_ERROR = 0x06;
constexpr uint8_t UNSPECIFIED_ERROR = 0xFF;

constexpr size_t REQUEST_ROOM = 1024;

void change_phase(Kcs& kcs, KcsPhase phase, uint8_t state) {
  kcs.phase = phase;
  kcs.state = state;
}

void offer(Kcs& kcs, uint8_t value) {
  kcs.output = value;
  kcs.output_full = true;
}

void fail(Kcs& kcs, uint8_t error) {
  kcs.error = error;
  change_phase(kcs, KcsPhase::error, ERROR_STATE);
  offer(kcs, 0);
}

// The next response byte, or the end of the response.
void offer_next(Kcs& kcs) {
  if (kcs.answer.read_error >= 0 && kcs.next == static_cast<size_t>(kcs.answer.read_error)) {
    fail(kcs, UNSPECIFIED_ERROR);
  } else if (kcs.next < kcs.answer.bytes.size()) {
    change_phase(kcs, KcsPhase::read, READ_STATE);
    offer(kcs, kcs.answer.bytes[kcs.next++]);
  } else {
    change_phase(kcs, KcsPhase::idle, IDLE_STATE);
    if (!kcs.answer.no_dummy) offer(kcs, 0);
  }
}

// True when the request is whole.
bool take_request_byte(Kcs& kcs, Bmc& bmc, uint8_t value) {
  const bool fits = kcs.request.size() < REQUEST_ROOM;
  if (fits) kcs.request.push_back(value);
  if (!fits || byte_is_hit(bmc.faults, kcs.request)) {
    fail(kcs, fits ? UNSPECIFIED_ERROR : LENGTH_ERROR);
    return false;
  }
  if (kcs.phase == KcsPhase::write_last) return true;
  offer(kcs, 0);
  return false;
}

// A data byte outside a request.
void take_control_byte(Kcs& kcs, uint8_t value) {
  switch (kcs.phase) {
    case KcsPhase::read:
      return value == READ ? offer_next(kcs) : fail(kcs, ILLEGAL_CODE);
    case KcsPhase::abort_status:
      change_phase(kcs, KcsPhase::abort_end, READ_STATE);
      return offer(kcs, std::exchange(kcs.error, NO_ERROR));
    case KcsPhase::abort_end:
      if (value != READ) return fail(kcs, ILLEGAL_CODE);
      change_phase(kcs, KcsPhase::idle, IDLE_STATE);
      return offer(kcs, 0);
    default:
      return fail(kcs, ILLEGAL_CODE);
  }
}

// Whether the BMC has finished with the request; counts a read of the status register.
bool is_ready(Kcs& kcs, const Bmc& bmc) {
  if (kcs.answer.silent || bmc.clock.now_us < kcs.ready_us) return false;
  return kcs.answer.stall == 0 || --kcs.answer.stall == 0;
}

}  // namespace

uint8_t kcs_read_status(Kcs& kcs, const Bmc& bmc) {
  if (kcs.phase == KcsPhase::busy && kcs.input_full && is_ready(kcs, bmc)) {
    kcs.input_full = false;
    offer_next(kcs);
  }
  return static_cast<uint8_t>(kcs.state | (kcs.last_was_command ? COMMAND_DATA : 0) |
                              (attention(bmc) ? SMS_ATN : 0) | (kcs.input_full ? IBF : 0) |
                              (kcs.output_full ? OBF : 0));
}

uint8_t kcs_read_data(Kcs& kcs) {
  kcs.output_full = false;
  return kcs.output;
}

void kcs_write_command(Kcs& kcs, uint8_t value) {
  if (kcs.input_full) return;
  kcs.last_was_command = true;
  switch (value) {
    case WRITE_START:
      kcs.request.clear();
      kcs.error = NO_ERROR;
      change_phase(kcs, KcsPhase::write, WRITE_STATE);
      return offer(kcs, 0);
    case WRITE_END:
      if (kcs.phase != KcsPhase::write || kcs.request.empty()) return fail(kcs, ILLEGAL_CODE);
      kcs.phase = KcsPhase::write_last;
      return offer(kcs, 0);
    case ABORT:
      if (kcs.error == NO_ERROR) kcs.error = ABORTED;
      change_phase(kcs, KcsPhase::abort_status, WRITE_STATE);
      return offer(kcs, 0);
    default:
      return fail(kcs, ILLEGAL_CODE);
  }
}

bool kcs_write_data(Kcs& kcs, Bmc& bmc, uint8_t value) {
  if (kcs.input_full) return false;
  kcs.last_was_command = false;
  if (kcs.phase == KcsPhase::write || kcs.phase == KcsPhase::write_last) {
    return take_request_byte(kcs, bmc, value);
  }
  take_control_byte(kcs, value);
  return false;
}

void kcs_take_answer(Kcs& kcs, const Bmc& bmc, const Answer& answer) {
  kcs.request.clear();
  kcs.answer = answer;
  kcs.next = 0;
  kcs.ready_us = bmc.clock.now_us + answer.late_s * SECOND_US;
  kcs.input_full = answer.silent || answer.stall > 0 || answer.late_s > 0;
  kcs.phase = KcsPhase::busy;
  if (!kcs.input_full) offer_next(kcs);
}

}  // namespace sim

// One KCS interface of the simulated BMC: data register and command/status register.
#pragma once
#include "sim/bmc.h"

namespace sim {

// What the interface expects next.
enum class KcsPhase {
  idle,
  write,         // request bytes, or WRITE_END
  write_last,    // the last request byte
  busy,          // nothing: the BMC is at work
  read,          // READ
  error,         // GET_STATUS/ABORT
  abort_status,  // any data byte, answered with the status code
  abort_end,     // READ, answered with the dummy byte
};

struct Kcs {
  uint16_t command_port = 0;
  uint16_t data_port = 0;

  KcsPhase phase = KcsPhase::idle;
  uint8_t state = 0;  // bits 7..6 of the status register
  bool output_full = false;
  bool input_full = false;
  bool last_was_command = false;
  uint8_t output = 0;  // what the data register reads
  uint8_t error = 0;   // status code for the abort sequence
  Bytes request = {};
  Answer answer = {};
  size_t next = 0;        // next byte of the answer to offer
  uint64_t ready_us = 0;  // when the BMC has it
};

uint8_t kcs_read_status(Kcs& kcs, const Bmc& bmc);
uint8_t kcs_read_data(Kcs& kcs);
void kcs_write_command(Kcs& kcs, uint8_t value);
// True when the last byte of `request` has arrived: it is to be carried out, and the answer handed
// to kcs_take_answer.
bool kcs_write_data(Kcs& kcs, Bmc& bmc, uint8_t value);
void kcs_take_answer(Kcs& kcs, const Bmc& bmc, const Answer& answer);

}  // namespace sim

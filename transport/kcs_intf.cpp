// KCS port driver.
#include "transport/kcs_intf.h"

#include "base/progress.h"
#include "platform/platform.h"
#include "transport/bmc.h"
#include "transport/interrupt.h"

KCS_parameters KCS_para;
KCS_wait_bounds KCS_bounds = {10000, 200000};

namespace {

// Status register.
constexpr uint8_t OBF = 0x01;
constexpr uint8_t IBF = 0x02;
constexpr uint8_t SMS_ATN = 0x04;
constexpr uint8_t STATE_MASK = 0xC0;
constexpr uint8_t IDLE_STATE = 0x00;
constexpr uint8_t READ_STATE = 0x40;
constexpr uint8_t WRITE_STATE = 0x80;

// Control codes: READ goes to the data register, the others to the command register.
constexpr uint8_t ABORT = 0x60;
constexpr uint8_t WRITE_START = 0x61;
constexpr uint8_t WRITE_END = 0x62;
constexpr uint8_t READ = 0x68;

constexpr uint8_t NOTHING = 0xFF;  // what an absent port reads

constexpr uint16_t DEFAULT_CMD_PORT = 0xCAC;
constexpr uint16_t DEFAULT_DATA_PORT = 0xCA8;
constexpr uint32_t DEFAULT_TIMEOUT = 10000;

constexpr unsigned POLL_SLEEP_US = 50;
constexpr uint16_t POKE_PORT = 0xE6;
constexpr uint8_t POKE_VALUE = 0x80;
constexpr unsigned POKES = 3;
constexpr unsigned POKE_SLEEP_US = 100000;
constexpr unsigned POKE_POLLS = 200;
constexpr unsigned POKE_POLL_SLEEP_US = 10000;
constexpr unsigned ABORT_ATTEMPTS = 5;
constexpr unsigned ABORT_SLEEP_US = 200000;

uint8_t read_status() {
  return platform::inb(static_cast<uint16_t>(KCS_para.cmd_port));
}

uint8_t read_state() {
  return read_status() & STATE_MASK;
}

uint8_t read_data_port() {
  return platform::inb(static_cast<uint16_t>(KCS_para.data_port));
}

void write_command_port(uint8_t value) {
  platform::outb(value, static_cast<uint16_t>(KCS_para.cmd_port));
}

void write_data_port(uint8_t value) {
  platform::outb(value, static_cast<uint16_t>(KCS_para.data_port));
}

void clear_OBF() {
  if (read_status() & OBF) read_data_port();
}

// Polls until the status bits of `mask` read `wanted`: KCS_OK, or KCS_TIMEOUT at the bound.
int wait_status(uint8_t mask, uint8_t wanted) {
  for (uint32_t pass = KCS_bounds.passes; pass > 0; pass--) {
    for (uint32_t poll = KCS_bounds.polls; poll > 0; poll--) {
      if ((read_status() & mask) == wanted) return KCS_OK;
    }
    platform::usleep(POLL_SLEEP_US);
    wait_point();
  }
  return KCS_TIMEOUT;
}

// Wakes a BMC that does not clear IBF: KCS_TIMEOUT once its registers answer, KCS_NO_DEVICE if
// they never do.
int poke() {
  for (unsigned i = 0; i < POKES; i++) {
    platform::outb(POKE_VALUE, POKE_PORT);
    platform::usleep(POKE_SLEEP_US);
    for (unsigned poll = 0; poll < POKE_POLLS; poll++) {
      if (read_status() != NOTHING || read_data_port() != NOTHING) return KCS_TIMEOUT;
      platform::usleep(POKE_POLL_SLEEP_US);
      wait_point();
    }
  }
  return KCS_NO_DEVICE;
}

int KCS_Wait_IBF_C() {
  return wait_status(IBF, 0) == KCS_OK ? static_cast<int>(KCS_OK) : poke();
}

int KCS_Wait_OBF_S() {
  if (wait_status(OBF, OBF) == KCS_OK) return KCS_OK;
  progress_puts("KCS Waiting for OBF set: Timeout!");
  return KCS_TIMEOUT;
}

enum Abort_step { ABORT_DONE, ABORT_AGAIN, ABORT_WAIT_FAILED };

// One pass through the standard's error exit.
Abort_step abort_once() {
  write_command_port(ABORT);
  if (KCS_Wait_IBF_C() != KCS_OK) return ABORT_WAIT_FAILED;
  clear_OBF();
  write_data_port(0x00);
  if (KCS_Wait_IBF_C() != KCS_OK) return ABORT_WAIT_FAILED;
  if (read_state() != READ_STATE) return ABORT_AGAIN;
  if (KCS_Wait_OBF_S() != KCS_OK) return ABORT_WAIT_FAILED;
  read_data_port();  // the BMC's own status code
  write_data_port(READ);
  if (KCS_Wait_IBF_C() != KCS_OK) return ABORT_WAIT_FAILED;
  if (read_state() != IDLE_STATE) return ABORT_AGAIN;
  if (KCS_Wait_OBF_S() != KCS_OK) return ABORT_WAIT_FAILED;
  read_data_port();  // dummy
  return ABORT_DONE;
}

int KCS_Error_Handler() {
  if (const int result = KCS_Wait_IBF_C(); result != KCS_OK) return result;
  for (unsigned attempt = 1; attempt <= ABORT_ATTEMPTS; attempt++) {
    switch (abort_once()) {
      case ABORT_DONE:
        return KCS_OK;
      case ABORT_AGAIN:
        platform::usleep(ABORT_SLEEP_US);
        break;
      case ABORT_WAIT_FAILED:
        return attempt < ABORT_ATTEMPTS ? KCS_TIMEOUT : KCS_ABORT_FAILED;
    }
  }
  return KCS_ABORT_FAILED;
}

// After an unexpected state: the abort's own result, or KCS_STATE_ERROR once the interface is idle.
int leave_error() {
  const int result = KCS_Error_Handler();
  return result != KCS_OK ? result : static_cast<int>(KCS_STATE_ERROR);
}

// Waits for the BMC after each byte of a write transfer but the last.
int settle_write() {
  if (const int result = KCS_Wait_IBF_C(); result != KCS_OK) return result;
  if (read_state() != WRITE_STATE) return leave_error();
  clear_OBF();
  return KCS_OK;
}

}  // namespace

int KCS_Intf_Init(uint32_t commandPort, uint32_t dataPort, uint32_t timeout) {
  const bool given = commandPort != 0 || dataPort != 0;
  KCS_para.cmd_port = given ? commandPort : DEFAULT_CMD_PORT;
  KCS_para.data_port = given ? dataPort : DEFAULT_DATA_PORT;
  KCS_para.timeout = timeout != 0 ? timeout : DEFAULT_TIMEOUT;
  // Only the status register counts: port pairs may share a data port, and the data of another
  // interface must not make this one look present.
  if (read_status() == NOTHING) return KCS_NO_DEVICE;
  KCS_para.state = read_state();
  if (KCS_para.state != IDLE_STATE) {
    if (const int result = KCS_Error_Handler(); result != KCS_OK) return result;
  }
  KCS_para.state = IDLE_STATE;
  return KCS_OK;
}

int KCS_Send_BMC_Req(BMC_Msg* message) {
  if (message->length == 0) return KCS_STATE_ERROR;
  const unsigned last = message->length - 1U;
  if (last == 0) return KCS_OK;

  if (const int result = KCS_Wait_IBF_C(); result != KCS_OK) return result;
  clear_OBF();
  write_command_port(WRITE_START);
  if (const int result = settle_write(); result != KCS_OK) return result;
  for (unsigned i = 0; i < last; i++) {
    write_data_port(message->data[i]);
    if (const int result = settle_write(); result != KCS_OK) return result;
  }
  write_command_port(WRITE_END);
  if (const int result = settle_write(); result != KCS_OK) return result;
  write_data_port(message->data[last]);
  if (const int result = KCS_Wait_IBF_C(); result != KCS_OK) return result;
  return read_state() == READ_STATE ? static_cast<int>(KCS_OK) : leave_error();
}

int KCS_Get_BMC_Resp(BMC_Msg* message) {
  unsigned count = 0;
  for (;;) {
    if (const int result = KCS_Wait_IBF_C(); result != KCS_OK) return result;
    KCS_para.state = read_state();
    switch (KCS_para.state) {
      case READ_STATE:
        if (count == KCS_RESPONSE_ROOM) return KCS_RESP_OVERFLOW;
        if (const int result = KCS_Wait_OBF_S(); result != KCS_OK) return result;
        message->data[count++] = read_data_port();
        write_data_port(READ);
        break;
      case IDLE_STATE:
        if (const int result = KCS_Wait_OBF_S(); result != KCS_OK) return result;
        read_data_port();  // dummy
        message->length = static_cast<uint8_t>(count);
        return KCS_OK;
      default:
        return leave_error();
    }
  }
}

int KCS_Get_SMSATN() {
  return read_status() & SMS_ATN;
}

int KCS_Wait_SMSATN_S() {
  if (wait_status(SMS_ATN, SMS_ATN) == KCS_OK) return KCS_OK;
  progress_puts("KCS Waiting for SMSATN set: Timeout!");
  return KCS_TIMEOUT;
}

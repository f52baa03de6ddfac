// KCS port driver: the system interface of the IPMI standard (v1.5 and v2.0, "KCS Interface").
#pragma once
#include <cstdint>

struct BMC_Msg;

// Result codes of every operation of the driver.
enum KCS_result : int {
  KCS_OK = 0,
  KCS_TIMEOUT = 1,        // a wait ran out
  KCS_ABORT_FAILED = 2,   // the abort sequence did not bring the interface to idle
  KCS_NO_DEVICE = 3,      // nothing at these ports
  KCS_STATE_ERROR = 4,    // unexpected state; the interface was brought back to idle
  KCS_RESP_OVERFLOW = 5,  // more than KCS_RESPONSE_ROOM response bytes offered
};

inline constexpr unsigned KCS_RESPONSE_ROOM = 128;

// The driver's parameters, set by init and kept for the process.
struct KCS_parameters {
  uint32_t timeout;  // stored only
  uint8_t state;     // last state bits read (status AND 0xC0)
  uint32_t data_port;
  uint32_t cmd_port;
};
extern KCS_parameters KCS_para;

// How long a wait polls: `passes` times `polls` status reads, 50 microseconds asleep after each
// pass.
struct KCS_wait_bounds {
  uint32_t polls;
  uint32_t passes;
};
extern KCS_wait_bounds KCS_bounds;

// Takes the ports (0xCAC and 0xCA8 when both are 0) and brings the interface to idle.
int KCS_Intf_Init(uint32_t commandPort, uint32_t dataPort, uint32_t timeout);
// Writes the message's bytes. A message of one byte is reported sent, one of none is refused (4),
// both without touching a port.
int KCS_Send_BMC_Req(BMC_Msg* message);
// Reads a response of at most KCS_RESPONSE_ROOM bytes into the message's bytes, sets its length.
int KCS_Get_BMC_Resp(BMC_Msg* message);
// Non-zero when the BMC asks for attention (SMS_ATN).
int KCS_Get_SMSATN();
// 0 when SMS_ATN came, 1 when the wait ran out.
int KCS_Wait_SMSATN_S();

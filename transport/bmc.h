// Message layer: the system interfaces, the retry rule, and IPMB bridging of one request.
#pragma once
#include <cstdint>

inline constexpr unsigned LONGEST_REQUEST = 131;  // to the BMC itself

// One message as the driver sees it: NetFn/LUN, command, then data (a response has its completion
// code before the data).
struct BMC_Msg {
  uint8_t length;  // bytes that data points to
  uint8_t rsSA;    // address of the responder: who is asked, or who was
  uint8_t* data;
};

// One system interface. `init` takes command/status port, data port and timeout; each operation
// returns a KCS_result.
struct BMC_Intf {
  const char* name;
  uint32_t id;  // its index in the table
  BMC_Msg request;
  BMC_Msg response;
  int (*init)(uint32_t, uint32_t, uint32_t);
  int (*send)(BMC_Msg*);
  int (*receive)(BMC_Msg*);
};

// Selects the interface by its exact name ("KCS" when null), raises the I/O privilege and brings
// the interface to idle on the given ports. 0 when it is ready, else -1.
int Init_Interface(const char* name, uint32_t commandPort, uint32_t dataPort, uint32_t timeout);

// The most bytes of a request to this address: 131 to the BMC itself, 123 to another one, which is
// reached through Send Message (IPMI v2.0 table 22-9).
unsigned longest_request(uint8_t responder);

// Sends one request: responder address, NetFn/LUN, command, data, at least 3 bytes. 0, or -1
// (nothing is sent when the length is refused).
int Send_Req(const uint8_t* request, unsigned length);

// Receives the answer to the last request: responder address, NetFn/LUN, command, completion code,
// data; at most 129 bytes. 0, or -1. A bridged answer is taken out of the receive message queue
// with Get Message (table 22-8).
int Get_Resp(uint8_t* response, unsigned* responseLength);

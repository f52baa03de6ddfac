// Message layer.
#include "transport/bmc.h"

#include <cstdlib>
#include <cstring>

#include "base/progress.h"
#include "platform/platform.h"
#include "transport/access.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/kcs_intf.h"
#include "transport/waiting.h"

namespace {

constexpr unsigned KCS_REQUEST_ROOM = LONGEST_REQUEST - 1;  // without the address
// A bridged request travels in 3 bytes of Send Message, and 5 of IPMB frame beyond its own.
constexpr unsigned SEND_MESSAGE_HEADER = 3;
constexpr unsigned IPMB_OVERHEAD = 5;

constexpr uint8_t CLEAR_RECEIVE_QUEUE = 0x01;  // a flag of Clear Message Flags
constexpr uint8_t CHANNEL_IPMB = 0x00;
constexpr uint8_t SMS_LUN = 2;

// Layout of a response, and of Get Message's: the IPMB answer from its NetFn on follows the
// channel.
constexpr unsigned COMPLETION = 2;
constexpr unsigned BRIDGED_NETFN = 4;
constexpr unsigned BRIDGED_SEQUENCE = 7;
constexpr unsigned BRIDGED_COMMAND = 8;
constexpr unsigned BRIDGED_COMPLETION = 9;
constexpr unsigned BRIDGED_MINIMUM = 11;  // with checksum 2

constexpr unsigned SEND_ATTEMPTS = 3;
constexpr unsigned RECEIVE_ATTEMPTS = 3;
constexpr unsigned GET_MESSAGE_ATTEMPTS = 3;
constexpr unsigned CLEAR_ATTEMPTS = 4;
constexpr unsigned INIT_ATTEMPTS = 5;

uint8_t KCS_BMC_Req[KCS_REQUEST_ROOM];
uint8_t KCS_BMC_Resp[KCS_RESPONSE_ROOM + 3];

BMC_Intf SMS_BMC_Intf[] = {
    {"KCS",
     0,
     {0, BMC_ADDRESS, KCS_BMC_Req},
     {0, BMC_ADDRESS, KCS_BMC_Resp},
     KCS_Intf_Init,
     KCS_Send_BMC_Req,
     KCS_Get_BMC_Resp},
    {"BT", 1, {0, 0, nullptr}, {0, 0, nullptr}, nullptr, nullptr, nullptr},
};

uint32_t current_intf = 0;
uint8_t SeqNum = 0;
uint8_t PrevSeqNum = 0;

BMC_Intf& interface() {
  return SMS_BMC_Intf[current_intf];
}

// One transfer. After a time-out the interface is initialised again, and its result is the result.
int attempt(int (*operation)(BMC_Msg*), BMC_Msg* message) {
  const int result = operation(message);
  return result == KCS_TIMEOUT ? interface().init(0, 0, 0) : result;
}

int attempt_send(BMC_Msg* request) {
  return attempt(interface().send, request);
}

// No byte of an earlier answer is left in this one.
int attempt_receive() {
  BMC_Msg& response = interface().response;
  std::memset(response.data, 0, KCS_RESPONSE_ROOM);
  response.length = 0;
  return attempt(interface().receive, &response);
}

bool completed(const BMC_Msg& response) {
  return response.length > COMPLETION && response.data[COMPLETION] == 0;
}

// Stores the two's complement of the sum of the first count - 1 bytes in the last one.
void Check_Sum(uint8_t* bytes, unsigned count) {
  uint8_t sum = 0;
  for (unsigned i = 0; i + 1 < count; i++) sum = static_cast<uint8_t>(sum + bytes[i]);
  bytes[count - 1] = static_cast<uint8_t>(0 - sum);
}

// rsSA, NetFn/rsLUN, checksum 1, rqSA, sequence/rqLUN, command, data, checksum 2. Returns its
// length.
unsigned Build_IPMBReq(uint8_t* frame, const BMC_Msg* source) {
  if (current_intf != 0) return 0;
  const unsigned data = source->length - 2U;
  PrevSeqNum = SeqNum & 0x3F;
  frame[0] = source->rsSA;
  frame[1] = source->data[0];
  Check_Sum(frame, 3);
  frame[3] = BMC_ADDRESS;
  frame[4] = static_cast<uint8_t>(SeqNum << 2 | SMS_LUN);
  frame[5] = source->data[1];
  std::memcpy(frame + 6, source->data + 2, data);
  Check_Sum(frame + 3, data + 4);
  SeqNum++;
  return source->length + IPMB_OVERHEAD;
}

// Direct: as it is. Bridged: inside Send Message on the primary IPMB.
void Build_BMCReq(BMC_Msg* destination, const BMC_Msg* source) {
  destination->rsSA = source->rsSA;
  if (source->rsSA == BMC_ADDRESS) {
    destination->length = source->length;
    std::memcpy(destination->data, source->data, source->length);
    return;
  }
  destination->data[0] = NETFN_APP;
  destination->data[1] = SEND_MESSAGE;
  destination->data[2] = CHANNEL_IPMB;
  const unsigned frame = Build_IPMBReq(destination->data + SEND_MESSAGE_HEADER, source);
  destination->length = static_cast<uint8_t>(SEND_MESSAGE_HEADER + frame);
}

// Empties the receive message queue. 0, or -1. Request and answer share one count of retries.
int Clear_RMQ() {
  uint8_t bytes[] = {NETFN_APP, CLEAR_MESSAGE_FLAGS, CLEAR_RECEIVE_QUEUE};
  BMC_Msg request = {sizeof bytes, BMC_ADDRESS, bytes};
  unsigned left = CLEAR_ATTEMPTS - 1;
  int result = attempt_send(&request);
  while (result == KCS_TIMEOUT && left > 0) {
    left--;
    result = attempt_send(&request);
  }
  if (result != KCS_OK) return -1;
  result = attempt_receive();
  while (result == KCS_TIMEOUT && left > 0) {
    left--;
    result = attempt_receive();
  }
  return result == KCS_OK && completed(interface().response) ? 0 : -1;
}

// Asks Get Message; its answer is in the response record. 0, or -1.
int fetch_message() {
  uint8_t bytes[] = {NETFN_APP, GET_MESSAGE};
  BMC_Msg request = {sizeof bytes, BMC_ADDRESS, bytes};
  int result = KCS_TIMEOUT;
  for (unsigned i = 0; i < GET_MESSAGE_ATTEMPTS && result == KCS_TIMEOUT; i++) {
    result = attempt_send(&request);
  }
  if (result != KCS_OK) return -1;
  result = KCS_TIMEOUT;
  for (unsigned i = 0; i < GET_MESSAGE_ATTEMPTS && result == KCS_TIMEOUT; i++) {
    result = attempt_receive();
  }
  return result == KCS_OK ? 0 : -1;
}

// Copies the response record as it is.
void copy_response(const BMC_Msg& from, uint8_t* response, unsigned* responseLength) {
  response[0] = from.rsSA;
  std::memcpy(response + 1, from.data, from.length);
  *responseLength = from.length + 1U;
}

// Copies the IPMB answer inside a Get Message answer, without header, sequence and checksums.
void unwrap_response(const BMC_Msg& from, uint8_t* response, unsigned* responseLength) {
  if (from.data[BRIDGED_SEQUENCE] >> 2 != PrevSeqNum) {
    progress_puts("Sequence Number does not match!");
  }
  const unsigned data = from.length - BRIDGED_MINIMUM;
  response[0] = from.rsSA;
  response[1] = from.data[BRIDGED_NETFN];
  response[2] = from.data[BRIDGED_COMMAND];
  response[3] = from.data[BRIDGED_COMPLETION];
  std::memcpy(response + 4, from.data + BRIDGED_COMPLETION + 1, data);
  *responseLength = data + 4;
}

}  // namespace

int Init_Interface(const char* name, uint32_t commandPort, uint32_t dataPort, uint32_t timeout) {
  if (name == nullptr) name = "KCS";
  const BMC_Intf* found = nullptr;
  for (const BMC_Intf& entry : SMS_BMC_Intf) {
    if (found == nullptr && std::strcmp(name, entry.name) == 0) found = &entry;
  }
  if (found == nullptr || found->init == nullptr) return -1;
  current_intf = found->id;
  if (platform::io_privilege() != 0) {
    progress_puts("have no right to change I/O privilege level");
    hint_lockdown();
    return -1;
  }
  wait_began();
  const Wait wait("the BMC's interface");
  int result = KCS_TIMEOUT;
  for (unsigned i = 0; i < INIT_ATTEMPTS && result == KCS_TIMEOUT; i++) {
    result = found->init(commandPort, dataPort, timeout);
  }
  if (result != KCS_OK) return -1;
  std::srand(platform::time_now());
  SeqNum = static_cast<uint8_t>(std::rand() & 0x3F);
  return 0;
}

unsigned longest_request(uint8_t responder) {
  const bool bridged = responder != BMC_ADDRESS;
  return LONGEST_REQUEST - (bridged ? SEND_MESSAGE_HEADER + IPMB_OVERHEAD : 0);
}

int Send_Req(const uint8_t* request, unsigned length) {
  if (length < REQUEST_DATA || length > longest_request(request[0])) return -1;
  const bool bridged = request[0] != BMC_ADDRESS;

  uint8_t bytes[KCS_REQUEST_ROOM];
  std::memcpy(bytes, request + 1, length - 1);
  const BMC_Msg source = {static_cast<uint8_t>(length - 1), request[0], bytes};
  BMC_Msg* message = &interface().request;
  Build_BMCReq(message, &source);
  if (bridged && KCS_Get_SMSATN() != 0 && Clear_RMQ() != 0) {
    progress_puts("Clear Receive Message Queue!");
    return -1;
  }
  int result = KCS_TIMEOUT;
  for (unsigned i = 0; i < SEND_ATTEMPTS && result != KCS_OK; i++) result = attempt_send(message);
  // It may have been a password.
  explicit_bzero(bytes, sizeof bytes);
  explicit_bzero(KCS_BMC_Req, sizeof KCS_BMC_Req);
  return result == KCS_OK ? 0 : -1;
}

int Get_Resp(uint8_t* response, unsigned* responseLength) {
  unsigned attempts = 1;
  int result = attempt_receive();
  bool overflow = result == KCS_RESP_OVERFLOW;
  for (; result != KCS_OK && attempts < RECEIVE_ATTEMPTS; attempts++) {
    result = attempt_receive();
    overflow = overflow || result == KCS_RESP_OVERFLOW;
  }
  // After a response that is too long, further attempts have read only the rest of it.
  if (result != KCS_OK || overflow) return -1;

  BMC_Msg& received = interface().response;
  received.rsSA = interface().request.rsSA;
  if (received.rsSA == BMC_ADDRESS) {
    copy_response(received, response, responseLength);
    return 0;
  }
  if (!completed(received)) {
    progress_puts("Send Message Error!");
    copy_response(received, response, responseLength);
    return 0;
  }
  // The waits are counted with the attempts above: three when the first receive succeeded. Get
  // Message follows whether SMS_ATN came or not.
  while (KCS_Wait_SMSATN_S() == KCS_TIMEOUT && attempts < RECEIVE_ATTEMPTS) attempts++;
  if (fetch_message() != 0) return -1;
  if (completed(received) && received.length >= BRIDGED_MINIMUM) {
    unwrap_response(received, response, responseLength);
  } else {
    copy_response(received, response, responseLength);
  }
  return 0;
}

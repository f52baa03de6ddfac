// One IPMI request and its response, over the kernel's IPMI device or over the ports.
#include "transport/transaction.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/dump_file.h"
#include "base/notice.h"
#include "base/process_end.h"
#include "base/progress.h"
#include "platform/platform.h"
#include "transport/bmc.h"
#include "transport/completion.h"
#include "transport/interrupt.h"
#include "transport/ipmi.h"
#include "transport/waiting.h"

int debugFlag = 0;
int openIpmiFlag = 0;
int driverHandle = -1;

const uint8_t ReadFRUCmd[] = {3, BMC_ADDRESS, NETFN_STORAGE, READ_FRU_DATA};
const uint8_t GetSelRepositoryInfo[] = {3, BMC_ADDRESS, NETFN_STORAGE, GET_SEL_INFO};
const uint8_t ReserveSELRepository[] = {3, BMC_ADDRESS, NETFN_STORAGE, RESERVE_SEL};
const uint8_t GetSEL[] = {3, BMC_ADDRESS, NETFN_STORAGE, GET_SEL_ENTRY};

namespace {

constexpr unsigned KERNEL_DATA_ROOM = 256;
constexpr unsigned KERNEL_ADDRESS_ROOM = 40;

const char ANSWER[] = "an answer from the BMC";

uint32_t curr_seq = 0;

void trace(std::span<const uint8_t> bytes) {
  for (const uint8_t byte : bytes) std::printf("%02x ", byte);
  std::putchar('\n');
}

// On the KCS path no failure is returned: an interface that fails ends the run.
[[noreturn]] void give_up_on_bmc(const char* message, const char* reason) {
  progress_end();
  if (message != nullptr) std::puts(message);
  hint_failed("%s", reason);
  hint_unfinished();
  dump_abandon();  // half a dump must not pass for a whole one
  end_process(-1);
}

const char* refusal_of_ports(std::span<const uint8_t> request) {
  if (request.size() <= longest_request(request[0]))
    return "the BMC does not take the request at its ports";
  // Over the kernel's device every request goes to the BMC itself.
  const bool open_helps = request[0] == BMC_ADDRESS && request.size() <= IPMI_MAX_MSG_LENGTH + 1;
  return open_helps ? "the request is too long for the ports: use --open"
                    : "the request is too long";
}

int kcs_transaction(std::span<const uint8_t> request, uint8_t* response, unsigned* responseLength) {
  const Wait wait(ANSWER);
  if (Send_Req(request.data(), static_cast<unsigned>(request.size())) != 0) {
    give_up_on_bmc("cmd error", refusal_of_ports(request));
  }
  if (Get_Resp(response, responseLength) != 0) {
    give_up_on_bmc(nullptr, "the BMC gives no response at its ports, or one that is too long");
  }
  if (debugFlag != 0) {
    std::printf("recv:");
    trace({response, *responseLength});
  }
  return 0;
}

int kernel_send(std::span<const uint8_t> request) {
  const auto data = request.subspan(REQUEST_DATA);
  ipmi_system_interface_addr address{};
  address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
  address.channel = IPMI_BMC_CHANNEL;
  address.lun = 0;
  ipmi_req record{};
  record.addr = reinterpret_cast<unsigned char*>(&address);
  record.addr_len = sizeof address;
  record.msgid = curr_seq++;
  record.msg.netfn = request[1] >> 2;
  record.msg.cmd = request[2];
  record.msg.data_len = static_cast<unsigned short>(data.size());
  // The record has no const; the kernel only reads through it.
  record.msg.data = data.empty() ? nullptr : const_cast<uint8_t*>(data.data());
  if (platform::device_send(driverHandle, &record) >= 0) return 0;
  note_no_response(errno);
  std::printf("Error sending command: %s\n", std::strerror(errno));
  return -1;
}

// As select: signals, and the seconds of a wait that is shown, do not end it.
int select_answer(bool* readable) {
  const Wait wait(ANSWER);
  const bool wake = progressFlag != 0;
  int result = platform::device_select(driverHandle, wake, readable);
  while (result < 0 && errno == EINTR) {
    stop_point();
    wait_point();
    result = platform::device_select(driverHandle, wake, readable);
  }
  return result;
}

int kernel_wait() {
  bool readable = false;
  const int result = select_answer(&readable);
  if (result < 0) {
    note_no_response(errno);
    std::puts("Select fail");
    return -1;
  }
  if (readable) return 0;
  std::puts("Error no data available");
  return -1;
}

int kernel_receive(uint8_t* response, unsigned* responseLength) {
  uint8_t address[KERNEL_ADDRESS_ROOM] = {};
  uint8_t data[KERNEL_DATA_ROOM] = {};
  ipmi_recv record{};
  record.addr = address;
  record.addr_len = sizeof address;
  record.msg.data = data;
  record.msg.data_len = sizeof data;
  if (platform::device_receive(driverHandle, &record) < 0) {
    const int reason = errno;
    std::printf("Error receiving message: %s\n", std::strerror(reason));
    note_no_response(reason);
    if (reason != EMSGSIZE) return -1;
    step_failed("a response is too long for the kernel's device and was cut");
  }
  const unsigned count = record.msg.data_len < sizeof data ? record.msg.data_len : sizeof data;
  response[0] = BMC_ADDRESS;
  response[1] = static_cast<uint8_t>(record.msg.netfn << 2);
  response[2] = record.msg.cmd;
  std::memcpy(response + RESPONSE_COMPLETION, data, count);
  *responseLength = count + RESPONSE_COMPLETION;
  return 0;
}

bool kernel_path() {
  return openIpmiFlag != 0 && driverHandle != -1;
}

// Never bridges: the first request byte is not used, nor is the LUN.
int kernel_transaction(std::span<const uint8_t> request, uint8_t* response,
                       unsigned* responseLength) {
  if (kernel_send(request) != 0) return -1;
  if (kernel_wait() != 0) return -1;
  return kernel_receive(response, responseLength);
}

}  // namespace

unsigned UpdateCommandToSendText(uint8_t* destination, const uint8_t* command) {
  const unsigned count = command[0];
  std::memcpy(destination, command + 1, count);
  return count;
}

int converToBMCCmd(const uint8_t* request, unsigned length, uint8_t* response,
                   unsigned* responseLength) {
  interrupt_point();
  if (debugFlag != 0) {
    if (openIpmiFlag != 0) std::printf("send with openipmi:");
    trace({request, length});
  }
  if (length < REQUEST_DATA) {
    std::printf("request of %u bytes has no command: not sent\n", length);
    return -1;
  }
  wait_began();
  return kernel_path() ? kernel_transaction({request, length}, response, responseLength)
                       : kcs_transaction({request, length}, response, responseLength);
}

// The kernel counts NetFn and command, not the address.
unsigned request_limit() {
  return kernel_path() ? IPMI_MAX_MSG_LENGTH + 1 : longest_request(BMC_ADDRESS);
}

std::span<const uint8_t> ask(std::span<const uint8_t> request, unsigned count, Response* response) {
  std::memset(response, 0, sizeof *response);
  response->bytes[RESPONSE_COMPLETION] = UNSPECIFIED;
  const unsigned length = static_cast<unsigned>(request.size());
  note_no_response(0);
  if (converToBMCCmd(request.data(), length, response->bytes, &response->length) != 0) return {};
  if (response->length < RESPONSE_DATA) return {};
  const uint8_t code = completion_code(*response);
  note_response(code, response->length - RESPONSE_DATA, count);
  return code == COMPLETED ? response_part(*response, RESPONSE_DATA, count)
                           : std::span<const uint8_t>{};
}

bool exchange(std::span<const uint8_t> request, Response* response) {
  ask(request, 0, response);
  return completion_code(*response) == COMPLETED;
}

uint8_t completion_code(const Response& response) {
  const auto code = response_part(response, RESPONSE_COMPLETION, 1);
  return code.empty() ? UNSPECIFIED : code[0];
}

std::span<const uint8_t> response_part(const Response& response, unsigned offset, unsigned count) {
  if (offset > response.length || count > response.length - offset) return {};
  return std::span(response.bytes).first(response.length).subspan(offset);
}

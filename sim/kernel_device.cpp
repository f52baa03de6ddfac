// platform.h over the simulated machine: the kernel's IPMI character device.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/platform.h"
#include "sim/machine.h"

namespace platform {

namespace {

constexpr int HANDLE = 10000;  // a number that no real handle has

int fail_with(int reason) {
  errno = reason;
  return -1;
}

bool is_open(int handle) {
  return handle == HANDLE && sim::machine().device_is_open;
}

// What the kernel's message handler refuses; 0 when it takes the request.
int check_request(const ipmi_req& request) {
  if (request.addr == nullptr) return EFAULT;
  if (request.addr_len < sizeof(ipmi_system_interface_addr) ||
      request.addr_len > sizeof(ipmi_addr)) {
    return EINVAL;
  }
  ipmi_system_interface_addr address;
  std::memcpy(&address, request.addr, sizeof address);
  if (address.addr_type != IPMI_SYSTEM_INTERFACE_ADDR_TYPE) return EINVAL;
  if (address.channel != IPMI_BMC_CHANNEL || address.lun > 3) return EINVAL;
  const unsigned netfn = static_cast<unsigned>(request.msg.netfn) << 2;
  if (request.msg.data_len + 2 > IPMI_MAX_MSG_LENGTH) return EMSGSIZE;
  if (request.msg.data_len > 0 && request.msg.data == nullptr) return EFAULT;
  if (request.msg.netfn >= 0x40 || (netfn & RESPONSE_BIT) != 0) return EINVAL;
  // Only the kernel itself uses the receive queue.
  const bool messaging = request.msg.cmd == GET_MESSAGE || request.msg.cmd == SEND_MESSAGE;
  return netfn == NETFN_APP && messaging ? EINVAL : 0;
}

// After an error on the way the kernel's driver answers "unspecified error" itself.
sim::Answer serve_over_driver(const sim::Bytes& request) {
  sim::Bytes arrived;
  for (const uint8_t byte : request) {
    arrived.push_back(byte);
    if (!sim::byte_is_hit(sim::machine().bmc.faults, arrived)) continue;
    return {{static_cast<uint8_t>(request[0] | RESPONSE_BIT), request[1], UNSPECIFIED}};
  }
  sim::Answer answer = sim::serve(request);
  if (answer.read_error >= 0) {
    answer.bytes.resize(2);
    answer.bytes.push_back(UNSPECIFIED);
  }
  return answer;
}

}  // namespace

int device_open(const char* path) {
  sim::Machine& machine = sim::machine();
  const auto& paths = machine.devices;
  if (std::find(paths.begin(), paths.end(), path) == paths.end()) return fail_with(ENOENT);
  if (!machine.root) return fail_with(EACCES);
  machine.device_is_open = true;
  machine.device_queue.clear();
  return HANDLE;
}

int device_close(int handle) {
  if (!is_open(handle)) return fail_with(EBADF);
  sim::machine().device_is_open = false;
  return 0;
}

int device_send(int handle, ipmi_req* request) {
  if (!is_open(handle)) return fail_with(EBADF);
  sim::Machine& machine = sim::machine();
  if (machine.kernel_faults.send_errno != 0) return fail_with(machine.kernel_faults.send_errno);
  if (const int reason = check_request(*request); reason != 0) return fail_with(reason);
  ipmi_system_interface_addr address;
  std::memcpy(&address, request->addr, sizeof address);
  sim::Bytes bytes;
  bytes.reserve(2 + request->msg.data_len);
  bytes.push_back(static_cast<uint8_t>(request->msg.netfn << 2 | address.lun));
  bytes.push_back(request->msg.cmd);
  bytes.insert(bytes.end(), request->msg.data, request->msg.data + request->msg.data_len);
  const sim::Answer answer = serve_over_driver(bytes);
  const uint64_t due_us = machine.bmc.clock.now_us + answer.late_s * sim::SECOND_US;
  if (!answer.silent) machine.device_queue.push_back({request->msgid, answer.bytes, due_us});
  return 0;
}

// With a BMC that never answers the kernel blocks here for ever; this one returns 0 at once.
int device_select(int handle, bool wake, bool* readable) {
  *readable = false;
  if (!is_open(handle)) return fail_with(EBADF);
  sim::Machine& machine = sim::machine();
  const auto& queue = machine.device_queue;
  const bool silent = queue.empty() && signals_pending() != 0;
  while (silent || (!queue.empty() && machine.bmc.clock.now_us < queue.front().due_us)) {
    sim::pause(sim::SECOND_US);
    if (silent || wake) return fail_with(EINTR);
  }
  const int reason = machine.kernel_faults.select_errno;
  // A call that was interrupted is made again, and then waits.
  if (reason == EINTR) machine.kernel_faults.select_errno = 0;
  if (reason != 0) return fail_with(reason);
  *readable = !machine.device_queue.empty() && !machine.kernel_faults.not_readable;
  return *readable ? 1 : 0;
}

int device_receive(int handle, ipmi_recv* received) {
  if (!is_open(handle)) return fail_with(EBADF);
  sim::Machine& machine = sim::machine();
  if (machine.kernel_faults.receive_errno != 0)
    return fail_with(machine.kernel_faults.receive_errno);
  if (machine.device_queue.empty()) return fail_with(EAGAIN);
  ipmi_system_interface_addr address{};
  if (received->addr_len < sizeof address) return fail_with(EINVAL);
  const sim::KernelMessage message = std::move(machine.device_queue.front());
  machine.device_queue.pop_front();

  address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
  address.channel = IPMI_BMC_CHANNEL;
  address.lun = message.bytes[0] & 3;
  std::memcpy(received->addr, &address, sizeof address);
  received->addr_len = sizeof address;
  received->recv_type = IPMI_RESPONSE_RECV_TYPE;
  received->msgid = message.id;
  received->msg.netfn = message.bytes[0] >> 2;
  received->msg.cmd = message.bytes[1];
  const size_t count = message.bytes.size() - 2;
  const size_t taken = std::min<size_t>(count, received->msg.data_len);
  if (taken > 0) std::memcpy(received->msg.data, message.bytes.data() + 2, taken);
  received->msg.data_len = static_cast<unsigned short>(taken);
  return taken < count ? fail_with(EMSGSIZE) : 0;
}

}  // namespace platform

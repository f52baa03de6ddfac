// The wire between the simulated BMC and a virtual machine.
//
// A message is its bytes, a checksum byte (all add up to 0 modulo 256), then 0xA0. Inside are a
// sequence byte, NetFn/LUN, command, data; the answer has the same sequence byte. A hardware
// command is one byte, then 0xA1. The bytes 0xA0, 0xA1 and 0xAA are sent as 0xAA, then the byte OR
// 0x10.
#include "sim/vm_link.h"

#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "sim/machine.h"

namespace sim {

namespace {

constexpr uint8_t COMMAND_END = 0xA1;
constexpr uint8_t ESCAPE = 0xAA;
constexpr uint8_t ESCAPED_BIT = 0x10;
constexpr uint8_t ATTENTION_ON = 0x01;
constexpr uint8_t ATTENTION_OFF = 0x00;
constexpr size_t SMALLEST_MESSAGE = 4;  // sequence, NetFn/LUN, command, checksum

// When a signal interrupts the call, the server is to end.
bool send_all(int handle, const Bytes& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(handle, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

uint8_t checksum_of(const Bytes& bytes) {
  uint8_t total = 0;
  for (const uint8_t byte : bytes) total = static_cast<uint8_t>(total + byte);
  return total;
}

bool send_frame(int handle, const Bytes& bytes, uint8_t end) {
  Bytes wire;
  for (const uint8_t byte : bytes) {
    const bool special = byte == MESSAGE_END || byte == COMMAND_END || byte == ESCAPE;
    if (special) wire.push_back(ESCAPE);
    wire.push_back(special ? byte | ESCAPED_BIT : byte);
  }
  wire.push_back(end);
  return send_all(handle, wire);
}

// A request that is too short, or whose checksum is wrong, is ignored.
bool serve_message(VmLink& link, const Bytes& message) {
  if (message.size() < SMALLEST_MESSAGE || checksum_of(message) != 0) return true;
  const Bytes request(message.begin() + 1, message.end() - 1);
  const Answer answer = serve(request);
  link.changed = true;
  ::sleep(answer.late_s);
  if (!answer.silent) {
    Bytes reply = {message[0]};
    reply.insert(reply.end(), answer.bytes.begin(), answer.bytes.end());
    reply.push_back(static_cast<uint8_t>(0 - checksum_of(reply)));
    if (!send_frame(link.handle, reply, MESSAGE_END)) return false;
  }
  return tell_attention(link);
}

}  // namespace

bool tell_attention(VmLink& link) {
  const bool now = attention(machine().bmc);
  if (now == link.attention) return true;
  link.attention = now;
  return send_frame(link.handle, {now ? ATTENTION_ON : ATTENTION_OFF}, COMMAND_END);
}

// The virtual machine's hardware commands (its version, capabilities, reset) ask for no answer.
bool take_byte(VmLink& link, uint8_t byte) {
  if (byte == MESSAGE_END || byte == COMMAND_END) {
    const Bytes frame = std::exchange(link.frame, {});
    const bool whole = !std::exchange(link.too_long, false);
    link.escaped = false;
    return byte == COMMAND_END || !whole || serve_message(link, frame);
  }
  if (byte == ESCAPE) {
    link.escaped = true;
    return true;
  }
  if (std::exchange(link.escaped, false)) byte &= static_cast<uint8_t>(~ESCAPED_BIT);
  link.too_long = link.too_long || link.frame.size() == FRAME_ROOM;
  if (!link.too_long) link.frame.push_back(byte);
  return true;
}

}  // namespace sim

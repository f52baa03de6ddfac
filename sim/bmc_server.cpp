// qarn-bmc: the simulated BMC behind a loopback socket, in the framing of QEMU's external BMC.
//
// A message is its bytes, a checksum byte (all add up to 0 modulo 256), then 0xA0. Inside are a
// sequence byte, NetFn/LUN, command, data; the answer has the same sequence byte. A hardware
// command is one byte, then 0xA1. The bytes 0xA0, 0xA1 and 0xAA are sent as 0xAA, then the byte OR
// 0x10.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "sim/machine.h"

namespace {

using sim::Bytes;

constexpr uint8_t MESSAGE_END = 0xA0;
constexpr uint8_t COMMAND_END = 0xA1;
constexpr uint8_t ESCAPE = 0xAA;
constexpr uint8_t ESCAPED_BIT = 0x10;
constexpr uint8_t ATTENTION_ON = 0x01;
constexpr uint8_t ATTENTION_OFF = 0x00;
constexpr size_t SMALLEST_MESSAGE = 4;  // sequence, NetFn/LUN, command, checksum
constexpr size_t FRAME_ROOM = 1024;
constexpr int WRONG_USAGE = 2;
constexpr long PATIENCE_US = 200000;  // without traffic, then contents are saved

struct Settings {
  uint16_t port = 0;
  std::string state;
  std::string log;
  sim::Kind kind = sim::Kind::card;
};

// One connection: what has arrived of a frame, and what the other side was told.
struct Connection {
  int handle = -1;
  Bytes frame;
  bool escaped = false;
  bool too_long = false;
  bool attention = false;
  bool changed = false;  // requests were served since contents were saved
};

volatile std::sig_atomic_t ending = 0;

void end_on_signal(int) {
  ending = 1;
}

uint64_t real_now_us() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

bool send_all(int handle, const Bytes& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(handle, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR && ending == 0) continue;
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

uint8_t sum(const Bytes& bytes) {
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

bool tell_attention(Connection& connection) {
  const bool now = sim::attention(sim::machine().bmc);
  if (now == connection.attention) return true;
  connection.attention = now;
  return send_frame(connection.handle, {now ? ATTENTION_ON : ATTENTION_OFF}, COMMAND_END);
}

void save_contents(Connection& connection, const Settings& settings) {
  if (!std::exchange(connection.changed, false) || settings.state.empty()) return;
  if (sim::save_state(settings.state, sim::machine().bmc)) return;
  std::fprintf(stderr, "qarn-bmc: %s: the state cannot be written\n", settings.state.c_str());
}

// No wait lasts longer than this, so that a signal is never missed for long.
void limit_waits(int handle) {
  const timeval patience{0, PATIENCE_US};
  setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

// A request that is too short, or whose checksum is wrong, is dropped as the wire's noise.
bool serve_message(Connection& connection, const Bytes& message) {
  if (message.size() < SMALLEST_MESSAGE || sum(message) != 0) return true;
  const Bytes request(message.begin() + 1, message.end() - 1);
  const sim::Answer answer = sim::serve(request);
  connection.changed = true;
  if (!answer.silent) {
    Bytes reply = {message[0]};
    reply.insert(reply.end(), answer.bytes.begin(), answer.bytes.end());
    reply.push_back(static_cast<uint8_t>(0 - sum(reply)));
    if (!send_frame(connection.handle, reply, MESSAGE_END)) return false;
  }
  return tell_attention(connection);
}

// The virtual machine's hardware commands (its version, capabilities, reset) ask for no answer.
bool take_byte(Connection& connection, uint8_t byte) {
  if (byte == MESSAGE_END || byte == COMMAND_END) {
    const Bytes frame = std::exchange(connection.frame, {});
    const bool whole = !std::exchange(connection.too_long, false);
    connection.escaped = false;
    return byte == COMMAND_END || !whole || serve_message(connection, frame);
  }
  if (byte == ESCAPE) {
    connection.escaped = true;
    return true;
  }
  if (std::exchange(connection.escaped, false)) byte &= static_cast<uint8_t>(~ESCAPED_BIT);
  connection.too_long = connection.too_long || connection.frame.size() == FRAME_ROOM;
  if (!connection.too_long) connection.frame.push_back(byte);
  return true;
}

void serve_connection(int handle, const Settings& settings, uint64_t start_us) {
  Connection connection;
  connection.handle = handle;
  limit_waits(handle);
  bool open = tell_attention(connection);
  while (open && ending == 0) {
    uint8_t arrived[512];
    const ssize_t count = recv(handle, arrived, sizeof arrived, 0);
    if (count < 0 && errno == EAGAIN) save_contents(connection, settings);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) break;
    sim::machine().now_us = real_now_us() - start_us;
    for (ssize_t i = 0; i < count && open; i++) open = take_byte(connection, arrived[i]);
  }
  save_contents(connection, settings);
}

int listen_on(uint16_t port) {
  const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (handle < 0) return -1;
  const int on = 1;
  setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool ready = bind(handle, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                     listen(handle, 1) == 0;
  if (ready) return handle;
  close(handle);
  return -1;
}

bool parse_port(const char* text, uint16_t& port) {
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, port);
  return error == std::errc() && stop == end && port != 0;
}

bool parse_arguments(int argc, char** argv, Settings& settings) {
  if (argc < 2 || argc % 2 != 0 || !parse_port(argv[1], settings.port)) return false;
  for (int i = 2; i < argc; i += 2) {
    const std::string name = argv[i];
    const std::string value = argv[i + 1];
    if (name == "--state") {
      settings.state = value;
    } else if (name == "--log") {
      settings.log = value;
    } else if (name == "--kind" && (value == "card" || value == "plain")) {
      settings.kind = value == "card" ? sim::Kind::card : sim::Kind::plain;
    } else {
      return false;
    }
  }
  return true;
}

void catch_signals() {
  struct sigaction action {};
  action.sa_handler = end_on_signal;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  if (!parse_arguments(argc, argv, settings)) {
    std::fputs("Usage: qarn-bmc PORT [--state FILE] [--log FILE] [--kind card|plain]\n", stderr);
    return WRONG_USAGE;
  }
  sim::reset(settings.kind);
  if (!settings.log.empty() && !sim::log_to(settings.log)) {
    std::fprintf(stderr, "qarn-bmc: %s: %s\n", settings.log.c_str(), std::strerror(errno));
    return WRONG_USAGE;
  }
  if (!settings.state.empty()) sim::keep_state(settings.state);
  const int listener = listen_on(settings.port);
  if (listener < 0) {
    std::fprintf(stderr, "qarn-bmc: port %u: %s\n", settings.port, std::strerror(errno));
    return WRONG_USAGE;
  }
  limit_waits(listener);
  catch_signals();
  const uint64_t start_us = real_now_us();
  while (ending == 0) {
    const int handle = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (handle < 0) continue;
    const int on = 1;
    setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    serve_connection(handle, settings, start_us);
    close(handle);
  }
  close(listener);
  return 0;
}

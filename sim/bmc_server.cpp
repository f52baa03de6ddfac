// qarn-bmc: the simulated BMC as a server on a loopback socket, for a virtual machine. The same
// environment variables describe it as for qarn-sim; its options come first.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "sim/machine.h"
#include "sim/vm_link.h"

namespace {

constexpr int WRONG_USAGE = 2;
constexpr long PATIENCE_US = 200000;  // without traffic, then contents are saved

struct Settings {
  uint16_t port = 0;
  std::string state;
  std::string log;
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

void save_contents(sim::VmLink& link, const Settings& settings) {
  if (!std::exchange(link.changed, false) || settings.state.empty()) return;
  if (sim::save_state(settings.state, sim::machine().bmc)) return;
  std::fprintf(stderr, "qarn-bmc: %s: the state cannot be written\n", settings.state.c_str());
}

// No wait lasts longer than this, so that a signal is never missed for long.
void limit_waits(int handle) {
  const timeval patience{0, PATIENCE_US};
  setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

void serve_connection(int handle, const Settings& settings, uint64_t start_us) {
  sim::VmLink link;
  link.handle = handle;
  limit_waits(handle);
  bool open = sim::tell_attention(link);
  while (open && ending == 0) {
    uint8_t arrived[512];
    const ssize_t count = recv(handle, arrived, sizeof arrived, 0);
    if (count < 0 && errno == EAGAIN) save_contents(link, settings);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) break;
    sim::machine().bmc.clock.now_us = real_now_us() - start_us;
    for (ssize_t i = 0; i < count && open; i++) open = sim::take_byte(link, arrived[i]);
  }
  save_contents(link, settings);
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
      unsetenv("QARN_SIM_STATE");
    } else if (name == "--log") {
      settings.log = value;
    } else if (name == "--kind" && (value == "card" || value == "plain")) {
      setenv("QARN_SIM", value.c_str(), 1);
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
  sim::machine();  // a wrong setting ends the server here
  if (!settings.log.empty() && !sim::log_to(settings.log)) {
    std::fprintf(stderr, "qarn-bmc: %s: %s\n", settings.log.c_str(), std::strerror(errno));
    return WRONG_USAGE;
  }
  if (!settings.state.empty() && !sim::can_keep_state(settings.state)) {
    std::fprintf(stderr, "qarn-bmc: %s: no state file\n", settings.state.c_str());
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

// Fuzz target: the simulated BMC itself, as a server. What comes before an empty line is its state
// file, the rest what arrives on its socket.
#include "sim/vm_link.h"

#include <sys/socket.h>

#include "fuzz/fuzz.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static int ends[2];  // of the connection, for the life of the process
  static const int paired = socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
  fuzz::require(paired == 0);
  const std::string input = fuzz::start(bytes, size);
  const size_t empty_line = input.find("\n\n");
  const bool has_state = empty_line != std::string::npos;
  sim::machine().bmc.targets[0x24] = {};
  if (has_state) {
    fuzz::require(
        sim::load_state(fuzz::file("state", input.substr(0, empty_line)), sim::machine().bmc));
  }
  uint8_t sink[4096];
  sim::VmLink link = {.handle = ends[0]};
  for (size_t i = has_state ? empty_line + 2 : 0; i < input.size(); i++) {
    fuzz::require(sim::take_byte(link, bytes[i]));
    while (bytes[i] == sim::MESSAGE_END && recv(ends[1], sink, sizeof sink, MSG_DONTWAIT) > 0) {
    }
  }
  fuzz::require(link.frame.size() <= sim::FRAME_ROOM);
  sim::State state;
  sim::store(sim::machine().bmc, state);
  return 0;
}

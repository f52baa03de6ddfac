// Who else uses the way to the BMC.
#include "transport/access.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/notice.h"
#include "platform/platform.h"
#include "transport/interrupt.h"
#include "transport/waiting.h"

namespace {

constexpr unsigned TURN_S = 60;
constexpr unsigned OWNER_LINE_SIZE = 256;

// How the names of the kernel's IPMI drivers begin, after a range of ports. Other entries of the
// list of ports stand for a piece of hardware, or for a bus on the way to it.
const char DRIVER[] = " : ipmi";

bool is_held(int handle) {
  return platform::lock_try(handle) != 0 && errno == EWOULDBLOCK;
}

void say_who_holds(int handle) {
  const int process = platform::lock_holder(handle);
  if (process > 0) {
    notice("another run, process %d, uses the BMC: waiting up to %u seconds for it", process,
           TURN_S);
  } else {
    notice("another run uses the BMC: waiting up to %u seconds for it", TURN_S);
  }
}

bool take_turn(int handle) {
  if (!is_held(handle)) return true;
  say_who_holds(handle);
  const Wait wait("the other run");
  for (unsigned second = 0; second < TURN_S; second++) {
    wait_seconds(1);
    interrupt_point();
    if (!is_held(handle)) return true;
  }
  notice("the other run still uses the BMC: nothing was done");
  return false;
}

// A line of the list is "  0ca2-0ca2 : ipmi_si". The name of the driver that has one of the ports,
// or null.
const char* owner_in(char* line, const uint16_t ports[2]) {
  char* owner = std::strstr(line, DRIVER);
  if (owner == nullptr) return nullptr;
  char* end = nullptr;
  const unsigned long first = std::strtoul(line, &end, 16);
  const unsigned long last = *end == '-' ? std::strtoul(end + 1, nullptr, 16) : first;
  owner += std::strlen(" : ");
  owner[std::strcspn(owner, "\n")] = '\0';
  const bool covers =
      (ports[0] >= first && ports[0] <= last) || (ports[1] >= first && ports[1] <= last);
  return covers ? owner : nullptr;
}

}  // namespace

bool take_turn_on_ports() {
  const int handle = platform::lock_ports();
  return handle == -1 || take_turn(handle);  // held to the end of the process
}

bool take_turn_on_device(int handle) {
  return take_turn(handle);
}

void warn_of_owner(uint16_t commandPort, uint16_t dataPort) {
  static bool looked = false;  // and there was nothing to look at, or nothing more to say
  FILE* list = looked ? nullptr : platform::port_owners();
  looked = looked || list == nullptr;
  if (list == nullptr) return;
  const uint16_t ports[] = {commandPort, dataPort};
  char line[OWNER_LINE_SIZE];
  const char* owner = nullptr;
  while (owner == nullptr && std::fgets(line, sizeof line, list) != nullptr) {
    owner = owner_in(line, ports);
  }
  std::fclose(list);
  if (owner == nullptr) return;
  looked = true;
  notice("the ports %X and %X belong to the kernel's driver %s: use --open", commandPort, dataPort,
         owner);
}

// "none [integrity] confidentiality": the state in force is in brackets.
void hint_lockdown() {
  static bool hinted = false;
  FILE* state = hinted ? nullptr : platform::lockdown_state();
  if (state == nullptr) return;
  hinted = true;
  char line[OWNER_LINE_SIZE] = "";
  const bool known = std::fgets(line, sizeof line, state) != nullptr;
  std::fclose(state);
  if (known && std::strstr(line, "[none]") == nullptr) {
    remark("the kernel is locked down and keeps programs from the ports: use --open");
  }
}

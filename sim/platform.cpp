// platform.h over the simulated machine: ports, clock, host interfaces.
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "sim/machine.h"

namespace platform {

namespace {

constexpr uint8_t NOTHING = 0xFF;
constexpr uint16_t POKE_PORT = 0xE6;
constexpr int SOCKET = 20000;  // a number that no real handle has
constexpr int LOCK = 20001;
constexpr size_t NAME_LIMIT = 15;

constexpr char LIST_HEAD[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|"
    "bytes    packets errs drop fifo colls carrier compressed\n";
constexpr char LIST_COUNTERS[] =
    "    1500      12    0    0    0     0          0         0 "
    "    1500      12    0    0    0     0       0          0\n";

uint8_t next_port_byte(sim::Machine& machine) {
  const bool left = machine.port_used < machine.port_stream.size();
  return left ? machine.port_stream[machine.port_used++] : NOTHING;
}

const sim::HostInterface* find_interface(int socket, const char* name) {
  if (socket != SOCKET) {
    errno = EBADF;
    return nullptr;
  }
  const std::string cut(name, strnlen(name, NAME_LIMIT));
  for (const sim::HostInterface& entry : sim::machine().interfaces) {
    if (entry.name == cut) return &entry;
  }
  errno = ENODEV;
  return nullptr;
}

// A file that holds this text; null when there is none.
FILE* file_of(const std::string& text) {
  FILE* file = text.empty() ? nullptr : fmemopen(nullptr, text.size() + 1, "w+");
  if (file == nullptr) return nullptr;
  std::fwrite(text.data(), 1, text.size(), file);
  std::rewind(file);
  return file;
}

// Copies `from`, which may be shorter, into the zeroed `to`.
void copy_bytes(const sim::Bytes& from, uint8_t* to, size_t room) {
  std::memset(to, 0, room);
  std::copy_n(from.begin(), std::min(from.size(), room), to);
}

}  // namespace

bool has_ports() {
  return sim::machine().has_ports;
}

int io_privilege() {
  if (sim::machine().root) return 0;
  errno = EPERM;
  return -1;
}

uint8_t inb(uint16_t port) {
  sim::Machine& machine = sim::machine();
  machine.port_reads++;
  if (!machine.port_stream.empty()) return next_port_byte(machine);
  if (sim::is_away(machine.bmc)) return NOTHING;
  for (sim::Kcs& kcs : machine.ports) {
    if (kcs.command_port == port) return sim::kcs_read_status(kcs, machine.bmc);
    if (kcs.data_port == port) return sim::kcs_read_data(kcs);
  }
  return NOTHING;
}

void outb(uint8_t value, uint16_t port) {
  sim::Machine& machine = sim::machine();
  machine.port_writes++;
  if (port == POKE_PORT) sim::log_poke(value);
  if (sim::is_away(machine.bmc)) return;
  for (sim::Kcs& kcs : machine.ports) {
    if (kcs.command_port == port) return sim::kcs_write_command(kcs, value);
    if (kcs.data_port != port) continue;
    if (sim::kcs_write_data(kcs, machine.bmc, value)) {
      sim::kcs_take_answer(kcs, machine.bmc, sim::serve(kcs.request));
    }
    return;
  }
}

void sleep(unsigned seconds, void (*each_second)()) {
  sim::log_pause(seconds * sim::SECOND_US);
  for (; seconds > 0; seconds--) {
    sim::machine().bmc.clock.now_us += sim::SECOND_US;
    if (each_second != nullptr) each_second();
  }
}

void usleep(unsigned microseconds) {
  sim::pause(microseconds);
}

uint32_t time_now() {
  return sim::seconds(sim::machine().bmc.clock);
}

uint64_t clock_ms() {
  return sim::machine().bmc.clock.now_us / 1000;
}

void end_by_signal(int number) {
  sim::finish();
  raise_default(number);
}

int lock_ports() {
  return sim::machine().lock_holder > 0 ? LOCK : -1;
}

int lock_try(int) {
  const sim::Machine& machine = sim::machine();
  if (machine.lock_holder == 0 || machine.bmc.clock.now_us >= machine.lock_until_us) return 0;
  errno = EWOULDBLOCK;
  return -1;
}

int lock_holder(int) {
  return sim::machine().lock_holder;
}

FILE* port_owners() {
  return file_of(sim::machine().port_owners);
}

FILE* lockdown_state() {
  return file_of(sim::machine().lockdown);
}

FILE* interface_list() {
  if (!sim::machine().lists_interfaces) {
    errno = ENOENT;
    return nullptr;
  }
  std::string text = LIST_HEAD;
  for (const sim::HostInterface& entry : sim::machine().interfaces) {
    const size_t indent = entry.name.size() < 6 ? 6 - entry.name.size() : 0;
    text += std::string(indent, ' ') + entry.name + ":" + LIST_COUNTERS;
  }
  return file_of(text);
}

int interface_socket() {
  return SOCKET;
}

void interface_close(int) {
}

int interface_address(int socket, const char* name, uint8_t address[4]) {
  const sim::HostInterface* found = find_interface(socket, name);
  if (found == nullptr) return -1;
  if (found->address.empty()) {
    errno = EADDRNOTAVAIL;
    return -1;
  }
  copy_bytes(found->address, address, 4);
  return 0;
}

int interface_hardware_address(int socket, const char* name, uint8_t address[6]) {
  const sim::HostInterface* found = find_interface(socket, name);
  if (found == nullptr) return -1;
  copy_bytes(found->mac, address, 6);
  return 0;
}

}  // namespace platform

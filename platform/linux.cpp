// The real machine: the kernel's IPMI device, its clock and its network interfaces.
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/platform.h"

namespace platform {

namespace {

const char HOLDER[] = ": FLOCK  ADVISORY  ";  // one that waits has an arrow before FLOCK

}  // namespace

int device_open(const char* path) {
  return ::open(path, O_RDWR | O_CLOEXEC);
}

int device_close(int handle) {
  return ::close(handle);
}

int device_send(int handle, ipmi_req* request) {
  return ::ioctl(handle, IPMICTL_SEND_COMMAND, request);
}

int device_receive(int handle, ipmi_recv* received) {
  return ::ioctl(handle, IPMICTL_RECEIVE_MSG_TRUNC, received);
}

int device_select(int handle, bool wake, bool* readable) {
  *readable = false;
  if (handle < 0 || handle >= FD_SETSIZE) {
    errno = EBADF;
    return -1;
  }
  fd_set handles;
  FD_ZERO(&handles);
  FD_SET(handle, &handles);
  wake_every_second(wake);
  signals_let_in(true);
  const int result = ::select(handle + 1, &handles, nullptr, nullptr, nullptr);
  const int reason = errno;
  signals_let_in(false);
  wake_every_second(false);
  errno = reason;
  *readable = result > 0 && FD_ISSET(handle, &handles);
  return result;
}

void sleep(unsigned seconds, void (*each_second)()) {
  while (seconds > 0 && each_second == nullptr) seconds = ::sleep(seconds);
  for (; seconds > 0; seconds--) {
    sleep(1);
    each_second();
  }
}

void usleep(unsigned microseconds) {
  ::usleep(microseconds);
}

uint32_t time_now() {
  return static_cast<uint32_t>(::time(nullptr));
}

uint64_t clock_ms() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void end_by_signal(int number) {
  raise_default(number);
}

int lock_ports() {
  return ::open("/dev/port", O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

int lock_try(int handle) {
  return ::flock(handle, LOCK_EX | LOCK_NB);
}

// A line of /proc/locks: "1: FLOCK  ADVISORY  WRITE 1234 00:05:1051 0 EOF".
int lock_holder(int handle) {
  struct stat locked;
  FILE* locks = std::fopen("/proc/locks", "re");
  if (locks == nullptr) return 0;
  int holder = 0;
  char line[256];
  while (::fstat(handle, &locked) == 0 && std::fgets(line, sizeof line, locks) != nullptr) {
    char* end = std::strstr(line, HOLDER);
    if (end == nullptr) continue;
    end += sizeof HOLDER - 1;
    end += std::strcspn(end, " ");  // READ or WRITE
    const unsigned long process = std::strtoul(end, &end, 10);
    const auto device_major = static_cast<unsigned>(std::strtoul(end, &end, 16));
    if (*end != ':') continue;
    const auto device_minor = static_cast<unsigned>(std::strtoul(end + 1, &end, 16));
    const bool same = *end == ':' && std::strtoul(end + 1, nullptr, 10) == locked.st_ino &&
                      makedev(device_major, device_minor) == locked.st_dev;
    if (same) holder = static_cast<int>(process);
  }
  std::fclose(locks);
  return holder;
}

FILE* port_owners() {
  const bool no_driver = ::faccessat(AT_FDCWD, "/sys/module", F_OK, 0) == 0 &&
                         ::faccessat(AT_FDCWD, "/sys/module/ipmi_si", F_OK, 0) != 0;
  if (no_driver) return nullptr;
  return std::fopen("/proc/ioports", "re");
}

FILE* lockdown_state() {
  return std::fopen("/sys/kernel/security/lockdown", "re");
}

FILE* interface_list() {
  return std::fopen("/proc/net/dev", "re");
}

int interface_socket() {
  return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

void interface_close(int socket) {
  ::close(socket);
}

int interface_address(int socket, const char* name, uint8_t address[4]) {
  ifreq query{};
  std::snprintf(query.ifr_name, sizeof query.ifr_name, "%s", name);
  if (::ioctl(socket, SIOCGIFADDR, &query) < 0) return -1;
  sockaddr_in answer;
  std::memcpy(&answer, &query.ifr_addr, sizeof answer);
  std::memcpy(address, &answer.sin_addr, 4);
  return 0;
}

int interface_hardware_address(int socket, const char* name, uint8_t address[6]) {
  ifreq query{};
  std::snprintf(query.ifr_name, sizeof query.ifr_name, "%s", name);
  if (::ioctl(socket, SIOCGIFHWADDR, &query) < 0) return -1;
  std::memcpy(address, query.ifr_hwaddr.sa_data, 6);
  return 0;
}

}  // namespace platform

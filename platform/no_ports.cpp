// A processor that has no I/O ports.
#include <cerrno>

#include "platform/platform.h"

namespace platform {

bool has_ports() {
  return false;
}

int io_privilege() {
  errno = ENOSYS;
  return -1;
}

uint8_t inb(uint16_t) {
  return 0xFF;
}

void outb(uint8_t, uint16_t) {
}

}  // namespace platform

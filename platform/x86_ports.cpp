// The I/O ports of an x86 processor.
#include <sys/io.h>

#include "platform/platform.h"

namespace platform {

bool has_ports() {
  return true;
}

int io_privilege() {
  return ::iopl(3);
}

uint8_t inb(uint16_t port) {
  return ::inb(port);
}

void outb(uint8_t value, uint16_t port) {
  ::outb(value, port);
}

}  // namespace platform

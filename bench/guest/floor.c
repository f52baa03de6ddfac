// What requests cost at least: sends those of a list over KCS ports, or over the kernel's device,
// and reads the answers. Nothing else.
//
// Usage: floor ports|device LIST. In the list a request is a byte with its length, then its bytes:
// NetFn/LUN, command, data. A reservation in it is replaced by the one that the BMC gave last.
#include <fcntl.h>
#include <linux/ipmi.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/io.h>
#include <sys/select.h>
#include <unistd.h>

enum {
  DATA = 0xCA2,
  COMMAND = 0xCA3,  // read: status
  OBF = 0x01,
  IBF = 0x02,
  STATE = 0xC0,
  READING = 0x40,
  WRITE_START = 0x61,
  WRITE_END = 0x62,
  READ = 0x68,
  ROOM = 272,
  STORAGE = 0x0A << 2,
  RESERVE_RECORDS = 0x22,
  GET_RECORD = 0x23,
};

static unsigned char list[1 << 16];
static int device;

static unsigned char status_when(unsigned char mask, unsigned char wanted) {
  unsigned char status;
  do status = inb(COMMAND);
  while ((status & mask) != wanted);
  return status;
}

// The standard's least: a read of the status, one that empties the output buffer, the byte.
static void write_byte(unsigned char byte, unsigned short port) {
  outb(byte, port);
  status_when(IBF, 0);
  inb(DATA);
}

static unsigned over_ports(const unsigned char* request, unsigned length, unsigned char* answer) {
  status_when(IBF, 0);
  write_byte(WRITE_START, COMMAND);
  for (unsigned i = 0; i + 1 < length; i++) write_byte(request[i], DATA);
  write_byte(WRITE_END, COMMAND);
  outb(request[length - 1], DATA);
  for (unsigned count = 0;; count++) {
    const unsigned char status = status_when(IBF | OBF, OBF);
    const unsigned char byte = inb(DATA);
    if ((status & STATE) != READING) return count;
    if (count < ROOM) answer[count] = byte;
    outb(READ, DATA);
  }
}

static unsigned over_device(unsigned char* request, unsigned length, unsigned char* answer) {
  static long number;
  struct ipmi_system_interface_addr bmc = {IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, 0};
  struct ipmi_req sent = {(unsigned char*)&bmc, sizeof bmc, number++,
                          {request[0] >> 2, request[1], length - 2, request + 2}};
  if (ioctl(device, IPMICTL_SEND_COMMAND, &sent) != 0) return 0;
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(device, &readable);
  select(device + 1, &readable, NULL, NULL, NULL);
  unsigned char from[IPMI_MAX_ADDR_SIZE];
  struct ipmi_recv received = {0, from, sizeof from, 0, {0, 0, ROOM - 2, answer + 2}};
  if (ioctl(device, IPMICTL_RECEIVE_MSG_TRUNC, &received) != 0) return 0;
  return received.msg.data_len + 2;
}

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const int file = open(arguments[2], O_RDONLY);
  const ssize_t size = read(file, list, sizeof list);
  const int ports = strcmp(arguments[1], "ports") == 0;
  if (size <= 0 || (ports && ioperm(DATA, 2, 1) != 0)) return 1;
  if (!ports) device = open("/dev/ipmi0", O_RDWR);
  unsigned char reservation[2] = {0, 0};
  for (unsigned char* at = list; at < list + size; at += 1 + at[0]) {
    unsigned char answer[ROOM];
    unsigned char* request = at + 1;
    const int storage = request[0] == STORAGE;
    if (storage && request[1] == GET_RECORD && (request[2] | request[3])) {
      memcpy(request + 2, reservation, sizeof reservation);
    }
    const unsigned length =
        ports ? over_ports(request, at[0], answer) : over_device(request, at[0], answer);
    if (length < 3) return 1;  // NetFn/LUN, command, completion code
    if (storage && request[1] == RESERVE_RECORDS) memcpy(reservation, answer + 3, 2);
  }
  return 0;
}

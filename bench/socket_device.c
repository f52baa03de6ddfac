// Preloaded into qarn: its /dev/ipmi0 is a socket to qarn-bmc, and its pauses end at once. So the
// program as it is shipped runs over millions of requests in seconds, and its memory is its own.
// At its end it says on standard error how many requests it sent.
//
// The port of qarn-bmc is in QARN_BMC_PORT. A message on the wire is a sequence byte, NetFn/LUN,
// command, data and a checksum byte (all add up to 0 modulo 256), then A0; the bytes A0, A1 and AA
// in it are sent as AA and the byte OR 10. What ends in A1 is no answer.
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/ipmi.h>
#include <netinet/tcp.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

enum { MESSAGE_END = 0xA0, OTHER_END = 0xA1, ESCAPE = 0xAA, ESCAPED_BIT = 0x10, ROOM = 600 };

static int device = -1;
static unsigned long requests;
static long number;

static int connect_to_bmc(void) {
  const char* port = getenv("QARN_BMC_PORT");
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  address.sin_port = htons((unsigned short)atoi(port != NULL ? port : "0"));
  device = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(device, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return connect(device, (struct sockaddr*)&address, sizeof address) == 0 ? device : -1;
}

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const unsigned mode = va_arg(rest, unsigned);
  va_end(rest);
  if (strcmp(path, "/dev/ipmi0") == 0) return connect_to_bmc();
  return openat(AT_FDCWD, path, flags, mode);
}

static void put(unsigned char* wire, size_t* length, unsigned char byte) {
  const int special = byte == MESSAGE_END || byte == OTHER_END || byte == ESCAPE;
  if (special) wire[(*length)++] = ESCAPE;
  wire[(*length)++] = special ? byte | ESCAPED_BIT : byte;
}

static int send_request(const struct ipmi_req* request) {
  const struct ipmi_msg* message = &request->msg;
  unsigned char bytes[ROOM] = {1, (unsigned char)(message->netfn << 2), message->cmd};
  memcpy(bytes + 3, message->data, message->data_len);
  const size_t count = 3 + message->data_len;
  unsigned char wire[2 * ROOM];
  unsigned char sum = 0;
  size_t length = 0;
  for (size_t i = 0; i < count; i++) {
    sum = (unsigned char)(sum + bytes[i]);
    put(wire, &length, bytes[i]);
  }
  put(wire, &length, (unsigned char)-sum);
  wire[length++] = MESSAGE_END;
  number = request->msgid;
  requests++;
  return send(device, wire, length, MSG_NOSIGNAL) == (ssize_t)length ? 0 : -1;
}

// The next message from the wire, without its checksum: its length.
static size_t next_message(unsigned char* bytes) {
  static unsigned char wire[ROOM];
  static ssize_t at, end;
  size_t count = 0;
  for (unsigned char last = 0;;) {
    if (at == end) {
      at = 0;
      end = recv(device, wire, sizeof wire, 0);
      if (end <= 0) exit(3);
    }
    const unsigned char byte = wire[at++];
    if (byte == MESSAGE_END) return count - 1;
    if (byte == OTHER_END) {
      count = 0;
    } else if (byte != ESCAPE && count < ROOM) {
      bytes[count++] = last == ESCAPE ? byte & (unsigned char)~ESCAPED_BIT : byte;
    }
    last = byte;
  }
}

static int take_answer(struct ipmi_recv* received) {
  unsigned char bytes[ROOM];
  const size_t count = next_message(bytes) - 3;
  if (count > received->msg.data_len) return -1;
  memcpy(received->msg.data, bytes + 3, count);
  received->msg.data_len = (unsigned short)count;
  received->msg.netfn = bytes[1] >> 2;
  received->msg.cmd = bytes[2];
  received->msgid = number;
  return 0;
}

int ioctl(int handle, unsigned long request, ...) {
  va_list rest;
  va_start(rest, request);
  void* argument = va_arg(rest, void*);
  va_end(rest);
  if (handle == device && request == IPMICTL_SEND_COMMAND) return send_request(argument);
  if (handle == device && request == IPMICTL_RECEIVE_MSG_TRUNC) return take_answer(argument);
  int (*real)(int, unsigned long, void*);
  *(void**)&real = dlsym(RTLD_NEXT, "ioctl");
  return real(handle, request, argument);
}

unsigned sleep(unsigned seconds) {
  (void)seconds;
  return 0;
}

int usleep(useconds_t microseconds) {
  (void)microseconds;
  return 0;
}

__attribute__((destructor)) static void say_count(void) {
  if (requests > 0) dprintf(STDERR_FILENO, "requests %lu\n", requests);
}

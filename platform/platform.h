// Every touch of the machine. Two implementations, chosen at link time: linux.cpp and sim/.
#pragma once
#include <linux/ipmi.h>

#include <cstdint>
#include <cstdio>

namespace platform {

// Raises the I/O privilege level to 3 (root only). 0, or -1 with errno.
int io_privilege();
// One byte from or to an x86 I/O port; needs io_privilege().
uint8_t inb(uint16_t port);
void outb(uint8_t value, uint16_t port);

// The kernel's IPMI character device. Each returns 0 (open: a handle), or -1 with errno.
int device_open(const char* path);
int device_close(int handle);
int device_send(int handle, ipmi_req* request);       // IPMICTL_SEND_COMMAND
int device_receive(int handle, ipmi_recv* received);  // IPMICTL_RECEIVE_MSG_TRUNC
// Waits without limit until the handle can be read; select's own result (-1 with errno). `readable`
// tells whether the handle is marked afterwards.
int device_select(int handle, bool* readable);

void sleep(unsigned seconds);
void usleep(unsigned microseconds);
uint32_t time_now();  // seconds since 1970

// The kernel's list of network interfaces, as /proc/net/dev prints it; null when it has none.
FILE* interface_list();
// An IPv4 datagram socket for the two queries; a handle or -1. Close it with interface_close.
int interface_socket();
void interface_close(int socket);
// The IPv4 address (first octet first) or hardware address of one interface. 0, or -1 with errno.
// A name longer than the kernel's 15 characters is cut to them.
int interface_address(int socket, const char* name, uint8_t address[4]);
int interface_hardware_address(int socket, const char* name, uint8_t address[6]);

}  // namespace platform

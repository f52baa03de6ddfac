// Every touch of the machine. Two implementations, chosen at link time: linux.cpp and sim/.
#pragma once
#include <linux/ipmi.h>

#include <cstdint>
#include <cstdio>

namespace platform {

// Whether the processor has I/O ports.
bool has_ports();
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
// Waits without limit until the handle can be read; a signal ends the wait, and with `wake` a
// second that has passed (EINTR). select's own result (-1 with errno). `readable` says whether the
// handle is marked afterwards.
int device_select(int handle, bool wake, bool* readable);

// `each_second`, if given, is called whenever another second has passed.
void sleep(unsigned seconds, void (*each_second)() = nullptr);
void usleep(unsigned microseconds);
uint32_t time_now();  // seconds since 1970
uint64_t clock_ms();  // milliseconds since some point in the past

// Signals. From signals_hold on, those that would end the run (HUP, INT, TERM, QUIT and all others
// that are no fault of the program; not one that was ignored at the start) and a stop from the
// terminal (TSTP) are held back; SIGPIPE and SIGXFSZ are ignored. signals_pending returns the
// number of an ending signal that has come, or 0.
void signals_hold();
int signals_pending();
// Whether a stop from the terminal has come; signals_stop_here stops the run, until it is
// continued.
bool signals_stop_wanted();
void signals_stop_here();
// Between the call with true and the one with false a signal is noted, and a blocking call fails
// with EINTR.
void signals_let_in(bool in);
// While it is on, such a call fails with EINTR every second, and a stop is not let in.
void wake_every_second(bool on);
// Ends the process by the signal, as a shell expects it to.
[[noreturn]] void end_by_signal(int number);
[[noreturn]] void raise_default(int number);  // its last step

// Hides what is typed at the terminal of standard input, and keeps it from being stopped; then
// shows it as before. 0, or -1 with errno.
int terminal_echo(bool on);

// From here on the process leaves no core file, which could hold a password. 0, or -1 with errno.
int core_off();

// Who else uses the way to the BMC. lock_ports returns a handle to what stands for the ports, or
// -1; lock_try locks that or the kernel's device: 0, or -1 with errno (EWOULDBLOCK: another process
// holds the lock); lock_holder returns that process's number, or 0 when it cannot be found.
int lock_ports();
int lock_try(int handle);
int lock_holder(int handle);
// The kernel's list of ports and their owners, as /proc/ioports prints it; null when it has none,
// or the driver ipmi_si is not loaded.
FILE* port_owners();
// The kernel's lockdown state, as /sys/kernel/security/lockdown prints it; null when it has none.
FILE* lockdown_state();

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

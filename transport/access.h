// Who else uses the way to the BMC: another run of this program, or a driver of the kernel.
#pragma once
#include <cstdint>

// Takes the lock on the ports, or on the open kernel device `handle`. When another process holds it
// a line says so, and up to 60 seconds pass. True when it was taken, or there is none to take;
// false after a line when the other still holds it.
bool take_turn_on_ports();
bool take_turn_on_device(int handle);

// Prints a line when a driver of the kernel owns one of the two ports.
void warn_of_owner(uint16_t commandPort, uint16_t dataPort);

// When the privilege for the ports was refused: a hint, once, if the kernel is locked down.
void hint_lockdown();

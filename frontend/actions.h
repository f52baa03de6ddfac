// What each option does, and what it says about it on the console.
#pragma once

struct IpCfg;
struct Options;

extern int resetFlag;  // 1: the BMC is reset after an update of its sensor records

// --sdr and --sdrdump: erases the BMC's sensor records and writes those of the file, or writes the
// BMC's to the file. A null path does nothing.
void sdrUpdate(const char* path);
void sdrDump(const char* path);

// --fru and --wfru, likewise for the inventory. A failure ends the process with status 1.
void fruUpdate(const char* path);
void fruDump(const char* path);

// --seldump. 1, or 0 after the reason.
int dumpSel(const char* path);

// -u, --save and --verify, of the file that flashfilename names. 1 when the BMC is back in normal
// operation, else 0.
int firmwareUpdate();
int firmwareSave();
int firmwareVerify();

// -d: prints the LAN configuration.
void display_lan(const IpCfg& lan);

// -a: the BMC gets the address of the host interface that carries its MAC address. The values of -m
// and -i become those two, also for the setters that follow.
void match_host_address(Options* options, IpCfg* lan);

// -i, -m, -g, -n and --arp, in this order, as far as they were given.
void set_lan(const Options& options, IpCfg* lan);

// What each option does, and what it says about it on the console.
#pragma once

struct IpCfg;
struct Options;

extern int resetFlag;  // 1: the BMC is reset after an update of its sensor records

// Warns of signs of a mistake in the files that the run is going to read.
void look_at_files(const Options& options);

// --sdr and --sdrdump: erases the BMC's sensor records and writes those of the file, or writes the
// BMC's to the file. A null path does nothing.
void sdrUpdate(const char* path);
void sdrDump(const char* path);

// --fru and --wfru, likewise for the inventory, null too. A failure ends the process with status 1.
void fruUpdate(const char* path);
void fruDump(const char* path);

// --seldump. 1, or 0: after printing why, or for a null path.
int dumpSel(const char* path);

// -u, --save and --verify, of the file that flashfilename names. 1 when the BMC is back in normal
// operation, else 0.
int firmwareUpdate();
int firmwareSave();
int firmwareVerify();

// Says that this server has no daughter card to do this ("update", "save") to.
void refuse_firmware(const char* action);

// --users: prints the user names.
void show_users();

// --dhcp: the BMC gets its address by DHCP.
void set_dhcp();

// -d: prints the LAN configuration.
void display_lan(const IpCfg& lan);

// -a: the BMC gets the address of the host interface that carries its MAC address. True when there
// is one; its address is then in the record.
bool match_host_address(IpCfg* lan);

// -i, -m, -g, -n and --arp, those that were given, in this order. With -a, -m sets the MAC address
// that was read, and -i the IP address that was `matched`, if any; their own values do not count.
void set_lan(const Options& options, bool matched, IpCfg* lan);

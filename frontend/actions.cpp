// What each option does, and what it says about it on the console.
#include "frontend/actions.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/dump_file.h"
#include "base/error_text.h"
#include "base/notice.h"
#include "base/process_end.h"
#include "firmware/flash.h"
#include "frontend/operations.h"
#include "frontend/options.h"
#include "fru/exact.h"
#include "fru/losses.h"
#include "lan/lan.h"
#include "platform/platform.h"
#include "sdr/sdr.h"
#include "sel/sel.h"
#include "textfile/cfg.h"
#include "textfile/quoted.h"
#include "transport/interrupt.h"

int resetFlag = 1;

namespace {

constexpr int STATUS_REFUSED = 1;
constexpr int STATUS_FRU_FAILED = 1;

// The inventory in both its forms: what --exact chooses is filled.
struct Inventory {
  fru_dev plain;
  fru_exact_dev exact;
};

[[noreturn]] void end_fru_action(Inventory* inventory) {
  destroy_fru_dev(&inventory->plain);
  end_process(STATUS_FRU_FAILED);
}

// A file may be a FIFO or a device that never ends: a signal ends the wait for it.
bool load_sdr_file(const char* path, sdr_repository* repository) {
  const Signals_let_in while_reading;
  const bool loaded = FileToSdr(path, repository) == 1;
  interrupt_point();
  if (warnings_refuse()) end_process(STATUS_REFUSED);
  return loaded;
}

bool load_fru_file(const char* path, Inventory* inventory) {
  const Signals_let_in while_reading;
  const int result =
      exactFlag != 0 ? ExactFileToFru(path, &inventory->exact) : FileToFru(path, &inventory->plain);
  const bool loaded = result == 1;
  interrupt_point();
  return loaded;
}

// Nothing is written once a signal has come; one that comes later ends the wait for a FIFO.
template <typename Content>
bool write_dump(int (*write)(const char*, const Content*), const char* path,
                const Content& content) {
  interrupt_point();
  const Signals_let_in while_writing;
  const bool whole = write(path, &content) == 1;
  if (!whole) keep_refusal("%s", dump_error_text(errno));
  return whole;
}

bool read_inventory(Inventory* inventory) {
  if (exactFlag != 0) return read_fru_exact(&inventory->exact) == 1;
  return get_fru_dev(&inventory->plain) == 1;
}

bool write_inventory(const char* path, const Inventory& inventory) {
  return exactFlag != 0 ? write_dump(FruToExactFile, path, inventory.exact)
                        : write_dump(FruToFile, path, inventory.plain);
}

// Says why; nothing when it was said already.
void file_failed(const char* path) {
  if (refusal()[0] != '\0') hint_failed("%s: %s", path, refusal());
}

int leave_downloader() {
  std::puts("reset and wait");
  const int result = exit_downloader();
  now_under_way(Unfinished::nothing);
  return result;
}

void store_address(uint8_t field[4], const char* text) {
  const in_addr_t address = inet_addr(text);
  std::memcpy(field, &address, 4);
}

void show_address(const char* label, const uint8_t address[4]) {
  std::printf("%s:\t\t\t%d.%d.%d.%d\n", label, address[0], address[1], address[2], address[3]);
}

}  // namespace

void sdrUpdate(const char* path) {
  if (path == nullptr) return;
  sdr_repository repository{};
  if (load_sdr_file(path, &repository)) {
    std::puts("writing SDR......");
    const bool written = Write_Sdr(&repository) == 1;
    if (written) now_under_way(Unfinished::sdr_reset);
    std::puts(written ? "Update successfully" : err_message);
    freespace(&repository);
    platform::sleep(1);
  } else {
    std::printf("load sdr file %s failed\n", path);
    file_failed(path);
  }
  if (resetFlag != 0) resetBMC();
  now_under_way(Unfinished::nothing);
}

void sdrDump(const char* path) {
  if (path == nullptr) return;
  sdr_repository repository{};
  if (init_sdr(&repository) != 1) {
    std::puts(err_message);
  } else if (!write_dump(SdrToFile, path, repository)) {
    std::printf("Writting File %s fail\n", path);
    file_failed(path);
  }
  freespace(&repository);
}

void fruDump(const char* path) {
  if (path == nullptr) return;
  std::printf("Dump FRU to file %s\n", path);
  std::printf("Dump FRU to File %s\n", path);
  std::puts("reading FRU......");
  Inventory inventory;
  init_fru_dev(&inventory.plain);
  if (!read_inventory(&inventory)) {
    std::puts("checksum error");
    end_fru_action(&inventory);
  }
  std::printf("writing file......");
  if (!write_inventory(path, inventory)) {
    std::puts("fail");
    file_failed(path);
    end_fru_action(&inventory);
  }
  std::puts("ok");
  tell_losses(inventory.plain);
  destroy_fru_dev(&inventory.plain);
}

void fruUpdate(const char* path) {
  if (path == nullptr) return;
  std::printf("update FRU with file %s\n", path);
  std::printf("Update FRU with File %s\n", path);
  std::puts("reading file......");
  Inventory inventory;
  init_fru_dev(&inventory.plain);
  if (!load_fru_file(path, &inventory)) {
    std::printf("Cannot read file %s\n", path);
    file_failed(path);
    end_fru_action(&inventory);
  }
  std::puts("writing FRU......");
  const int written =
      exactFlag != 0 ? write_fru_exact(&inventory.exact) : write_fru_dev(&inventory.plain);
  if (written != 1) {
    std::puts("Update FRU fail");
    end_fru_action(&inventory);
  }
  destroy_fru_dev(&inventory.plain);
  std::puts("Update successfully");
  now_under_way(Unfinished::nothing);
}

int dumpSel(const char* path) {
  if (path == nullptr) return 0;
  std::printf("Dumping SEL to file %s\n", path);
  SelList list{};
  if (get_sel(&list) == 0) {
    std::printf("Get SEL Fail:\t%s\n", err_message);
    return 0;
  }
  if (!write_dump(SelToFile2, path, list)) {
    std::printf("Writting File %s fail\n", path);
    file_failed(path);
    return 0;
  }
  return destroy_sel(&list);
}

int firmwareUpdate() {
  std::printf("Update Firmware with File %s\n", flashfilename);
  now_under_way(Unfinished::downloader);
  enter_downloader();
  const bool programmed = program_firmware() == 1;
  if (programmed) now_under_way(Unfinished::downloader);
  if (!programmed && !interrupted()) {
    std::printf("can't find file %s\n", flashfilename);
    file_failed(flashfilename);
  }
  return leave_downloader();
}

int firmwareSave() {
  std::printf("Read firmware and Save to File %s\n", flashfilename);
  now_under_way(Unfinished::downloader);
  enter_downloader();
  read_flash();
  file_failed(flashfilename);
  return leave_downloader();
}

int firmwareVerify() {
  std::printf("Verify firmware with the File %s\n", flashfilename);
  now_under_way(Unfinished::downloader);
  enter_downloader();
  verify_firmware();
  file_failed(flashfilename);
  return leave_downloader();
}

void refuse_firmware(const char* action) {
  std::puts("Cannot find ORBE C4410/4415");
  std::printf("qarn only support C4410/4415 firmware %s\n", action);
  step_failed("the ports have no daughter card");
}

void show_users() {
  std::puts("Display Users Name");
  DispalyUsersName();
}

void set_dhcp() {
  std::puts("enable DHCP");
  enableDhcp();
}

void display_lan(const IpCfg& lan) {
  std::puts(lan.dhcp != 0 ? "DHCP\t\t\tEnable" : "DHCP\t\t\tDisable");
  show_address("BMC IP Address", lan.ip);
  char mac[MAC_TEXT_SIZE];
  mac_text(lan.mac, mac);
  std::printf("MAC Address:\t\t\t%s\n", mac);
  show_address("Net Mask", lan.netmask);
  show_address("Gate Way", lan.gateway);
}

bool match_host_address(IpCfg* lan) {
  char mac[MAC_TEXT_SIZE];
  char ip[IP_TEXT_SIZE];
  mac_text(lan->mac, mac);
  if (getIpfromMAC(mac, ip) == 0) {
    step_failed("no network interface with an address has the BMC's MAC address %s", mac);
    return false;
  }
  store_address(lan->ip, ip);
  writeIpCfg(lan);
  return true;
}

void set_lan(const Options& options, bool matched, IpCfg* lan) {
  if (options.ip != nullptr) {
    if (!matched) store_address(lan->ip, options.ip);
    setIp(lan);
  }
  if (options.mac != nullptr) {
    if (options.auto_ip == 0) parse_mac(options.mac, lan->mac);  // it was checked with the options
    setMac(lan);
  }
  if (options.gateway != nullptr) {
    store_address(lan->gateway, options.gateway);
    setGateway(lan);
  }
  if (options.netmask != nullptr) {
    store_address(lan->netmask, options.netmask);
    setNetmask(lan);
  }
  if (options.arp != nullptr) {
    lan->arp = static_cast<uint8_t>(std::atoi(options.arp) & 1);
    setArp(lan->arp);
  }
}

// In the order of the actions: of those that exclude each other, the first.
void look_at_files(const Options& options) {
  if (!warnings_wanted()) return;
  const Signals_let_in while_reading;
  if (options.firmware_update != 0) return look_at_image(options.firmware_path);
  if (options.sdr_dump != 0) return;
  if (options.sdr_update != 0) return look_at_sdr_file(options.sdr_path);
  if (options.fru_update_path != nullptr) look_at_fru_file(options.fru_update_path);
  if (options.firmware_save != 0) return;
  if (options.firmware_verify != 0) return look_at_image(options.firmware_path);
  if (options.script_path != nullptr) look_at_script(options.script_path);
}

// qarn: banner, options, the way to the BMC, its identity, then the requested actions in their
// order.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/error_text.h"
#include "base/notice.h"
#include "base/progress.h"
#include "base/standard_streams.h"
#include "firmware/flash.h"
#include "frontend/actions.h"
#include "frontend/operations.h"
#include "frontend/options.h"
#include "frontend/passwords.h"
#include "frontend/signs.h"
#include "lan/lan.h"
#include "platform/platform.h"
#include "textfile/cfg.h"
#include "textfile/quoted.h"
#include "transport/access.h"
#include "transport/bmc.h"
#include "transport/interrupt.h"
#include "transport/transaction.h"

namespace {

constexpr int STATUS_DONE = 0;
constexpr int STATUS_REFUSED = 1;
constexpr int STATUS_STEP_FAILED = 2;
constexpr int STATUS_NO_BMC = -1;

constexpr uint8_t ORBE_CARD = 1;
constexpr uint8_t ORBE_OTHER = 2;
uint8_t orbeType;

const char* const DEVICES[] = {"/dev/ipmi0", "/dev/ipmi/0", "/dev/ipmidev/0"};

// Where a KCS interface may be, and what answers there.
struct Port_pair {
  uint16_t command;
  uint16_t data;
  uint8_t type;
};
const Port_pair PORT_PAIRS[] = {
    {0xCAC, 0xCA8, ORBE_CARD},
    {0xCA3, 0xCA2, ORBE_OTHER},
    {0xCA9, 0xCA8, ORBE_OTHER},
};

void show_version() {
  std::puts("BMC Utility on Linux version " QARN_VERSION);
}

void set_switches(const Options& options) {
  debugFlag = options.debug;
  openIpmiFlag = options.open;
  resetFlag = options.no_reset != 0 ? 0 : 1;
  if (options.channel != nullptr) lanChannel = static_cast<uint8_t>(std::atoi(options.channel));
  if (options.firmware_path != nullptr) flashfilename = options.firmware_path;
  progressFlag = debugFlag == 0 && hintFlag != 0;
}

bool holds_passwords(const Options& options) {
  return std::ranges::any_of(options.set_password, [](int set) { return set != 0; });
}

bool open_device() {
  const char* there = nullptr;
  int reason = ENOENT;
  for (const char* path : DEVICES) {
    driverHandle = platform::device_open(path);
    if (driverHandle != -1) return take_turn_on_device(driverHandle);
    if (errno == ENOENT || errno == ENOTDIR) continue;
    there = path;
    reason = errno;
  }
  std::printf("Could not open device at %s or %s or %s\n", DEVICES[0], DEVICES[1], DEVICES[2]);
  if (there != nullptr) {
    hint_failed("%s: %s", there, std::strerror(reason));
  } else {
    hint_failed("none of them is there: load the kernel's module ipmi_devintf");
  }
  return false;
}

bool open_ports() {
  if (!platform::has_ports()) {
    std::puts("this machine has no I/O ports: use --open");
    step_failed("this processor has no I/O ports");
    return false;
  }
  if (!take_turn_on_ports()) return false;
  now_under_way(Unfinished::nothing);
  for (const Port_pair& pair : PORT_PAIRS) {
    warn_of_owner(pair.command, pair.data);
    if (Init_Interface("KCS", pair.command, pair.data, 0) != 0) continue;
    orbeType = pair.type;
    return true;
  }
  std::puts("KCS_INIT error");
  step_failed("no BMC answers at the ports: is this root? else try --open");
  return false;
}

// With --strict, a run that would end with 0 tells what did not go as asked.
int strict_status(int status) {
  if (status != STATUS_DONE || strictFlag == 0) return status;
  if (warnings_refuse()) return STATUS_REFUSED;
  return any_step_failed() || output_lost() ? STATUS_STEP_FAILED : STATUS_DONE;
}

int close_device(int status) {
  if (driverHandle != -1) platform::device_close(driverHandle);
  driverHandle = -1;
  return status;
}

// Only the daughter card has a downloader.
bool firmware_allowed(const char* action) {
  if (orbeType != ORBE_CARD) refuse_firmware(action);
  return orbeType == ORBE_CARD;
}

void run_user_actions(Options* options) {
  for (unsigned i = 0; i < USERS; i++) {
    if (options->set_password[i] != 0) SetUserPwd(static_cast<int>(i), options->password[i]);
    explicit_bzero(options->password[i], sizeof options->password[i]);
  }
  if (options->users != 0) show_users();
}

void run_file_actions(const Options& options) {
  fruUpdate(options.fru_update_path);
  fruDump(options.fru_dump_path);
  dumpSel(options.sel_path);
}

int run_lan_actions(const Options& options) {
  IpCfg lan{};
  const bool shown_or_matched = options.display != 0 || options.auto_ip != 0;
  if (shown_or_matched && readIpCfg(&lan) == 0) {
    std::puts(err_message);
    return STATUS_NO_BMC;
  }
  const bool matched = options.auto_ip != 0 && match_host_address(&lan);
  if (options.display != 0) display_lan(lan);
  set_lan(options, matched, &lan);
  return STATUS_DONE;
}

int run_settings_and_requests(const Options& options) {
  if (options.inside_mac != 0) insideMacSet();
  if (options.script_path != nullptr) process_cfg(options.script_path);
  if (options.dhcp != 0) set_dhcp();
  const int status = run_lan_actions(options);
  if (status == STATUS_DONE && options.raw_count != 0) {
    cmdExecute(options.raw_bytes, options.raw_count, 1);
  }
  return status;
}

int run_actions(const Options& options) {
  if (options.firmware_update != 0) {
    if (!firmware_allowed("update")) return STATUS_REFUSED;
    firmwareUpdate();
    return STATUS_DONE;
  }
  if (options.sdr_dump != 0) {
    sdrDump(options.sdr_path);
    return STATUS_DONE;
  }
  if (options.sdr_update != 0) {
    sdrUpdate(options.sdr_path);
    return STATUS_DONE;
  }
  run_file_actions(options);
  if (options.firmware_save != 0 || options.firmware_verify != 0) {
    if (!firmware_allowed("save")) return STATUS_REFUSED;
    options.firmware_save != 0 ? firmwareSave() : firmwareVerify();
    return STATUS_DONE;
  }
  return run_settings_and_requests(options);
}

}  // namespace

int main(int argc, char** argv) {
  prepare_standard_streams();
  hold_signals();
  // By lines, so that a log shows how far a run came that now waits for a dead BMC.
  static char room[4096];
  std::setvbuf(stdout, room, _IOLBF, sizeof room);
  show_version();
  if (argc <= 1) {
    show_usage();
    return STATUS_DONE;
  }
  Options options{};
  const int parsed = parse_options(argc, argv, &options);
  hintFlag = isatty(STDERR_FILENO);
  strictFlag = options.strict;
  tell_argument_signs(options);
  if (parsed != OPTIONS_ACCEPTED) return strict_status(parsed);
  if (holds_passwords(options)) platform::core_off();
  exactFlag = options.exact;
  look_at_files(options);
  if (warnings_refuse()) return STATUS_REFUSED;
  if (options.prompt != 0 && !ask_passwords(&options)) return STATUS_REFUSED;
  set_switches(options);
  orbeType = ORBE_CARD;

  if (!(openIpmiFlag != 0 ? open_device() : open_ports())) return close_device(STATUS_NO_BMC);
  now_under_way(Unfinished::nothing);
  show_fw_version();
  run_user_actions(&options);
  return strict_status(close_device(run_actions(options)));
}

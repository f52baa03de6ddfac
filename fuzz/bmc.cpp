// Fuzz target: a BMC that answers any bytes, of any length, to any request. The first byte chooses
// the action, the second the fault of the kernel's device; the rest are the answers, each after its
// length.
#include <cerrno>
#include <iterator>

#include "firmware/flash.h"
#include "frontend/actions.h"
#include "frontend/operations.h"
#include "fru/fru.h"
#include "fuzz/fuzz.h"
#include "lan/lan.h"
#include "sdr/sdr.h"
#include "sel/sel.h"

namespace {

void read_fru() {
  fru_dev dev;
  get_fru_dev(&dev);
  FruToFile("/dev/null", &dev);
  destroy_fru_dev(&dev);
}

void write_fru() {
  WriteToFRU(sim::example_fru_image(), 0);
}

void set_lan() {
  IpCfg lan{};
  readIpCfg(&lan);
  insideMacSet();
  writeIpCfg(&lan);
}

void look_and_ask() {
  const uint8_t request[] = {0x20, 0x18, 0x01};
  show_fw_version();
  DispalyUsersName();
  SetUserPwd(0, "0123456789ABCDE");
  cmdExecute(request, sizeof request, 1);
}

void (*const ACTIONS[])() = {
    [] { sdrDump("/dev/null"); },
    read_fru,
    [] { dumpSel("/dev/null"); },
    set_lan,
    look_and_ask,
    [] { sdrUpdate("fuzz.sdr"); },
    write_fru,
    [] { firmwareSave(); },
    [] { firmwareUpdate(); },
    [] { firmwareVerify(); },
};
constexpr size_t SDR_UPDATE = 5;
constexpr size_t SAVE = 7;

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input = fuzz::start(bytes, size);
  const size_t action = fuzz::take(&input) % std::size(ACTIONS);
  const uint8_t device = fuzz::take(&input);
  if (action == SDR_UPDATE) sdrDump("fuzz.sdr");  // of a sound BMC
  if (action > SAVE) fuzz::file("firmware", std::string(0x2000, 'q'));
  flashfilename = action == SAVE ? "/dev/null" : "firmware";

  if (input.empty()) input.assign(1, '\0');
  sim::machine().bmc.answer_stream.assign(input.begin(), input.end());
  debugFlag = device & 1;
  // No fault in three of four inputs.
  sim::machine().kernel_faults = {device == 0xC0 ? EIO : 0, device == 0xC1 ? EINTR : 0,
                                  device == 0xC2, device == 0xC3 ? EMSGSIZE : 0};
  // Answers longer than the driver's room; 64 of them, for a flash of 4 GB is read with millions.
  const sim::Fault longer = {sim::FaultKind::lengthen, -1, -1, 0, 64, 0x100U + device};
  if (device > 0xC3) sim::machine().bmc.faults = {longer};
  ACTIONS[action]();
  return 0;
}

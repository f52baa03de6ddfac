// Fuzz target: a BMC that answers any bytes, of any length, to any request. The first byte chooses
// the action, the second the fault of the kernel's device; the rest are the answers, each after its
// length.
#include <cerrno>
#include <cstring>
#include <iterator>

#include "firmware/flash.h"
#include "frontend/operations.h"
#include "fru/fru.h"
#include "fuzz/fuzz.h"
#include "lan/lan.h"
#include "sdr/sdr.h"
#include "sel/sel.h"
#include "transport/transaction.h"

namespace {

void dump_sdr() {
  sdr_repository repository{};
  init_sdr(&repository);
  SdrToFile("/dev/null", &repository);
  freespace(&repository);
}

void dump_fru() {
  fru_dev dev;
  init_fru_dev(&dev);
  if (get_fru_dev(&dev) == 1) {
    uint8_t image[FRU_IMAGE_ROOM];
    unsigned length = 0;
    for (unsigned i = 0; i < fru_count(dev); i++) build_fru_image(&dev.records[i], image, &length);
  }
  FruToFile("/dev/null", &dev);
  destroy_fru_dev(&dev);
}

void dump_log() {
  dumpSel("/dev/null");
}

void read_lan() {
  IpCfg lan{};
  readIpCfg(&lan);
  insideMacSet();
  writeIpCfg(&lan);
}

void who_is_there() {
  show_fw_version();
  DispalyUsersName();
  SetUserPwd(0, "0123456789ABCDE");
  const uint8_t request[] = {0x20, 0x18, 0x01};
  cmdExecute(request, sizeof request, 1);
}

// The records of the sample repository, read once from a sound BMC.
void write_sdr() {
  static sdr_repository sample{};
  if (sample.record_count == 0) {
    sim::Bytes answers;
    answers.swap(sim::machine().bmc.answer_stream);
    fuzz::require(init_sdr(&sample) == 1);
    answers.swap(sim::machine().bmc.answer_stream);
  }
  Write_Sdr(&sample);
  resetBMC();
}

void write_fru() {
  const sim::Bytes image = sim::example_fru_image();
  WriteToFRU(image.data(), static_cast<unsigned>(image.size()), 0);
}

void save_firmware() {
  std::strcpy(flashfilename, "/dev/null");
  firmwareSave();
}

void update_firmware() {
  std::strcpy(flashfilename, fuzz::file("fuzz.bin", std::string(0x2000, 'q')));
  firmwareUpdate();
}

void verify() {
  std::strcpy(flashfilename, fuzz::file("fuzz.mot", "S309FFF0000001020304ED\n"));
  firmwareVerify();
}

void (*const ACTIONS[])() = {dump_sdr,  dump_fru,  dump_log,      read_lan,        who_is_there,
                             write_sdr, write_fru, save_firmware, update_firmware, verify};

constexpr unsigned LONG_ANSWERS = 64;

// No fault in three of four inputs.
void break_device(uint8_t choice) {
  sim::KernelFaults& faults = sim::machine().kernel_faults;
  const unsigned longest = 0x100U + choice;
  if (choice == 0xC0) faults.send_errno = EIO;
  if (choice == 0xC1) faults.select_errno = EINTR;
  if (choice == 0xC2) faults.not_readable = true;
  if (choice == 0xC3) faults.receive_errno = EMSGSIZE;
  if (choice > 0xC3) {  // answers longer than the driver's room, but not for a flash of 4 GB
    sim::machine().bmc.faults = {{sim::FaultKind::lengthen, -1, -1, 0, LONG_ANSWERS, longest}};
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input(bytes, bytes + size);
  fuzz::start(sim::Kind::card);
  const size_t action = fuzz::take(&input) % std::size(ACTIONS);
  const uint8_t device = fuzz::take(&input);
  debugFlag = device & 1;
  break_device(device);
  sim::Bytes& answers = sim::machine().bmc.answer_stream;
  answers = sim::Bytes(input.begin(), input.end());
  if (answers.empty()) answers = {0};
  ACTIONS[action]();
  return 0;
}

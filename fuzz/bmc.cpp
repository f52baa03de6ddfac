// Fuzz target: a BMC that answers any bytes, of any length, to any request. The first byte chooses
// the action, the second the fault of the kernel's device; the rest are the answers, each after its
// length.
#include <cerrno>
#include <cstring>

#include "firmware/flash.h"
#include "frontend/operations.h"
#include "fru/fru.h"
#include "fuzz/fuzz.h"
#include "lan/lan.h"
#include "sdr/sdr.h"
#include "sel/sel.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input = fuzz::start(bytes, size);
  const unsigned action = fuzz::take(&input) % 10;
  const uint8_t device = fuzz::take(&input);
  const sim::Bytes image = sim::example_fru_image();
  const uint8_t request[] = {0x20, 0x18, 0x01};
  IpCfg lan{};
  fru_dev dev;
  init_fru_dev(&dev);
  if (action == 5) sdrDump("fuzz.sdr");  // of a sound BMC
  if (action > 7) fuzz::file("firmware", std::string(0x2000, 'q'));
  std::strcpy(flashfilename, action == 7 ? "/dev/null" : "firmware");

  if (input.empty()) input.assign(1, '\0');
  sim::machine().bmc.answer_stream.assign(input.begin(), input.end());
  debugFlag = device & 1;
  // No fault in three of four inputs.
  sim::machine().kernel_faults = {device == 0xC0 ? EIO : 0, device == 0xC1 ? EINTR : 0,
                                  device == 0xC2, device == 0xC3 ? EMSGSIZE : 0};
  // Answers longer than the driver's room; not so many as a flash of 4 GB takes.
  const sim::Fault longer = {sim::FaultKind::lengthen, -1, -1, 0, 64, 0x100U + device};
  if (device > 0xC3) sim::machine().bmc.faults = {longer};

  if (action == 0) sdrDump("/dev/null");
  if (action == 1) get_fru_dev(&dev);
  if (action == 1) FruToFile("/dev/null", &dev);
  if (action == 2) dumpSel("/dev/null");
  if (action == 3) readIpCfg(&lan);
  if (action == 3) insideMacSet();
  if (action == 3) writeIpCfg(&lan);
  if (action == 4) show_fw_version();
  if (action == 4) DispalyUsersName();
  if (action == 4) SetUserPwd(0, "0123456789ABCDE");
  if (action == 4) cmdExecute(request, sizeof request, 1);
  if (action == 5) sdrUpdate("fuzz.sdr");
  if (action == 6) WriteToFRU(image.data(), static_cast<unsigned>(image.size()), 0);
  if (action == 7) firmwareSave();
  if (action == 8) firmwareUpdate();
  if (action == 9) firmwareVerify();
  destroy_fru_dev(&dev);
  return 0;
}

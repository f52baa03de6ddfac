// The SDR actions of the command line.
#include <cstdio>

#include "base/error_text.h"
#include "frontend/operations.h"
#include "platform/platform.h"
#include "sdr/sdr.h"

int resetFlag = 1;

void sdrUpdate(const char* path) {
  if (path == nullptr) return;
  sdr_repository repository{};
  if (FileToSdr(path, &repository) == 1) {
    std::puts("writing SDR......");
    std::puts(Write_Sdr(&repository) == 1 ? "Update successfully" : err_message);
    freespace(&repository);
    platform::sleep(1);
  } else {
    std::printf("load sdr file %s failed\n", path);
  }
  if (resetFlag != 0) resetBMC();
}

void sdrDump(const char* path) {
  if (path == nullptr) return;
  sdr_repository repository{};
  if (init_sdr(&repository) != 1) {
    std::puts(err_message);
  } else if (SdrToFile(path, &repository) != 1) {
    std::printf("Writting File %s fail\n", path);
  }
  freespace(&repository);
}

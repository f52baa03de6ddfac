// Image.
#include "firmware/flash.h"

#include <cstdio>

char flashfilename[FLASH_NAME_SIZE];
int firmwareUpdate() {
  std::puts("not built yet");
  return 0;
}
int firmwareSave() {
  return firmwareUpdate();
}
int firmwareVerify() {
  return firmwareUpdate();
}

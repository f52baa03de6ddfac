// The FRU actions of the command line.
#include <cstdio>
#include <cstdlib>

#include "fru/fru.h"

namespace {

[[noreturn]] void fail(fru_dev* dev) {
  destroy_fru_dev(dev);
  std::exit(1);
}

}  // namespace

void fruDump(const char* path) {
  if (path == nullptr) return;
  std::printf("Dump FRU to File %s\n", path);
  std::puts("reading FRU......");
  fru_dev dev;
  init_fru_dev(&dev);
  if (get_fru_dev(&dev) != 1) {
    std::puts("checksum error");
    fail(&dev);
  }
  std::printf("writing file......");
  if (FruToFile(path, &dev) != 1) {
    std::puts("fail");
    fail(&dev);
  }
  destroy_fru_dev(&dev);
  std::puts("ok");
}

void fruUpdate(const char* path) {
  if (path == nullptr) return;
  std::printf("Update FRU with File %s\n", path);
  std::puts("reading file......");
  fru_dev dev;
  init_fru_dev(&dev);
  if (FileToFru(path, &dev) != 1) {
    std::printf("Cannot read file %s\n", path);
    fail(&dev);
  }
  std::puts("writing FRU......");
  if (write_fru_dev(&dev) != 1) {
    std::puts("Update FRU fail");
    fail(&dev);
  }
  destroy_fru_dev(&dev);
  std::puts("Update successfully");
}

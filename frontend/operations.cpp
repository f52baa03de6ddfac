// Small operations on the BMC itself.
#include "frontend/operations.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/platform.h"
#include "transport/transaction.h"

namespace {

constexpr unsigned FIRST_USER = 1;
constexpr unsigned LAST_USER = 5;
constexpr unsigned NAME_SIZE = 16;
constexpr unsigned PASSWORD_SIZE = 16;
constexpr uint8_t SET_PASSWORD = 0x02;
constexpr unsigned RESET_SECONDS = 8;
constexpr unsigned RAW_LIMIT = 1024;

// Get Device ID response, offsets of the response byte string.
constexpr unsigned FIRMWARE_MAJOR = 6;
constexpr unsigned FIRMWARE_MINOR = 7;
constexpr unsigned IPMI_VERSION = 8;
constexpr unsigned MANUFACTURER_ID = 10;
constexpr unsigned PRODUCT_ID = 13;
constexpr unsigned DEVICE_ID_SIZE = 15;

char digit(unsigned value) {
  return "0123456789ABCDEF"[value & 0x0F];
}

}  // namespace

int show_fw_version() {
  const uint8_t request[] = {0x20, 0x18, 0x01};
  Response response;
  const bool accepted = exchange(request, sizeof request, &response);
  const uint8_t* id = response_part(response, 0, DEVICE_ID_SIZE);
  if (!accepted || id == nullptr) {
    std::puts("get Device ID failed");
    return 0;
  }
  const int manufacturer =
      id[MANUFACTURER_ID] | id[MANUFACTURER_ID + 1] << 8 | id[MANUFACTURER_ID + 2] << 16;
  const int product = id[PRODUCT_ID] | id[PRODUCT_ID + 1] << 8;
  std::printf("IPMI Ver: %c.%c", digit(id[IPMI_VERSION]), digit(id[IPMI_VERSION] >> 4));
  std::printf("\tFirmware Rev: %d.%c%c", id[FIRMWARE_MAJOR] & 0x7F, digit(id[FIRMWARE_MINOR] >> 4),
              digit(id[FIRMWARE_MINOR]));
  std::printf("\tVendor ID: %d", manufacturer);
  std::printf("\tPdt ID: %d\n", product);
  return 1;
}

void DispalyUsersName() {
  for (unsigned user = FIRST_USER; user <= LAST_USER; user++) {
    const uint8_t request[] = {0x20, 0x18, 0x46, static_cast<uint8_t>(user)};
    Response response;
    if (!exchange(request, sizeof request, &response)) return;
    char name[NAME_SIZE + 1] = {};
    // A short response is shown as far as it goes.
    const unsigned arrived = std::min(response.length - RESPONSE_DATA, NAME_SIZE);
    std::memcpy(name, response.bytes + RESPONSE_DATA, arrived);
    std::printf("User ID %d\t:\t\t%s\n", static_cast<int>(user), name[0] != 0 ? name : "NULL");
  }
}

int SetUserPwd(int index, const char* password) {
  if (password == nullptr) return 0;
  uint8_t request[5 + PASSWORD_SIZE] = {0x20, 0x18, 0x47, static_cast<uint8_t>((index + 1) & 0x3F),
                                        SET_PASSWORD};
  std::memcpy(request + 5, password, PASSWORD_SIZE);
  Response response;
  return exchange(request, sizeof request, &response) ? 1 : 0;
}

void resetBMC() {
  const uint8_t request[] = {0x20, 0x18, 0x02};
  std::puts("reset BMC and wait");
  Response response;
  if (exchange(request, sizeof request, &response)) {
    platform::sleep(RESET_SECONDS);
  } else {
    std::puts("cannot reset BMC");
  }
}

int cmdExecute(const uint8_t* request, unsigned length, int print) {
  if (request == nullptr || length == 0 || length > RAW_LIMIT) return 0;
  Response response;
  const bool accepted = exchange(request, length, &response);
  if (print != 0) {
    std::printf("response is ");
    for (unsigned i = 1; i < response.length; i++) std::printf("%02X ", response.bytes[i]);
    std::putchar('\n');
  }
  return accepted ? 1 : 0;
}

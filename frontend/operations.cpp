// Small operations on the BMC itself.
#include "frontend/operations.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/notice.h"
#include "platform/platform.h"
#include "transport/completion.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"
#include "transport/waiting.h"

namespace {

constexpr unsigned FIRST_USER = 1;
constexpr unsigned LAST_USER = 5;
constexpr unsigned USER_NAME_SIZE = 16;
constexpr unsigned PASSWORD_SIZE = 16;
// Set User Password: user ID, operation, password (16).
constexpr unsigned PASSWORD_DATA = REQUEST_DATA + 2;
constexpr uint8_t SET_PASSWORD = 0x02;
constexpr unsigned RESET_SECONDS = 8;
constexpr unsigned RAW_LIMIT = 1024;

// Get Device ID response data: device ID, device revision, firmware revision (2), IPMI version,
// device support, manufacturer ID (3), product ID (2).
constexpr unsigned FIRMWARE_MAJOR = 2;
constexpr unsigned FIRMWARE_MINOR = 3;
constexpr unsigned IPMI_VERSION = 4;
constexpr unsigned MANUFACTURER_ID = 6;
constexpr unsigned PRODUCT_ID = 9;
constexpr unsigned DEVICE_ID_SIZE = 11;

char digit(unsigned value) {
  return "0123456789ABCDEF"[value & 0x0F];
}

// True for a character that a terminal would obey instead of showing it; a NUL ends the name.
bool is_control(char c) {
  const uint8_t byte = static_cast<uint8_t>(c);
  return (byte > 0 && byte < 0x20) || (byte >= 0x7F && byte < 0xA0);
}

}  // namespace

int show_fw_version() {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_APP, GET_DEVICE_ID};
  Response response;
  const auto id = ask(request, DEVICE_ID_SIZE, &response);
  if (id.empty()) {
    std::puts("get Device ID failed");
    step_failed("the BMC's identity: %s", failure_text());
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
    const uint8_t request[] = {BMC_ADDRESS, NETFN_APP, GET_USER_NAME, static_cast<uint8_t>(user)};
    Response response;
    if (!exchange(request, &response)) {
      return step_failed("the name of user ID %u: %s", user, failure_text());
    }
    const auto answer = response_part(response, RESPONSE_DATA, 0);
    char name[USER_NAME_SIZE + 1] = {};
    // A short response is shown as far as it goes.
    if (answer.size() < USER_NAME_SIZE) {
      step_failed("the name of user ID %u: a response with %zu of %u data bytes", user,
                  answer.size(), USER_NAME_SIZE);
    }
    std::memcpy(name, answer.data(), std::min<size_t>(answer.size(), USER_NAME_SIZE));
    if (isatty(STDOUT_FILENO) != 0) std::ranges::replace_if(name, is_control, '?');
    std::printf("User ID %d\t:\t\t%s\n", static_cast<int>(user), name[0] != 0 ? name : "NULL");
  }
}

int SetUserPwd(int index, const char* password) {
  if (password == nullptr) return 0;
  uint8_t request[PASSWORD_DATA + PASSWORD_SIZE] = {BMC_ADDRESS, NETFN_APP, SET_USER_PASSWORD,
                                                    static_cast<uint8_t>((index + 1) & 0x3F),
                                                    SET_PASSWORD};
  std::memcpy(request + PASSWORD_DATA, password, PASSWORD_SIZE);
  Response response;
  const bool accepted = exchange(request, &response);
  explicit_bzero(request, sizeof request);
  if (!accepted) step_failed("the password of user ID %d: %s", index + 1, failure_text());
  return accepted ? 1 : 0;
}

void resetBMC() {
  const uint8_t request[] = {BMC_ADDRESS, NETFN_APP, COLD_RESET};
  std::puts("reset BMC and wait");
  Response response;
  if (exchange(request, &response)) {
    const Wait wait("the BMC to restart");
    wait_seconds(RESET_SECONDS);
  } else {
    std::puts("cannot reset BMC");
    step_failed("the reset of the BMC: %s", failure_text());
  }
}

int cmdExecute(const uint8_t* request, unsigned length, int print) {
  if (request == nullptr || length == 0 || length > RAW_LIMIT) return 0;
  Response response;
  const bool accepted = exchange({request, length}, &response);
  if (print != 0) {
    std::printf("response is ");
    for (unsigned i = 1; i < response.length; i++) std::printf("%02X ", response.bytes[i]);
    std::putchar('\n');
  }
  if (!accepted) step_failed("the raw request: %s", failure_text());
  return accepted ? 1 : 0;
}

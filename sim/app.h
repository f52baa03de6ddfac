// Application commands of the simulated BMC: identity, users, resets, messaging.
#pragma once
#include <array>

#include "sim/types.h"

namespace sim {

struct User {
  std::string name;     // at most 16 characters
  Bytes password = {};  // as it was set: 16 or 20 bytes, or empty
};

inline constexpr unsigned USER_COUNT = 5;

// What every management controller has, the BMC as well as a target on the IPMB.
struct App {
  // Get Device ID response data: device ID and revision, firmware revisions 1 and 2, IPMI version,
  // device support, manufacturer (3), product (2), auxiliary revision (4).
  Bytes device_id = {0x20, 0x01, 0x01, 0x23, 0x51, 0xBF, 0x57, 0x01, 0x00, 0x03, 0x00, 0, 0, 0, 0};
  std::array<User, USER_COUNT> users = {{// user IDs 1 to 5
                                         {"", {}},
                                         {"Operator", {}},
                                         {"Admin", {}},
                                         {"Callback", {}},
                                         {"User", {}}}};
};

std::span<const Command> app_commands();
void store(const App& from, State& state);
void restore(App& to, const State& state);

}  // namespace sim

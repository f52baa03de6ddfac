// What the sensor records and the event log of the simulated BMC have in common: the information
// about them, reservations, and the request that erases them.
#pragma once
#include "sim/types.h"

namespace sim {

inline constexpr size_t REPOSITORY_MOST = 65535;  // records, and the most bytes reported as free

struct Repository {
  int claimed = -1;               // reported as the number of records; -1: the real number
  size_t room = REPOSITORY_MOST;  // records that fit
  uint16_t reservation = 0;       // the last one given; 0: none
  uint32_t added = 0x6553F180;    // time of the last addition and of the last erase
  uint32_t erased = 0x6553F100;
};

enum class Clear { refused, start, status };

// Get SDR Repository Info and Get SEL Info (IPMI v2.0 tables 33-3 and 31-2).
Reply repository_info(const Repository& from, size_t held, size_t free, uint8_t support);
// Reserve SDR Repository and Reserve SEL.
Reply give_reservation(Repository& from);
// Whether data begins with the last reservation that was given.
bool is_reserved(const Repository& from, const Bytes& data);
// Clear SDR Repository and Clear SEL: reservation (2), "CLR", operation. Fills `refusal` when
// refused.
Clear check_clear(const Repository& from, const Bytes& data, Reply& refusal);

}  // namespace sim

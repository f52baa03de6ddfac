// Fuzz target: KCS ports. The first byte chooses what is arbitrary: each port read, or the answers
// of a BMC whose interface works (as Send Message and Get Message give them, too). Then come the
// request's address and length.
#include <memory>

#include "fuzz/fuzz.h"
#include "transport/bmc.h"
#include "transport/kcs_intf.h"

namespace {

constexpr unsigned ROUNDS = 3;
constexpr unsigned RESPONSE_LIMIT = 129;
enum Choice : uint8_t { ANSWERS = 0x01, ATTENTION = 0x02 };

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input(bytes, bytes + size);
  const uint8_t choice = fuzz::take(&input);
  const uint8_t address = fuzz::take(&input);
  const unsigned length = fuzz::take(&input);
  KCS_bounds = {8, 2};
  sim::reset(sim::Kind::card);
  sim::Machine& machine = sim::machine();
  if (choice & ANSWERS) {
    machine.bmc.answer_stream = sim::Bytes(input.begin(), input.end());
    machine.bmc.attention = (choice & ATTENTION) != 0;
  } else {
    machine.port_stream = sim::Bytes(input.begin(), input.end());
  }
  if (Init_Interface("KCS", 0xCAC, 0xCA8, 0) != 0) return 0;
  for (unsigned round = 0; round < ROUNDS; round++) {
    // Exactly as long as promised, so that a byte too many is seen.
    const auto request = std::make_unique<uint8_t[]>(length);
    const auto response = std::make_unique<uint8_t[]>(RESPONSE_LIMIT);
    for (unsigned i = 0; i < length; i++) request[i] = static_cast<uint8_t>(i);
    if (length > 0) request[0] = address;
    if (Send_Req(request.get(), length) != 0) continue;
    unsigned received = 0;
    if (Get_Resp(response.get(), &received) == 0) fuzz::require(received <= RESPONSE_LIMIT);
  }
  return 0;
}

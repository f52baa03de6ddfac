// Fuzz target: KCS ports. The first byte chooses what is arbitrary: each port read, or the answers
// of a BMC whose interface works (as Send Message and Get Message give them, too). Then come the
// request's address and length.
#include "fuzz/fuzz.h"
#include "transport/bmc.h"
#include "transport/kcs_intf.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input = fuzz::start(bytes, size);
  const uint8_t choice = fuzz::take(&input);
  const uint8_t address = fuzz::take(&input);
  const unsigned length = fuzz::take(&input);
  sim::Machine& machine = sim::machine();
  const bool answers = (choice & 1) != 0;
  (answers ? machine.bmc.answer_stream : machine.port_stream).assign(input.begin(), input.end());
  machine.bmc.attention = answers && (choice & 2) != 0;
  KCS_bounds = {8, 2};
  if (Init_Interface("KCS", 0xCAC, 0xCA8, 0) != 0) return 0;
  for (unsigned round = 0; round < 3; round++) {
    // Exactly as long as a response may be, so that the sanitizer sees one byte more.
    std::vector<uint8_t> request(length, address);
    std::vector<uint8_t> response(129);
    if (Send_Req(request.data(), length) != 0) continue;
    unsigned received = 0;
    fuzz::require(Get_Resp(response.data(), &received) != 0 || received <= response.size());
  }
  return 0;
}

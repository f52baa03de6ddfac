// One IPMI request and its response, over the kernel's IPMI device or over the ports. Who calls
// what, from the top down:
//
// | caller             | calls                                                                   |
// |--------------------|-------------------------------------------------------------------------|
// | a feature          | ask for data bytes, exchange where the completion code alone counts     |
// | ask, exchange      | converToBMCCmd, which traces and chooses the path                       |
// | converToBMCCmd     | the kernel's device; or Send_Req, Get_Resp (bmc.h): retries, bridging   |
// | Send_Req, Get_Resp | KCS_Send_BMC_Req, KCS_Get_BMC_Resp (kcs_intf.h): the ports              |
#pragma once
#include <cstdint>
#include <span>

// A request byte string: responder address (0x20 = the BMC), NetFn << 2 | LUN, command, data.
// A response byte string: address, NetFn << 2 | LUN, command, completion code, data.

extern int debugFlag;     // 1: trace every transaction on standard output
extern int openIpmiFlag;  // 1: use the kernel's IPMI device
extern int driverHandle;  // the open kernel device, or -1

inline constexpr unsigned RESPONSE_ROOM = 264;  // the longest response has 259 bytes
inline constexpr unsigned RESPONSE_COMPLETION = 3;
inline constexpr unsigned RESPONSE_DATA = 4;

// Command templates: a count, then that many leading bytes of a request.
extern const uint8_t ReadFRUCmd[];            // Storage, Read FRU Data
extern const uint8_t GetSelRepositoryInfo[];  // Storage, Get SEL Info
extern const uint8_t ReserveSELRepository[];  // Storage, Reserve SEL
extern const uint8_t GetSEL[];                // Storage, Get SEL Entry

// Copies the template's bytes without its count to `destination`; returns how many.
unsigned UpdateCommandToSendText(uint8_t* destination, const uint8_t* command);

// Sends `length` bytes and stores the response in `response` (room for RESPONSE_ROOM bytes) and its
// byte count in `responseLength`. 0, or -1 with both left as they were. On the KCS path a transfer
// that fails ends the process with status -1.
int converToBMCCmd(const uint8_t* request, unsigned length, uint8_t* response,
                   unsigned* responseLength);

// The most bytes a request to the BMC itself may have on the path in use.
unsigned request_limit();

// A response that cannot be mistaken: zeros and a completion code of 0xFF until a real one arrives.
struct Response {
  uint8_t bytes[RESPONSE_ROOM];
  unsigned length;
};

// One request of which only the completion code counts: true when it is 0. `response` is cleared,
// then holds what came.
bool exchange(std::span<const uint8_t> request, Response* response);

// One request that must complete and bring at least `count` data bytes: all the data bytes that
// came, in `response`; otherwise a span of size 0 whose data() is null.
std::span<const uint8_t> ask(std::span<const uint8_t> request, unsigned count, Response* response);

// The completion code, or 0xFF when the response holds none.
uint8_t completion_code(const Response& response);

// The bytes of a response byte string that arrived from `offset` on, at least `count`; when fewer
// arrived, a span of size 0 whose data() is null.
std::span<const uint8_t> response_part(const Response& response, unsigned offset, unsigned count);

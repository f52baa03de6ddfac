// One request and its response: retries, bridging, and the kernel's device.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/bmc.h"
#include "transport/kcs_intf.h"
#include "transport/transaction.h"

namespace {

using sim::Bytes;
using sim::hex_text;
using sim::machine;
using enum sim::FaultKind;

const Bytes DEVICE_ID = {0x20, 0x18, 0x01};
const Bytes TARGET_NAME = {0x2C, 0x18, 0x46, 0x01};
const std::string NAME = "2C 1E 46 00 48 6F 74 20 73 77 61 70 00 00 00 00 00 00 00 00";

struct Message : testing::Test {
  void SetUp() override {
    KCS_bounds = {20, 3};
    sim::reset(sim::Kind::card);
    machine().bmc.targets[0x2C].users[0].name = "Hot swap";
    ASSERT_EQ(Init_Interface(nullptr, 0xCAC, 0xCA8, 0), 0);
  }
  // What the console says, then the response of the request, or "none" when it failed.
  static std::string ask(const Bytes& request) {
    uint8_t bytes[RESPONSE_ROOM] = {};
    unsigned length = 0;
    const std::string console = console_of([&] {
      if (Send_Req(request.data(), static_cast<unsigned>(request.size())) != 0) return;
      Get_Resp(bytes, &length);
    });
    return console + (length > 0 ? hex_text(Bytes(bytes, bytes + length)) : "none");
  }
};

TEST_F(Message, a_request_to_another_address_is_bridged_once_no_message_waits) {
  std::string expected;
  std::srand(machine().epoch);
  const int sequence = std::rand();
  for (int i = 0; i < 130; i++) {  // twice round the sequence numbers
    EXPECT_EQ(ask(TARGET_NAME), NAME);
    const uint8_t tag = static_cast<uint8_t>((sequence + i) << 2 | 2);
    const uint8_t sum = static_cast<uint8_t>(0 - (0x20 + tag + 0x46 + 0x01));
    expected += "18 34 00 2C 18 BC " + hex_text({0x20, tag, 0x46, 0x01, sum}) + "\n18 33\n";
  }
  EXPECT_EQ(sim::transcript(), expected);
  machine().bmc.receive_queue.push_back({0x00, 0x1E});
  EXPECT_EQ(ask({0x2C, 0x18, 0x47, 0x09}), "2C 1E 47 C7");
  EXPECT_EQ(sim::transcript().find("18 30 01\n18 34 "), expected.size());
  machine().bmc.attention = true;
  machine().bmc.faults = {{.command = 0x30, .value = 0xC3}};
  EXPECT_EQ(ask(TARGET_NAME), "Clear Receive Message Queue!\nnone");
  EXPECT_EQ(ask({0x20, 0x19, 0x01}), "20 1D 01 00 " + hex_text(machine().bmc.app.device_id));
  EXPECT_TRUE(sim::transcript().ends_with("\n18 33\n18 30 01\n19 01\n")) << "a direct request goes";
}

TEST_F(Message, what_goes_wrong_on_the_way_to_a_target_is_told_and_returned) {
  const auto ask_over = [](const sim::Fault& fault) {
    machine().bmc.faults = {fault};
    return ask(TARGET_NAME);
  };
  EXPECT_EQ(ask_over({.command = 0x34, .value = 0x83}), "Send Message Error!\n2C 1C 34 83");
  EXPECT_EQ(ask_over({.kind = answer, .command = 0x34}), "Send Message Error!\n2C 1C 34");
  EXPECT_EQ(ask_over({.command = 0x33, .value = 0x80}), "2C 1C 33 80");
  EXPECT_EQ(ask_over({.kind = answer, .command = 0x33, .bytes = {0, 0, 30, 4, 5, 6, 7, 8}}),
            "2C 1C 33 00 00 1E 04 05 06 07 08");
  EXPECT_EQ(ask_over({.kind = shorten, .command = 0x33, .value = 9}), "2C 1E 46 00");
  // Not repeated, as it is no time-out; the rest of a response that is too long is no response.
  EXPECT_EQ(ask_over({.kind = write_error, .command = 0x33, .value = 1}), "none");
  EXPECT_EQ(ask_over({.kind = lengthen, .command = 0x34, .value = 150}), "none");
  machine().bmc.keep_sequence = machine().bmc.can_signal = false;
  const std::string wait = "KCS Waiting for SMSATN set: Timeout!\n";
  EXPECT_EQ(ask(TARGET_NAME), wait + wait + wait + "Sequence Number does not match!\n" + NAME);
}

TEST_F(Message, each_step_gives_up_after_its_own_number_of_attempts) {
  machine().bmc.faults = {{.kind = write_error, .times = 2}, {.kind = no_dummy, .skip = 1}};
  EXPECT_EQ(ask(DEVICE_ID).size(), 3 * 19 - 1U);
  // Init clears the time-out, so it is not repeated; nothing of what was read is an answer.
  EXPECT_EQ(ask(DEVICE_ID), "KCS Waiting for OBF set: Timeout!\n20");
  EXPECT_EQ(sim::transcript(), "18 01\n18 01\nsleep 50\nsleep 50\nsleep 50\n");
  // IBF never clears, so each operation and each re-initialisation pokes once.
  const auto pokes = [](uint8_t status, const auto& step) {
    sim::reset(sim::Kind::card);
    machine().port_stream = Bytes(5000, status);
    console_of([&] { EXPECT_EQ(step(), -1); });
    return std::ranges::count(sim::transcript(), 'k');
  };
  Response response;
  EXPECT_EQ(pokes(0x82, [] { return Init_Interface("KCS", 0xCAC, 0xCA8, 0); }), 5);
  EXPECT_EQ(pokes(0x82, [] { return Send_Req(DEVICE_ID.data(), 3); }), 2 * 3);
  EXPECT_EQ(pokes(0x86, [] { return Send_Req(TARGET_NAME.data(), 4); }), 2 * 4);
  EXPECT_EQ(pokes(0x82, [&] { return Get_Resp(response.bytes, &response.length); }), 2 * 3);
}

TEST_F(Message, a_request_outside_the_size_limits_or_without_an_interface_is_not_sent) {
  EXPECT_EQ(ask(Bytes(2, 0x20)) + ask(Bytes(132, 0x20)) + ask(Bytes(124, 0x2C)), "nonenonenone");
  EXPECT_EQ(sim::transcript(), "");
  for (const size_t length : {3, 131}) EXPECT_EQ(ask(Bytes(length, 0x20)), "20 24 20 C1");
  EXPECT_EQ(ask(Bytes(123, 0x2C)), "2C 2E 2C C1");
  for (const char* name : {"BT", "kcs"}) EXPECT_EQ(Init_Interface(name, 0xCAC, 0xCA8, 0), -1);
  machine().root = false;
  EXPECT_EQ(console_of([] { EXPECT_EQ(Init_Interface("KCS", 0xCAC, 0xCA8, 0), -1); }),
            "have no right to change I/O privilege level\n");
}

TEST(Kernel, a_failure_and_a_response_of_any_length_read_as_what_came) {
  sim::reset(sim::Kind::card);
  driverHandle = platform::device_open("/dev/ipmi0");
  openIpmiFlag = 1;
  Response response;
  const auto exchanged = [&](const uint8_t* request, unsigned length, bool expected) {
    return console_of([&] { EXPECT_EQ(exchange(request, length, &response), expected); });
  };
  const uint8_t request[] = {0x2C, 0x1A, 0x46, 0x02};  // address and LUN do not count
  EXPECT_EQ(exchanged(request, 2, false), "request of 2 bytes has no command: not sent\n");
  machine().bmc.faults = {{.kind = answer}, {.kind = shorten, .skip = 1, .value = 3}};
  EXPECT_EQ(exchanged(DEVICE_ID.data(), 3, false), "") << "no completion code at all";
  EXPECT_EQ(exchanged(request, 4, true), "");
  EXPECT_EQ(sim::transcript(), "18 01\n18 46 02\n");
  EXPECT_EQ(hex_text(Bytes(response.bytes, response.bytes + response.length)), "20 1C 46 00 4F 70");
  EXPECT_TRUE(response_part(response, RESPONSE_DATA, 2) == response.bytes + RESPONSE_DATA);
  EXPECT_TRUE(!response_part(response, 4, 3) && !response_part(response, 0xFFFFFFFF, 2));
  machine().bmc.faults = {{.kind = lengthen, .value = 300}};
  EXPECT_EQ(exchanged(request, 4, true), "Error receiving message: Message too long\n");
  EXPECT_TRUE(response.length == 259 && response.bytes[258] == 0xEE);
  const auto failure = [&](const sim::KernelFaults& faults) {
    machine().kernel_faults = faults;
    const std::string console = exchanged(DEVICE_ID.data(), 3, false);
    EXPECT_TRUE(response.length == 0 && response.bytes[1] == 0 && completion_code(response) == 255);
    return console;
  };
  EXPECT_EQ(failure({.send_errno = EIO}), "Error sending command: Input/output error\n");
  EXPECT_EQ(failure({.select_errno = EINTR}), "Select fail\n");
  EXPECT_EQ(failure({.not_readable = true}), "Error no data available\n");
  EXPECT_EQ(failure({.receive_errno = EIO}), "Error receiving message: Input/output error\n");
}

}  // namespace

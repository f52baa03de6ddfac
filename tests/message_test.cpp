// One request and its response: retries, bridging, and the kernel's device.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/bmc.h"
#include "transport/kcs_intf.h"
#include "transport/transaction.h"

namespace {

using sim::Bytes;
using sim::FaultKind;
using sim::machine;

unsigned count_of(const std::string& line, const std::string& text) {
  unsigned found = 0;
  for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) found++;
  return found;
}

struct Message : testing::Test {
  KCS_wait_bounds before = KCS_bounds;
  uint8_t sequence = 0;

  void SetUp() override {
    KCS_bounds = {20, 3};
    sim::reset(sim::Kind::card);
    machine().bmc.targets[0x2C].users[0].name = "Hot swap";
    machine().epoch = 1700000000;
    std::srand(1700000000);
    sequence = static_cast<uint8_t>(std::rand() & 0x3F);
    ASSERT_EQ(Init_Interface("KCS", 0xCAC, 0xCA8, 0), 0);
  }
  void TearDown() override {
    KCS_bounds = before;
  }
  // The response of one request, or empty when it failed.
  static Bytes ask(const Bytes& request) {
    uint8_t bytes[RESPONSE_ROOM] = {};
    unsigned length = 0;
    if (Send_Req(request.data(), static_cast<unsigned>(request.size())) != 0) return {};
    if (Get_Resp(bytes, &length) != 0) return {};
    return Bytes(bytes, bytes + length);
  }
};

const Bytes DEVICE_ID = {0x20, 0x18, 0x01};
const Bytes TARGET_NAME = {0x2C, 0x18, 0x46, 0x01};

Bytes joined(Bytes start, const Bytes& end) {
  start.insert(start.end(), end.begin(), end.end());
  return start;
}

TEST_F(Message, a_direct_request_reaches_the_bmc_as_it_is_whatever_sms_atn_says) {
  machine().bmc.attention = true;
  EXPECT_EQ(ask({0x20, 0x19, 0x01}), joined({0x20, 0x1D, 0x01, 0x00}, machine().bmc.app.device_id));
  EXPECT_EQ(sim::transcript(), "19 01\n");
}

TEST_F(Message, the_rest_of_a_response_that_is_too_long_is_no_response) {
  machine().bmc.faults = {{.kind = FaultKind::lengthen, .value = 150}};
  EXPECT_TRUE(ask(DEVICE_ID).empty());
  EXPECT_EQ(ask({0x20, 0x18, 0x46, 0x02}).size(), 20U);  // the interface is idle again
}

// Send Message as it must stand on the wire.
std::string bridged(uint8_t sequence, const Bytes& tail) {
  Bytes frame = {0x20, static_cast<uint8_t>(sequence << 2 | 2)};
  frame.insert(frame.end(), tail.begin(), tail.end());
  uint8_t sum = 0;
  for (const uint8_t byte : frame) sum = static_cast<uint8_t>(sum + byte);
  frame.push_back(static_cast<uint8_t>(0x100 - sum));
  return "18 34 00 2C 18 BC " + sim::hex_text(frame) + "\n";
}

TEST_F(Message, a_request_to_another_address_is_bridged_and_its_answer_unwrapped) {
  Bytes name(16);
  std::memcpy(name.data(), "Hot swap", 8);
  std::string expected;
  for (unsigned i = 0; i < 130; i++) {  // twice round the sequence numbers
    EXPECT_EQ(console_of([&] {
                EXPECT_EQ(ask(TARGET_NAME), joined({0x2C, 0x1E, 0x46, 0x00}, name));
              }),
              "");
    expected += bridged(static_cast<uint8_t>((sequence + i) & 0x3F), {0x46, 0x01}) + "18 33\n";
  }
  EXPECT_EQ(ask({0x2C, 0x18, 0x47, 0x09}), (Bytes{0x2C, 0x1E, 0x47, 0xC7}));
  EXPECT_EQ(sim::transcript().substr(0, expected.size()), expected);
  EXPECT_EQ(ask(DEVICE_ID).size(), 19U) << "a direct request is not wrapped afterwards";
}

TEST_F(Message, a_waiting_message_is_cleared_before_a_bridged_request) {
  machine().bmc.receive_queue.push_back({0x00, 0x1E});
  EXPECT_EQ(ask(TARGET_NAME).size(), 20U);
  EXPECT_EQ(sim::transcript().find("18 30 01\n18 34 "), 0U);

  machine().bmc.attention = true;
  machine().bmc.faults = {{.command = 0x30, .value = 0xC3}};
  const std::string earlier = sim::transcript();
  EXPECT_EQ(console_of([&] { EXPECT_TRUE(ask(TARGET_NAME).empty()); }),
            "Clear Receive Message Queue!\n");
  EXPECT_EQ(sim::transcript(), earlier + "18 30 01\n") << "the request itself stays here";
}

TEST_F(Message, what_goes_wrong_on_the_way_to_a_target_is_told_and_returned) {
  const struct {
    const char* what;
    std::vector<sim::Fault> faults;
    bool keep_sequence;
    std::string console;
    Bytes response;  // its beginning
    size_t length;
  } cases[] = {
      {"refused",
       {{.command = 0x34, .value = 0x83}},
       true,
       "Send Message Error!\n",
       {0x2C, 0x1C, 0x34, 0x83},
       4},
      {"Send Message answered with nothing",
       {{.kind = FaultKind::answer, .command = 0x34}},
       true,
       "Send Message Error!\n",
       {0x2C, 0x1C, 0x34},
       3},
      {"wrong sequence",
       {},
       false,
       "Sequence Number does not match!\n",
       {0x2C, 0x1E, 0x46, 0x00, 'H'},
       20},
      {"Get Message refused",
       {{.command = 0x33, .value = 0x80}},
       true,
       "",
       {0x2C, 0x1C, 0x33, 0x80},
       4},
      {"frame cut",
       {{.kind = FaultKind::shorten, .command = 0x33, .value = 8}},
       true,
       "",
       {0x2C, 0x1C, 0x33, 0x00, 0x00, 0x1E},
       11},
      {"smallest frame",
       {{.kind = FaultKind::shorten, .command = 0x33, .value = 9}},
       true,
       "",
       {0x2C, 0x1E, 0x46, 0x00},
       4},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    machine().bmc.receive_queue.clear();
    machine().bmc.faults = one.faults;
    machine().bmc.keep_sequence = one.keep_sequence;
    Bytes response;
    EXPECT_EQ(console_of([&] { response = ask(TARGET_NAME); }), one.console);
    EXPECT_EQ(response.size(), one.length);
    response.resize(one.response.size());
    EXPECT_EQ(response, one.response);
  }
}

TEST_F(Message, without_sms_atn_the_answer_is_fetched_after_three_waits) {
  machine().bmc.can_signal = false;
  const std::string console = console_of([] { EXPECT_EQ(ask(TARGET_NAME).size(), 20U); });
  EXPECT_EQ(count_of("KCS Waiting for SMSATN set: Timeout!\n", console), 3U);
}

TEST_F(Message, a_send_is_tried_three_times) {
  for (const unsigned failures : {2U, 3U}) {
    sim::reset(sim::Kind::card);
    machine().bmc.faults = {{.kind = FaultKind::write_error, .times = failures, .value = 1}};
    EXPECT_EQ(ask(DEVICE_ID).empty(), failures == 3) << failures;
    EXPECT_EQ(machine().bmc.faults[0].seen, 3U);
  }
  machine().bmc.targets[0x2C] = {};
  machine().bmc.faults = {{.kind = FaultKind::write_error, .command = 0x33, .value = 1}};
  EXPECT_TRUE(ask(TARGET_NAME).empty()) << "Get Message is repeated after time-outs only";
}

TEST_F(Message, each_step_gives_up_after_its_own_number_of_attempts) {
  uint8_t answer[RESPONSE_ROOM];
  unsigned length = 0;
  const struct {
    const char* what;
    uint8_t status;  // IBF never clears, so each operation and each re-initialisation pokes once
    std::function<int()> step;
    unsigned pokes;
  } cases[] = {
      {"init", 0x82, [] { return Init_Interface("KCS", 0xCAC, 0xCA8, 0); }, 5},
      {"send", 0x82, [] { return Send_Req(DEVICE_ID.data(), 3); }, 2 * 3},
      {"clear", 0x86, [] { return Send_Req(TARGET_NAME.data(), 4); }, 2 * 4},
      {"receive", 0x82, [&] { return Get_Resp(answer, &length); }, 2 * 3},
  };
  for (const auto& one : cases) {
    sim::reset(sim::Kind::card);
    machine().port_stream = Bytes(5000, one.status);
    console_of([&] { EXPECT_EQ(one.step(), -1) << one.what; });
    EXPECT_EQ(count_of("poke 80\n", sim::transcript()), one.pokes) << one.what;
  }
}

TEST_F(Message, a_time_out_that_init_clears_ends_the_step_without_repeating_it) {
  machine().bmc.faults = {{.kind = FaultKind::no_dummy}};
  EXPECT_EQ(ask(DEVICE_ID), Bytes{0x20}) << "nothing of what was read is taken for an answer";
  EXPECT_EQ(sim::transcript(), "18 01\nsleep 50\nsleep 50\nsleep 50\n");

  // The time-out takes the interface to the card's ports, where here is none.
  sim::reset(sim::Kind::plain);
  ASSERT_EQ(Init_Interface(nullptr, 0xCA3, 0xCA2, 0), 0);
  machine().bmc.faults = {{.kind = FaultKind::no_dummy}};
  EXPECT_EQ(console_of([] { EXPECT_TRUE(ask(DEVICE_ID).empty()); }),
            "KCS Waiting for OBF set: Timeout!\n");
  EXPECT_EQ(KCS_para.cmd_port, 0xCACU);
}

TEST_F(Message, a_request_outside_the_size_limits_is_not_sent) {
  const struct {
    uint8_t address;
    unsigned length;
    bool sent;
  } cases[] = {{0x20, 2, false},   {0x20, 3, true},   {0x20, 131, true},
               {0x20, 132, false}, {0x2C, 123, true}, {0x2C, 124, false}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.length);
    sim::reset(sim::Kind::card);
    machine().bmc.targets[0x2C] = {};
    Bytes request(one.length, 0x18);
    request[0] = one.address;
    EXPECT_EQ(ask(request).empty(), !one.sent);
    EXPECT_EQ(sim::transcript().empty(), !one.sent);
  }
}

TEST_F(Message, an_interface_that_cannot_be_used_is_refused) {
  EXPECT_EQ(Init_Interface("BT", 0xCAC, 0xCA8, 0), -1);
  EXPECT_EQ(Init_Interface("kcs", 0xCAC, 0xCA8, 0), -1);
  EXPECT_EQ(Init_Interface("KCS", 0xCA3, 0xCA2, 0), -1);
  machine().root = false;
  EXPECT_EQ(console_of([] { EXPECT_EQ(Init_Interface("KCS", 0xCAC, 0xCA8, 0), -1); }),
            "have no right to change I/O privilege level\n");
  EXPECT_EQ(sim::transcript(), "");
}

struct Kernel : testing::Test {
  void SetUp() override {
    sim::reset(sim::Kind::none);
    machine().devices = {"/dev/ipmi0"};
    driverHandle = platform::device_open("/dev/ipmi0");
    openIpmiFlag = 1;
  }
  void TearDown() override {
    driverHandle = -1;
    openIpmiFlag = 0;
  }
};

TEST_F(Kernel, a_request_goes_to_the_bmc_itself_without_address_and_lun) {
  Response response;
  const uint8_t request[] = {0x2C, 0x1A, 0x46, 0x02};
  EXPECT_TRUE(exchange(request, sizeof request, &response));
  EXPECT_EQ(sim::transcript(), "18 46 02\n");
  ASSERT_EQ(response.length, 20U);
  EXPECT_EQ(std::memcmp(response.bytes, "\x20\x1C\x46\x00Operator", 12), 0);
}

TEST_F(Kernel, a_failure_is_told_and_reads_as_one) {
  const struct {
    sim::KernelFaults faults;
    const char* console;
  } cases[] = {
      {{.send_errno = EIO}, "Error sending command: Input/output error\n"},
      {{.select_errno = EINTR}, "Select fail\n"},
      {{.not_readable = true}, "Error no data available\n"},
      {{.receive_errno = EIO}, "Error receiving message: Input/output error\n"},
  };
  for (const auto& one : cases) {
    machine().kernel_faults = one.faults;
    Response response;
    EXPECT_EQ(console_of([&] { EXPECT_FALSE(exchange(DEVICE_ID.data(), 3, &response)); }),
              one.console);
    EXPECT_EQ(completion_code(response), 0xFF);
    uint8_t bytes[RESPONSE_ROOM] = {0x77, 0x77};
    unsigned length = 99;
    console_of([&] { EXPECT_EQ(converToBMCCmd(DEVICE_ID.data(), 3, bytes, &length), -1); });
    EXPECT_EQ(bytes[1], 0x77);
    EXPECT_EQ(length, 99U);
    machine().device_queue.clear();
  }
}

TEST_F(Kernel, a_response_longer_than_the_buffer_is_told_and_cut) {
  machine().bmc.faults = {{.kind = FaultKind::lengthen, .value = 300}};
  Response response;
  EXPECT_EQ(console_of([&] { EXPECT_TRUE(exchange(DEVICE_ID.data(), 3, &response)); }),
            "Error receiving message: Message too long\n");
  EXPECT_EQ(response.length, 259U);
  EXPECT_EQ(response.bytes[258], 0xEE);
}

TEST_F(Kernel, a_response_is_read_only_as_far_as_it_came) {
  machine().bmc.faults = {{.kind = FaultKind::answer, .bytes = {}},
                          {.kind = FaultKind::shorten, .skip = 1, .value = 3}};
  Response response;
  EXPECT_FALSE(exchange(DEVICE_ID.data(), 3, &response)) << "no completion code at all";
  EXPECT_TRUE(exchange(DEVICE_ID.data(), 3, &response));
  EXPECT_NE(response_part(response, RESPONSE_DATA, 2), nullptr);
  EXPECT_EQ(response_part(response, RESPONSE_DATA, 3), nullptr);
  EXPECT_EQ(response_part(response, 0xFFFFFFFF, 2), nullptr);
  EXPECT_EQ(console_of([&] { EXPECT_FALSE(exchange(DEVICE_ID.data(), 2, &response)); }),
            "request of 2 bytes has no command: not sent\n");
}

TEST(Template, is_copied_without_its_count) {
  uint8_t request[4] = {0, 0, 0, 0x99};
  EXPECT_EQ(UpdateCommandToSendText(request, ReadFRUCmd), 3U);
  EXPECT_EQ(std::memcmp(request, "\x20\x28\x11\x99", 4), 0);
}

}  // namespace

// One request and its response: retries, bridging, and the kernel's device.
#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/bmc.h"
#include "transport/transaction.h"

namespace {

using sim::Bytes;
using sim::machine;

const Bytes DEVICE_ID = {0x20, 0x18, 0x01};
const Bytes TARGET = {0x2C, 0x1A, 0x46, 0x02};
const std::string NAME = "2C 1E 46 00 48 6F 74 20 73 77 61 70 00 00 00 00 00 00 00 00";

Response response;  // to the last request

struct Message : testing::Test {
  void SetUp() override {
    machine().bmc.targets[0x2C].users[1].name = "Hot swap";
    ASSERT_EQ(Init_Interface(nullptr, 0xCAC, 0xCA8, 0), 0);
  }
  // What the console says, then the response of the request, which is empty when it failed.
  static std::string ask(const Bytes& request, const std::string& faults = "") {
    machine().bmc.faults = sim::faults(faults);
    response = {};
    const std::string console = console_of([&] {
      if (Send_Req(request.data(), static_cast<unsigned>(request.size())) != 0) return;
      Get_Resp(response.bytes, &response.length);
    });
    return console + sim::hex_text(Bytes(response.bytes, response.bytes + response.length));
  }
};

TEST_F(Message, a_request_to_another_address_is_bridged_once_no_message_waits) {
  machine().bmc.receive_queue.push_back({0x00, 0x1E});
  std::string expected = "18 30 01\n";
  std::srand(machine().bmc.clock.epoch);
  for (int i = 0, sequence = std::rand(); i < 130; i++, sequence++) {  // twice round
    EXPECT_EQ(ask(TARGET), NAME);
    const uint8_t tag = static_cast<uint8_t>(sequence << 2 | 2);
    const uint8_t sum = static_cast<uint8_t>(0 - (0x20 + tag + 0x46 + 0x02));
    expected += "18 34 00 2C 1A BA " + sim::hex_text({0x20, tag, 0x46, 0x02, sum}) + "\n18 33\n";
  }
  machine().bmc.attention = true;
  EXPECT_EQ(ask(TARGET, "refuse cmd=30 value=c3"), "Clear Receive Message Queue!\n");
  EXPECT_EQ(ask({0x20, 0x19, 0x01}), "20 1D 01 00 " + sim::hex_text(machine().bmc.app.device_id));
  EXPECT_EQ(sim::transcript(), expected + "18 30 01\n19 01\n") << "a direct request goes";
}

TEST_F(Message, what_goes_wrong_on_the_way_to_a_target_is_said_and_returned) {
  EXPECT_EQ(ask(TARGET, "refuse cmd=34 value=83"), "Send Message Error!\n2C 1C 34 83");
  EXPECT_EQ(ask(TARGET, "answer cmd=34"), "Send Message Error!\n2C 1C 34");
  EXPECT_EQ(ask(TARGET, "refuse cmd=33 value=80"), "2C 1C 33 80");
  EXPECT_EQ(ask(TARGET, "answer netfn=6 cmd=33 bytes=00001E0405060708"),
            "2C 1C 33 00 00 1E 04 05 06 07 08");
  EXPECT_EQ(ask({0x2C, 0x18, 0x47, 0x09}), "2C 1E 47 C7") << "11 bytes of Get Message are enough";
  // An error that is not a time-out is not repeated; neither is a response that is too long.
  EXPECT_EQ(ask(TARGET, "write_error cmd=33 value=1"), "");
  EXPECT_EQ(ask(TARGET, "lengthen cmd=34 value=96"), "");
  machine().bmc.keep_sequence = machine().bmc.can_signal = false;
  const std::string wait = "KCS Waiting for SMSATN set: Timeout!\n";
  EXPECT_EQ(ask(TARGET), wait + wait + wait + "Sequence Number does not match!\n" + NAME);
}

TEST_F(Message, each_step_gives_up_after_its_own_number_of_attempts) {
  EXPECT_EQ(ask(DEVICE_ID, "write_error times=2").size(), 3 * 19 - 1U);
  // The new initialisation clears the time-out, so it is not repeated; what was read does not
  // count.
  EXPECT_EQ(ask(DEVICE_ID, "no_dummy"), "KCS Waiting for OBF set: Timeout!\n20");
  EXPECT_EQ(sim::transcript(), "18 01\n18 01\nsleep 50\nsleep 50\nsleep 50\n");
  // IBF never clears after the stream's beginning, so each operation and each re-initialisation
  // pokes once.
  constexpr char IBF = 0x02, ATTENTION = 0x04, READING = 0x40, WRITING = '\x80';
  const auto pokes = [](std::string stream, int status, const auto& step) {
    sim::reset(sim::Kind::card);
    stream.resize(5000, static_cast<char>(status));
    machine().port_stream.assign(stream.begin(), stream.end());
    console_of([&] { EXPECT_EQ(step(), -1); });
    return std::ranges::count(sim::transcript(), 'k');
  };
  const auto init = [] { return Init_Interface("KCS", 0xCAC, 0xCA8, 0); };
  const auto direct = [] { return Send_Req(DEVICE_ID.data(), 3); };
  const auto bridged = [] { return Send_Req(TARGET.data(), 4); };
  const auto receive = [] { return Get_Resp(response.bytes, &response.length); };
  const std::string written = std::string(16, WRITING | ATTENTION) + char{READING | ATTENTION};
  EXPECT_EQ(pokes("", WRITING | IBF, init), 5);
  EXPECT_EQ(pokes("", WRITING | IBF, direct), 2 * 3);
  EXPECT_EQ(pokes("", WRITING | IBF | ATTENTION, bridged), 2 * 4);
  EXPECT_EQ(pokes(written, READING | IBF | ATTENTION, bridged), 2 * 4);
  EXPECT_EQ(pokes("", WRITING | IBF, receive), 2 * 3);
}

TEST_F(Message, a_request_outside_the_size_limits_or_without_an_interface_is_not_sent) {
  EXPECT_EQ(ask(Bytes(2, 0x20)) + ask(Bytes(132, 0x20)) + ask(Bytes(124, 0x2C)), "");
  EXPECT_EQ(sim::transcript(), "");
  for (const size_t length : {3, 131}) EXPECT_EQ(ask(Bytes(length, 0x20)), "20 24 20 C1");
  EXPECT_EQ(ask(Bytes(123, 0x2C)), "2C 2E 2C C1");
  for (const char* name : {"BT", "kcs"}) EXPECT_EQ(Init_Interface(name, 0xCAC, 0xCA8, 0), -1);
  machine().root = false;
  EXPECT_EQ(console_of([] { EXPECT_EQ(Init_Interface("KCS", 0xCAC, 0xCA8, 0), -1); }),
            "have no right to change I/O privilege level\n");
}

TEST(Kernel, a_response_counts_only_as_far_as_it_came) {
  driverHandle = platform::device_open("/dev/ipmi0");
  openIpmiFlag = 1;
  // What the console says, "-" when the exchange failed, and the bytes of the response.
  const auto check = [](const Bytes& request, std::string says, sim::KernelFaults faults = {}) {
    machine().kernel_faults = faults;
    const std::string console = console_of([&] {
      if (!exchange({request}, &response)) std::putchar('-');
    });
    const Bytes bytes(response.bytes, response.bytes + std::max(response.length, 4U));
    EXPECT_EQ(console + sim::hex_text(bytes), says);
  };
  const std::string none = "-00 00 00 FF";
  check({0x2C, 0x1A}, "request of 2 bytes has no command: not sent\n" + none);
  machine().bmc.faults = sim::faults("answer; shorten skip=1 value=3");
  check(DEVICE_ID, "-20 1C 01 FF");
  check(TARGET, "20 1C 46 00 4F 70");  // the kernel's device uses neither address nor LUN
  EXPECT_EQ(sim::transcript(), "18 01\n18 46 02\n");
  EXPECT_TRUE(response_part(response, RESPONSE_DATA, 2).data() == response.bytes + RESPONSE_DATA);
  EXPECT_TRUE(response_part(response, 4, 3).empty() && response_part(response, ~0U, 2).empty());
  machine().bmc.faults = sim::faults("answer bytes=" + std::string(2 * 257, '0'));
  check(TARGET, "Error receiving message: Message too long\n20 1C 46 " + sim::hex_text(Bytes(256)));
  check(DEVICE_ID, "Error sending command: Input/output error\n" + none, {.send_errno = EIO});
  check(DEVICE_ID, "Select fail\n" + none, {.select_errno = EBADF});
  check(DEVICE_ID, "20 1C 01 00 20 01 01 23 51 BF 57 01 00 03 00 00 00 00 00",
        {.select_errno = EINTR});
  check(DEVICE_ID, "Error no data available\n" + none, {.not_readable = true});
  check(DEVICE_ID, "Error receiving message: Input/output error\n" + none, {.receive_errno = EIO});
}

}  // namespace

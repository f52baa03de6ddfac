// The KCS port driver and its messages, against the BMC's side of the interface.
#include "transport/kcs_intf.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/platform.h"
#include "sim/machine.h"
#include "transport/bmc.h"
#include "transport/ipmi.h"
#include "transport/transaction.h"

namespace {

using sim::Bytes;
using sim::machine;

constexpr uint16_t COMMAND = 0xCAC;
constexpr uint16_t DATA = 0xCA8;

const KCS_wait_bounds SHIPPED = KCS_bounds;

std::string repeated(size_t count, const std::string& text) {
  return count == 0 ? "" : text + repeated(count - 1, text);
}

// Standard output of `action`.
std::string console_of(const auto& action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

// Each test begins with a fresh machine that has the card, and waits a moment for its ports.
struct Transport : testing::Test {
  Transport() {
    sim::reset(sim::Kind::card);
    KCS_bounds = {20, 3};
  }
};

struct Kcs : Transport {
  uint8_t received[KCS_RESPONSE_ROOM] = {};
  BMC_Msg response = {0, BMC_ADDRESS, received};

  void SetUp() override {
    ASSERT_EQ(KCS_Intf_Init(COMMAND, DATA, 0), KCS_OK);
  }
  static int send(Bytes bytes) {
    BMC_Msg request = {static_cast<uint8_t>(bytes.size()), BMC_ADDRESS, bytes.data()};
    return KCS_Send_BMC_Req(&request);
  }
  // The interface is usable: a request goes through and its answer comes back whole.
  bool works() {
    return send({0x18, 0x01}) == KCS_OK && KCS_Get_BMC_Resp(&response) == KCS_OK &&
           sim::hex_text(Bytes(received, received + response.length)) ==
               "1C 01 00 " + sim::hex_text(machine().bmc.app.device_id);
  }
};

TEST_F(Kcs, a_response_is_read_whole_up_to_its_limit_with_the_accesses_it_must_cost) {
  constexpr unsigned FOR_A_BYTE = 5;  // accesses, each way
  constexpr unsigned OUT = 3 * FOR_A_BYTE + 10;
  constexpr unsigned FULL = KCS_RESPONSE_ROOM;
  for (const unsigned length : {3U, FULL, FULL + 1, 300U}) {
    machine().bmc.faults = sim::faults("answer bytes=" + repeated(length - 2, "5A"));
    machine().port_reads = machine().port_writes = 0;
    EXPECT_EQ(send({0x18, 0x46, 0x02}), KCS_OK);
    const bool fits = length <= FULL;
    EXPECT_EQ(KCS_Get_BMC_Resp(&response), fits ? KCS_OK : KCS_RESP_OVERFLOW) << length;
    const unsigned in = std::min(length, FULL) * FOR_A_BYTE + (fits ? 4 : 2);
    EXPECT_EQ(machine().port_reads + machine().port_writes, OUT + in);
    EXPECT_EQ(response.length, fits ? length : 18) << "as it was";
    EXPECT_EQ(received[fits ? length - 1 : FULL - 1], 0x5A);
    EXPECT_TRUE(works()) << "the rest of a long response must not spoil the next request";
  }
  EXPECT_EQ(sim::transcript(), repeated(4, "18 46 02\n18 01\n")) << "no pause if all goes well";
}

TEST_F(Kcs, init_finds_out_at_once_that_nothing_is_there) {
  machine().ports = {{0xCA9, DATA}};  // its data port is also that of the pair that is tried
  platform::outb(0x61, 0xCA9);
  machine().port_reads = machine().port_writes = 0;
  EXPECT_EQ(KCS_Intf_Init(COMMAND, DATA, 0), KCS_NO_DEVICE);
  EXPECT_EQ(KCS_Intf_Init(0xCA3, 0xCA2, 0), KCS_NO_DEVICE);
  EXPECT_TRUE(send({0x18}) == KCS_OK && send({}) == KCS_STATE_ERROR) << "too short to touch a port";
  EXPECT_EQ(machine().port_reads + machine().port_writes, 2U);
  EXPECT_EQ(KCS_Intf_Init(0xCA9, DATA, 77), KCS_OK);
  EXPECT_TRUE(works());
  EXPECT_EQ(KCS_Intf_Init(0, 0, 0), KCS_NO_DEVICE) << "zero ports are the card's";
  EXPECT_EQ(KCS_para.timeout, 10000U);
}

TEST_F(Kcs, init_from_any_state_and_an_error_at_any_byte_leave_the_interface_idle) {
  // In the middle of a write; of a read; in ERROR_STATE; in an abort, before its byte and after it.
  const Bytes beginnings[] = {{0x61}, {0x61, 0x18, 0x62, 1}, {0x62}, {0x60}, {0x60, 0}};
  for (const Bytes& writes : beginnings) {
    for (const uint8_t value : writes) platform::outb(value, value >= 0x60 ? COMMAND : DATA);
    EXPECT_EQ(KCS_Intf_Init(COMMAND, DATA, 0), KCS_OK);
    EXPECT_EQ(platform::inb(COMMAND) & 0xC1, 0) << "idle, and nothing left in the output buffer";
    EXPECT_TRUE(works());
  }
  // The response's first byte is seen by the write transfer already.
  for (const std::string kind : {"write_error", "read_error"}) {
    for (uint8_t at = 0; at < (kind == "write_error" ? 3 : 19); at++) {
      machine().bmc.faults = sim::faults(kind + " value=" + sim::hex_text({at}));
      const bool fails_at_once = kind == "write_error" || at == 0;
      EXPECT_EQ(send({0x18, 0x46, 0x02}), fails_at_once ? KCS_STATE_ERROR : KCS_OK) << kind << at;
      EXPECT_TRUE(fails_at_once || KCS_Get_BMC_Resp(&response) == KCS_STATE_ERROR) << kind << at;
      EXPECT_TRUE(works());
    }
  }
}

TEST_F(Kcs, a_wait_that_runs_out_pauses_after_each_pass_and_pokes_the_bmc) {
  machine().bmc.faults = sim::faults("stall value=3b; silent skip=1");
  EXPECT_TRUE(works()) << "a slow answer within the bound is no fault";
  EXPECT_EQ(console_of([&] { EXPECT_EQ(send({0x18, 0x01}), KCS_TIMEOUT); }), "");
  machine().ports.clear();
  EXPECT_EQ(send({0x18, 0x01}), KCS_NO_DEVICE) << "the interface vanished";
  const std::string waited = repeated(3, "sleep 50\n");
  const std::string poke = "poke 80\nsleep 100000\n";
  EXPECT_EQ(sim::transcript(), "18 01\nsleep 50\nsleep 50\n18 01\n" + waited + poke + waited +
                                   repeated(3, poke + repeated(200, "sleep 10000\n")));
}

TEST_F(Kcs, a_wait_lasts_ten_seconds_beside_its_polls) {
  KCS_bounds = {1, SHIPPED.passes};
  machine().bmc.faults = sim::faults("silent");
  EXPECT_EQ(send({0x18, 0x01}), KCS_TIMEOUT);
  const std::string log = sim::transcript();
  const std::string pause = "sleep 50\n";
  EXPECT_EQ((log.find("poke") - log.find(pause)) / pause.size() * 50, 10'000'000U);
}

TEST_F(Kcs, an_abort_ends_with_a_wait_that_fails_or_after_five_attempts) {
  constexpr uint8_t WRITING = 0x80, WRITING_BUSY = 0x82;
  constexpr unsigned BEFORE = 3, OF_AN_ATTEMPT = 4;  // status reads
  for (unsigned attempts = 0; attempts <= 5; attempts++) {
    sim::reset(sim::Kind::card);
    machine().port_stream = Bytes(BEFORE + attempts * OF_AN_ATTEMPT, WRITING);
    machine().port_stream.resize(2000, WRITING_BUSY);
    EXPECT_EQ(KCS_Intf_Init(COMMAND, DATA, 0), attempts < 4 ? KCS_TIMEOUT : KCS_ABORT_FAILED);
  }
  EXPECT_EQ(sim::transcript(), repeated(5, "sleep 200000\n"));
}

using Message = Transport;
const Bytes DEVICE_ID = {0x20, 0x18, 0x01};
const Bytes TARGET = {0x2C, 0x1A, 0x46, 0x02};

TEST_F(Message, each_step_gives_up_after_its_own_number_of_attempts) {
  Response response;
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
  const auto receive = [&] { return Get_Resp(response.bytes, &response.length); };
  const std::string written = std::string(16, WRITING | ATTENTION) + char{READING | ATTENTION};
  EXPECT_EQ(pokes("", WRITING | IBF, init), 5);
  EXPECT_EQ(pokes("", WRITING | IBF, direct), 2 * 3);
  EXPECT_EQ(pokes("", WRITING | IBF | ATTENTION, bridged), 2 * 4);
  EXPECT_EQ(pokes(written, READING | IBF | ATTENTION, bridged), 2 * 4);
  EXPECT_EQ(pokes("", WRITING | IBF, receive), 2 * 3);
}

TEST_F(Message, is_not_sent_without_a_command_or_over_another_interface_and_not_read_past_its_end) {
  for (const char* name : {"BT", "kcs"}) EXPECT_EQ(Init_Interface(name, 0xCAC, 0xCA8, 0), -1);
  EXPECT_EQ(Init_Interface("KCS", 0xCAC, 0xCA8, 0), 0);
  EXPECT_EQ(Send_Req(DEVICE_ID.data(), 2), -1);
  Response response;
  const auto ask = [&] { EXPECT_FALSE(exchange({Bytes{0x2C, 0x1A}}, &response)); };
  EXPECT_EQ(console_of(ask), "request of 2 bytes has no command: not sent\n");
  EXPECT_EQ(response.bytes[RESPONSE_COMPLETION], 0xFF);
  EXPECT_EQ(sim::transcript(), "");
  response.length = 6;
  EXPECT_TRUE(response_part(response, RESPONSE_DATA, 2).data() == response.bytes + RESPONSE_DATA);
  EXPECT_TRUE(response_part(response, 4, 3).empty() && response_part(response, ~0U, 2).empty());
}

}  // namespace

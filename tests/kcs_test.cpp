// The KCS port driver against the BMC's side of the interface.
#include "transport/kcs_intf.h"

#include <gtest/gtest.h>

#include "platform/platform.h"
#include "tests/harness.h"
#include "transport/bmc.h"

namespace {

using sim::Bytes;
using sim::FaultKind;
using sim::machine;

constexpr uint16_t COMMAND = 0xCAC;
constexpr uint16_t DATA = 0xCA8;

const Bytes DEVICE_ID = {0x18, 0x01};
const Bytes USER_NAME = {0x18, 0x46, 0x02};

std::string times(unsigned count, const std::string& text) {
  std::string all;
  for (unsigned i = 0; i < count; i++) all += text;
  return all;
}

struct Kcs : testing::Test {
  KCS_wait_bounds before = KCS_bounds;
  uint8_t received[KCS_RESPONSE_ROOM] = {};
  BMC_Msg response = {0, BMC_ADDRESS, received};

  void SetUp() override {
    KCS_bounds = {20, 3};
    sim::reset(sim::Kind::card);
    ASSERT_EQ(KCS_Intf_Init(COMMAND, DATA, 0), KCS_OK);
  }
  void TearDown() override {
    KCS_bounds = before;
  }
  int send(Bytes bytes) {
    BMC_Msg request = {static_cast<uint8_t>(bytes.size()), BMC_ADDRESS, bytes.data()};
    return KCS_Send_BMC_Req(&request);
  }
  int receive() {
    return KCS_Get_BMC_Resp(&response);
  }
  // The interface is usable: a request goes through and its answer comes back whole.
  bool works() {
    return send(DEVICE_ID) == KCS_OK && receive() == KCS_OK && response.length == 18 &&
           received[2] == 0x00 && received[9] == 0x57;
  }
};

TEST_F(Kcs, a_transfer_costs_the_accesses_it_must_and_not_one_more) {
  auto cost = [this](const Bytes& request) {
    machine().port_reads = machine().port_writes = 0;
    EXPECT_EQ(send(request), KCS_OK);
    const uint64_t sent = machine().port_reads + machine().port_writes;
    EXPECT_EQ(receive(), KCS_OK);
    return std::pair(sent, machine().port_reads + machine().port_writes - sent);
  };
  // 5 a byte and 10 on the way out, 5 a byte and 4 on the way in.
  using Cost = std::pair<uint64_t, uint64_t>;
  EXPECT_EQ(cost(DEVICE_ID), Cost(5 * 2 + 10, 5 * 18 + 4));
  EXPECT_EQ(cost(USER_NAME), Cost(5 * 3 + 10, 5 * 19 + 4));
  EXPECT_EQ(sim::transcript(), "18 01\n18 46 02\n") << "no pause in a transfer that goes well";
}

TEST_F(Kcs, a_response_is_read_whole_up_to_its_limit_and_refused_beyond_it) {
  const struct {
    unsigned length;
    int result;
  } cases[] = {{3, KCS_OK}, {127, KCS_OK}, {128, KCS_OK}, {129, KCS_RESP_OVERFLOW}, {300, 5}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.length);
    machine().bmc.faults = {
        {.kind = FaultKind::answer, .bytes = Bytes(one.length - 2, static_cast<uint8_t>(0x5A))}};
    response.length = 0;
    ASSERT_EQ(send(DEVICE_ID), KCS_OK);
    EXPECT_EQ(receive(), one.result);
    EXPECT_EQ(response.length, one.result == KCS_OK ? one.length : 0);
    EXPECT_EQ(received[one.length < 128 ? one.length - 1 : 127], 0x5A);
    EXPECT_TRUE(works()) << "the rest of a long response must not spoil the next request";
  }
}

TEST_F(Kcs, too_short_a_message_touches_no_port) {
  machine().port_reads = machine().port_writes = 0;
  EXPECT_EQ(send({0x18}), KCS_OK);
  EXPECT_NE(send({}), KCS_OK);
  EXPECT_EQ(machine().port_reads + machine().port_writes, 0U);
}

TEST_F(Kcs, init_finds_out_at_once_that_nothing_is_there) {
  machine().ports = {{0xCA9, DATA}};  // shares its data port with the pair asked for
  platform::outb(0x61, 0xCA9);
  machine().port_reads = 0;
  EXPECT_EQ(KCS_Intf_Init(COMMAND, DATA, 0), KCS_NO_DEVICE);
  EXPECT_EQ(KCS_Intf_Init(0xCA3, 0xCA2, 0), KCS_NO_DEVICE);
  EXPECT_LE(machine().port_reads, 4U);
  EXPECT_EQ(sim::transcript(), "");
  EXPECT_EQ(KCS_Intf_Init(0xCA9, DATA, 77), KCS_OK);
  EXPECT_TRUE(works());
  EXPECT_EQ(KCS_para.timeout, 77U);
  EXPECT_EQ(KCS_Intf_Init(0, 0, 0), KCS_NO_DEVICE) << "zero ports are the card's";
  EXPECT_EQ(KCS_para.cmd_port, COMMAND);
  EXPECT_EQ(KCS_para.timeout, 10000U);
}

TEST_F(Kcs, init_brings_an_interface_back_to_idle_from_any_state) {
  const std::vector<std::pair<uint16_t, uint8_t>> beginnings[] = {
      {{COMMAND, 0x61}},                                              // mid-write
      {{COMMAND, 0x61}, {DATA, 0x18}, {COMMAND, 0x62}},               // before the last byte
      {{COMMAND, 0x61}, {DATA, 0x18}, {COMMAND, 0x62}, {DATA, 0x1}},  // mid-read
      {{COMMAND, 0x62}},                                              // ERROR_STATE
      {{COMMAND, 0x60}},                                              // mid-abort
      {{COMMAND, 0x60}, {DATA, 0x00}},
  };
  for (const auto& writes : beginnings) {
    for (const auto& [port, value] : writes) platform::outb(value, port);
    ASSERT_NE(platform::inb(COMMAND) & 0xC0, 0);
    EXPECT_EQ(KCS_Intf_Init(COMMAND, DATA, 0), KCS_OK);
    EXPECT_EQ(platform::inb(COMMAND) & 0xC1, 0) << "idle, and nothing left in the output buffer";
    EXPECT_TRUE(works());
  }
}

TEST_F(Kcs, an_error_at_any_byte_is_told_and_leaves_the_interface_idle) {
  for (const FaultKind kind : {FaultKind::write_error, FaultKind::read_error}) {
    const unsigned bytes = kind == FaultKind::write_error ? 3 : 19;
    for (unsigned at = 0; at < bytes; at++) {
      SCOPED_TRACE(at);
      machine().bmc.faults = {{.kind = kind, .value = at}};
      const int sent = send(USER_NAME);
      // An answer that fails at its first byte is seen by the write transfer already.
      const bool seen_in_write = kind == FaultKind::write_error || at == 0;
      EXPECT_EQ(sent, seen_in_write ? KCS_STATE_ERROR : KCS_OK);
      EXPECT_TRUE(seen_in_write || receive() == KCS_STATE_ERROR);
      EXPECT_TRUE(works());
    }
  }
}

TEST_F(Kcs, a_wait_that_runs_out_pauses_after_each_pass_and_says_so) {
  const std::string passes = times(3, "sleep 50\n");
  machine().bmc.faults = {{.kind = FaultKind::no_dummy}};
  ASSERT_EQ(send(DEVICE_ID), KCS_OK);
  EXPECT_EQ(console_of([&] { EXPECT_EQ(receive(), KCS_TIMEOUT); }),
            "KCS Waiting for OBF set: Timeout!\n");
  EXPECT_EQ(console_of([&] { EXPECT_EQ(KCS_Wait_SMSATN_S(), KCS_TIMEOUT); }),
            "KCS Waiting for SMSATN set: Timeout!\n");
  EXPECT_EQ(KCS_Get_SMSATN(), 0);
  machine().bmc.attention = true;
  EXPECT_EQ(KCS_Wait_SMSATN_S(), KCS_OK);
  EXPECT_NE(KCS_Get_SMSATN(), 0);
  EXPECT_EQ(sim::transcript(), "18 01\n" + passes + passes);

  machine().bmc.faults = {{.kind = FaultKind::silent}};
  EXPECT_EQ(console_of([&] { EXPECT_EQ(send(DEVICE_ID), KCS_TIMEOUT); }), "");
  EXPECT_EQ(sim::transcript(),
            "18 01\n" + passes + passes + "18 01\n" + passes + "poke 80\nsleep 100000\n");
}

TEST_F(Kcs, a_slow_answer_within_the_bound_is_no_fault) {
  machine().bmc.faults = {{.kind = FaultKind::stall, .value = 59}};
  EXPECT_TRUE(works());
}

TEST_F(Kcs, an_interface_that_vanished_is_poked_three_times) {
  machine().ports.clear();
  EXPECT_EQ(send(DEVICE_ID), KCS_NO_DEVICE);
  const std::string poke = "poke 80\nsleep 100000\n" + times(200, "sleep 10000\n");
  EXPECT_EQ(sim::transcript(), times(3, "sleep 50\n") + times(3, poke));
}

// What status and data registers read, one after the other; `stuck` goes on for ever.
int abort_over(unsigned good_reads, uint8_t stuck) {
  machine().port_stream = Bytes(good_reads, 0x80);
  machine().port_stream.resize(good_reads + 1000, stuck);
  return KCS_Intf_Init(COMMAND, DATA, 0);
}

TEST_F(Kcs, an_abort_gives_up_after_five_attempts) {
  EXPECT_EQ(abort_over(1000, 0x80), KCS_ABORT_FAILED);
  EXPECT_EQ(sim::transcript(), times(5, "sleep 200000\n"));
}

TEST_F(Kcs, a_wait_that_fails_in_the_abort_ends_it) {
  // Two reads of init, one of the abort's own wait, four an attempt that meets WRITE_STATE.
  for (unsigned attempt = 0; attempt <= 5; attempt++) {
    sim::reset(sim::Kind::card);
    const unsigned good = attempt == 0 ? 2 : 3 + 4 * (attempt - 1);
    EXPECT_EQ(abort_over(good, 0x82), attempt < 5 ? KCS_TIMEOUT : KCS_ABORT_FAILED) << attempt;
  }
}

}  // namespace

// The event log: read whole from the BMC, written as text.
#include "sel/sel.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>

#include "base/memory.h"
#include "base/progress.h"
#include "tests/harness.h"

namespace {

constexpr char INFO[] = "28 40\n";
constexpr char HEAD[] = "_SEL\n_LOG_NUM   ";

// Get SEL Entry for the record with this ID, whole and without a reservation.
std::string entry_request(const std::string& id) {
  return "28 43 00 00 " + id + " 00 FF\n";
}

struct Sel : testing::Test {
  sim::SelStore* sel = nullptr;
  std::string path = path_of("log.sel");

  Sel() {
    sim::reset(sim::Kind::card);
    sel = &sim::machine().bmc.sel;
    std::remove(path.c_str());
  }
  // `count` records whose IDs count up from `id`.
  void fill(unsigned id, size_t count) const {
    sel->records.assign(count, {0, 0, 0x02, 0x10, 0x20, 0x30, 0x40, 0x20, 0, 4, 1, 2, 3, 4, 5, 6});
    for (auto& record : sel->records) {
      record[0] = static_cast<uint8_t>(id);
      record[1] = static_cast<uint8_t>(id >> 8);
      id++;
    }
  }
  std::string head_of_file() const {
    return content_of(path).substr(0, sizeof HEAD - 1 + 4);
  }
};

TEST_F(Sel, IsWrittenRecordByRecordAsTheBmcHoldsIt) {
  for (const char* way : {"--users", "--open"}) {
    const RunResult result = run({"--seldump", path, way});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.out.find("Dumping SEL to file " + path + "\n"), std::string::npos);
    EXPECT_NE(result.traffic.find(INFO + entry_request("00 00") + entry_request("02 00") +
                                  entry_request("03 00")),
              std::string::npos)
        << result.traffic;
    EXPECT_EQ(content_of(path),
              HEAD + std::string("0300\n\n"
                                 "01 00 02 00 F1 53 65 20 00 04 10 09 6F 42 FF FF\n"
                                 "02 00 02 2C F1 53 65 20 00 04 01 30 01 57 5F 5A\n"
                                 "03 00 02 90 F1 53 65 20 00 04 08 51 6F 01 FF FF\n"));
  }
}

TEST_F(Sel, IsReadWhenTheBmcTellsNoMoreThanTheCountOfEntries) {
  sim::machine().bmc.faults = {
      {.kind = sim::FaultKind::shorten, .netfn = 0x0A, .command = 0x40, .value = 4}};
  run({"--seldump", path});
  EXPECT_EQ(head_of_file(), std::string(HEAD) + "0300");
}

TEST_F(Sel, EndsWithItsChainOrWithTheClaimedCountWhicheverComesFirst) {
  const struct {
    size_t held;
    int claimed;
    const char* count;
    size_t requests;
  } cases[] = {
      {300, -1, "2C01", 300},
      {300, 299, "2B01", 299},
      {300, 1, "0100", 1},
      {2, 65535, "0200", 2},
      {sim::SEL_MOST, -1, "FFFF", sim::SEL_MOST},
      {1, 0, "0000", 0},
  };
  for (const auto& one : cases) {
    fill(0, one.held);
    sel->claimed = one.claimed;
    const RunResult result = run({"--seldump", path, "--open"});
    EXPECT_EQ(head_of_file(), std::string(HEAD) + one.count);
    EXPECT_EQ(content_of(path).size(), sizeof HEAD - 1 + 6 + one.requests * 48);
    EXPECT_EQ(after_identity(result.traffic).size(),
              sizeof INFO - 1 + one.requests * entry_request("00 00").size());
  }
  // A record that names itself as the next one.
  sel->claimed = 40;
  sim::machine().bmc.faults = {
      {.kind = sim::FaultKind::answer, .command = 0x43, .times = 0, .bytes = sim::Bytes(19)}};
  run({"--seldump", path});
  EXPECT_EQ(head_of_file(), std::string(HEAD) + "2800");
}

TEST_F(Sel, ThatTheBmcRefusesOrCutsGivesAMessageAndNoFile) {
  using sim::FaultKind;
  const std::string first = entry_request("00 00");
  const std::string second = entry_request("23 01");
  const struct {
    sim::Fault fault;
    std::string message;
    std::string traffic;
  } cases[] = {
      {{FaultKind::refuse, 0x0A, 0x40, 0, 1, 0xC1}, " Get SEL Repository Info Fail", INFO},
      {{FaultKind::shorten, 0x0A, 0x40, 0, 1, 3}, " Get SEL Repository Info Fail", INFO},
      {{FaultKind::refuse, 0x0A, 0x43, 1, 1, 0xCB},
       "Get SEL Record 2301 Fail",
       INFO + first + second},
      {{FaultKind::shorten, 0x0A, 0x43, 0, 1, 18}, "Get SEL Record 0000 Fail", INFO + first},
      {{FaultKind::answer, 0x0A, 0x43}, "Get SEL Record 0000 Fail", INFO + first},
  };
  fill(0x0122, 3);
  for (const auto& one : cases) {
    sim::machine().bmc.faults = {one.fault};
    const RunResult result = run({"--seldump", path, "--open"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(after_identity(result.out),
              "Dumping SEL to file " + path + "\nGet SEL Fail:\t" + one.message + "\n");
    EXPECT_EQ(after_identity(result.traffic), one.traffic);
    EXPECT_EQ(content_of(path), "(no file)");
  }
}

TEST_F(Sel, ThatCannotBeWrittenWholeGivesAMessage) {
  for (const std::string& target : {path_of("no-such-folder/log"), std::string("/dev/full")}) {
    const RunResult result = run({"--seldump", target});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(after_identity(result.out),
              "Dumping SEL to file " + target + "\nWritting File " + target + " fail\n");
  }
  // A regular file that finds no room is not left behind.
  SelList list{};
  list.count = 500;
  list.records = make_owned<SelRecord>(500);
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit narrow = {4096, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &narrow), 0);
  const int written = SelToFile2(path.c_str(), &list);
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(content_of(path), "(no file)");
}

TEST(Progress, IsRenewedAtEachThousandthAndOnATerminalOnly) {
  testing::internal::CaptureStderr();
  progress("SEL", 1, 3);
  progress_end();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  progressFlag = 1;
  testing::internal::CaptureStderr();
  for (unsigned i = 1; i <= 3; i++) progress("SDR", i, 3);
  progress_end();
  progress_end();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "\033[KSDR 1/3\r\033[KSDR 2/3\r\033[KSDR 3/3\r\033[K");
  testing::internal::CaptureStderr();
  for (unsigned i = 1; i <= 65535; i++) progress("SEL", i, 65535);
  progress_end();
  progressFlag = 0;
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(shown.begin(), shown.end(), 'S'), 1 + 1000);  // the first step, too
  EXPECT_TRUE(shown.ends_with("SEL 65535/65535\r\033[K"));
}

}  // namespace

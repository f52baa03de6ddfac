// The event log: read whole from the BMC, written as text.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

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
  void fill(unsigned id, unsigned count) const {
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

TEST_F(Sel, EndsWithItsChainOrWithTheClaimedCountWhicheverComesFirst) {
  const struct {
    unsigned held;
    int claimed;
    const char* count;
    size_t requests;
  } cases[] = {
      {300, -1, "2C01", 300}, {300, 299, "2B01", 299}, {300, 1, "0100", 1},
      {2, 65535, "0200", 2},  {1, 0, "0000", 0},
  };
  for (const auto& one : cases) {
    fill(1, one.held);
    sel->claimed = one.claimed;
    const RunResult result = run({"--seldump", path});
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

TEST_F(Sel, OfTheMostEntriesIsReadToItsEnd) {
  fill(0, sim::SEL_MOST);
  run({"--seldump", path, "--open"});
  EXPECT_EQ(head_of_file(), std::string(HEAD) + "FFFF");
  const std::string content = content_of(path);
  EXPECT_EQ(content.size(), sizeof HEAD - 1 + 6 + sim::SEL_MOST * 48);
  EXPECT_EQ(content.substr(content.size() - 48, 8), "FE FF 02");
}

TEST_F(Sel, ThatTheBmcRefusesOrCutsGivesAMessageAndNoFile) {
  using sim::FaultKind;
  const struct {
    sim::Fault fault;
    std::string message;
    std::string traffic;
  } cases[] = {
      {{.kind = FaultKind::refuse, .command = 0x40, .value = 0xC1},
       " Get SEL Repository Info Fail",
       INFO},
      {{.kind = FaultKind::shorten, .command = 0x40, .value = 14},
       " Get SEL Repository Info Fail",
       INFO},
      {{.kind = FaultKind::refuse, .command = 0x43, .skip = 1, .value = 0xCB},
       "Get SEL Record 2301 Fail",
       INFO + entry_request("00 00") + entry_request("23 01")},
      {{.kind = FaultKind::shorten, .command = 0x43, .value = 18},
       "Get SEL Record 0000 Fail",
       INFO + entry_request("00 00")},
      {{.kind = FaultKind::answer, .command = 0x43},
       "Get SEL Record 0000 Fail",
       INFO + entry_request("00 00")},
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
}

}  // namespace

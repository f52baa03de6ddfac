// Memory that runs out, at each allocation of each action that makes any: a message, no crash.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <filesystem>
#include <new>

#include "tests/harness.h"

// The number of the allocation that fails, counted down to 0; shared with the child that allocates.
static int* const allocations_left = static_cast<int*>(
    mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return *allocations_left > 0 && --*allocations_left == 0 ? nullptr : operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return *allocations_left > 0 && --*allocations_left == 0 ? nullptr : operator new[](size);
}

namespace {

struct Action {
  const char* option;
  const char* file;
  std::string announced = "";  // printed before any allocation
  // What a complete dump ends with, or the request that changes the BMC begins with.
  std::string done;
  // In order, when the first allocation fails, the second and so on; at last none fails. Equal ones
  // that follow each other stand once.
  std::vector<std::string> outcomes;
};

// Runs the action, in which the given allocation fails: "STATUS, done or not: what it says".
std::string outcome(const Action& action, int failing) {
  std::filesystem::remove("out");
  *allocations_left = failing;
  const RunResult result = run({action.option, action.file, "--nrst"});
  const std::string dump = content_of("out");
  const bool done = (dump + result.traffic).find(action.done) != std::string::npos;
  EXPECT_TRUE(done || dump == "(no file)") << dump;
  std::string says = after_identity(result.out);
  if (says.starts_with(action.announced)) says.erase(0, action.announced.size());
  return std::to_string(result.status) + (done ? ", done: " : ", not done: ") + says;
}

TEST(Memory, that_runs_out_ends_an_action_with_its_message_and_nothing_half_done) {
  std::filesystem::current_path(path_of(""));
  file_with("util.dat", "<SDR_COMMENT_TYPE1>\nSensor Owner\n</SDR_COMMENT_TYPE1>\n");
  file_with("records",
            "_SDR\n_SDR_TYPE\n_REC_LEN 07\n01 00 51 C0 02 AA BB\n"
            "_SDR_TYPE\n_REC_LEN 06\n02 00 51 C0 01 CC\n");
  file_with("server",
            "_FRU_TITLE 'T'\n_DEV_ID 00\n_SEE_INTERNAL\n01 55\n"
            "_SEE_CHASSIS\n01 01 17 C1 'P' C0 C2 'X1' C1\n_SEE_MULTIREC\nC0 82 02 00 00 AA BB\n");
  sim::machine().bmc.sel.records.resize(17);  // one more than the first array holds
  const std::string lost = ": out of memory\nCannot read file server\n";
  const Action actions[] = {
      {.option = "--sdr",
       .file = "records",
       .done = "28 27 ",  // Clear SDR Repository
       .outcomes = {"0, not done: line 4: out of memory\nload sdr file records failed\n",
                    "0, not done: writing SDR......\npsdr_entry.sdr_data error\n",
                    "0, done: writing SDR......\nUpdate successfully\n"}},
      {.option = "--sdrdump",
       .file = "out",
       .done = "\n\n)\n18 01\n",
       .outcomes = {"0, done: ",  // without the comments of util.dat
                    "0, not done: Get SDR Record 00 00 Fail\n",
                    "0, not done: Get SDR Record 02 00 Fail\n", "0, done: "}},
      {.option = "--seldump",
       .file = "out",
       .announced = "Dumping SEL to file out\n",
       .done = "5F 5A\n18 01\n",
       .outcomes = {"0, not done: Get SEL Fail:\tOut of memory\n", "0, done: "}},
      {.option = "--fru",
       .file = "server",
       .announced =
           "update FRU with file server\nUpdate FRU with File server\nreading file......\n",
       .done = "28 12 ",  // Write FRU Data
       .outcomes = {"1, not done: Cannot read file server\n", "1, not done: line 1" + lost,
                    "1, not done: line 4" + lost, "1, not done: line 6" + lost,
                    "1, not done: line 8" + lost,
                    "1, not done: writing FRU......\nUpdate FRU fail\n",
                    "0, done: writing FRU......\nUpdate successfully\n"}},
      {.option = "--wfru",
       .file = "out",
       .announced = "Dump FRU to file out\nDump FRU to File out\nreading FRU......\n",
       .done = "AA BB18 01\n",
       .outcomes = {"1, not done: checksum error\n", "0, done: writing file......ok\n"}},
  };
  for (const Action& action : actions) {
    std::vector<std::string> outcomes;
    // Until a run makes fewer allocations than `failing`, so that none of them failed.
    for (int failing = 1; failing == 1 || *allocations_left == 0; failing++) {
      const std::string next = outcome(action, failing);
      if (outcomes.empty() || outcomes.back() != next) outcomes.push_back(next);
    }
    EXPECT_EQ(outcomes, action.outcomes) << action.option;
  }
}

}  // namespace

// Memory that runs out, at each allocation of each action that makes any: a message, no crash.
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
  std::string line;
  // What a complete dump ends with, or the request that changes the BMC begins with.
  std::string done;
  // In order, when the first allocation fails, the second and so on; at last none fails. Equal ones
  // that follow each other stand once.
  std::vector<std::string> outcomes;
};

// "STATUS, done or not: the last lines that it says", when this allocation fails.
std::string outcome(const Action& action, int failing) {
  std::filesystem::remove("out");
  *allocations_left = failing;
  const RunResult result = run("--nrst " + action.line);
  const std::string dump = content_of("out");
  const bool done = (dump + result.traffic).find(action.done) != std::string::npos;
  EXPECT_TRUE(done || dump == "(no file)") << dump;
  const size_t heading = result.said.find("file......\n");
  const std::string says = result.said.substr(heading < result.said.size() ? heading + 11 : 0);
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
  const std::string log = "Dumping SEL to file out\n";
  const std::string fru = "Dump FRU to file out\nDump FRU to File out\nreading FRU......\n";
  const Action actions[] = {
      {"--sdr records",
       "28 27 ",  // Clear SDR Repository
       {"0, not done: line 4: out of memory\nload sdr file records failed\n",
        "0, not done: writing SDR......\npsdr_entry.sdr_data error\n",
        "0, done: writing SDR......\nUpdate successfully\n"}},
      {"--sdrdump out",
       "\n\n)\n18 01\n",
       {"0, done: ",  // without the comments of util.dat
        "0, not done: Get SDR Record 00 00 Fail\n", "0, not done: Get SDR Record 02 00 Fail\n",
        "0, done: "}},
      {"--seldump out",
       "5F 5A\n18 01\n",
       {"0, not done: " + log + "Get SEL Fail:\tOut of memory\n", "0, done: " + log}},
      {"--fru server",
       "28 12 ",  // Write FRU Data
       {"1, not done: Cannot read file server\n", "1, not done: line 1" + lost,
        "1, not done: line 4" + lost, "1, not done: line 6" + lost, "1, not done: line 8" + lost,
        "1, not done: writing FRU......\nUpdate FRU fail\n",
        "0, done: writing FRU......\nUpdate successfully\n"}},
      {"--wfru out",
       "AA BB18 01\n",
       {"1, not done: " + fru + "checksum error\n", "0, done: " + fru + "writing file......ok\n"}}};
  for (const Action& action : actions) {
    std::vector<std::string> outcomes;
    // Until a run makes fewer allocations than `failing`, so that none of them failed.
    for (int failing = 1; failing == 1 || *allocations_left == 0; failing++) {
      const std::string next = outcome(action, failing);
      if (outcomes.empty() || outcomes.back() != next) outcomes.push_back(next);
    }
    EXPECT_EQ(outcomes, action.outcomes) << action.line;
  }
}

}  // namespace

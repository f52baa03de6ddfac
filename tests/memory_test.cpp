// Memory that runs out, at each allocation of each action that makes any: a message, no crash.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <filesystem>
#include <new>

#include "tests/harness.h"

// Allocations of the product until one fails; 0: none does. Shared with the child that runs it.
static int* const allocations_left = static_cast<int*>(
    mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return *allocations_left > 0 && --*allocations_left == 0 ? nullptr : operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return *allocations_left > 0 && --*allocations_left == 0 ? nullptr : operator new[](size);
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
  // Option; file, a dump's named so that its name ends what the progress tells; the end of dump and
  // traffic, or the requests of the change; from the first allocation to none that fails the
  // outcomes: status, + if that end is there, text.
  const std::string cases[][4] = {
      {"--sdr", "records", "28 27 ",
       "0- line 4: out of memory\nload sdr file records failed\n"
       "0- psdr_entry.sdr_data error\n0+ Update successfully\n"},
      {"--sdrdump", "out...", "\n\n)\n18 01\n",
       "0+ 0- Get SDR Record 00 00 Fail\n0- Get SDR Record 02 00 Fail\n0+ "},
      {"--seldump", "out...", "5F 5A\n18 01\n", "0- Get SEL Fail:\tOut of memory\n0+ "},
      {"--fru", "server", "28 12 ",
       "1- Cannot read file server\n1- line 1" + lost + "1- line 4" + lost + "1- line 6" + lost +
           "1- line 8" + lost + "1- Update FRU fail\n0+ Update successfully\n"},
      {"--wfru", "out...", "AA BB18 01\n", "1- checksum error\n0+ writing file......ok\n"}};
  for (const auto& [option, file, end, expected] : cases) {
    std::string outcomes;
    for (int number = 1; number == 1 || *allocations_left == 0; number++) {
      std::filesystem::remove("out...");
      *allocations_left = number;
      const RunResult result = run({option, file, "--nrst"});
      const std::string dump = content_of("out...");
      const bool done = (dump + result.traffic).find(end) != std::string::npos;
      EXPECT_TRUE(done || dump == "(no file)") << dump;
      const std::string said = "...\n" + after_identity(result.out);
      const std::string outcome = std::to_string(result.status) + (done ? "+ " : "- ") +
                                  said.substr(said.rfind("...\n") + 4);
      if (!outcomes.ends_with(outcome)) outcomes += outcome;
    }
    EXPECT_EQ(outcomes, expected) << option;
  }
}

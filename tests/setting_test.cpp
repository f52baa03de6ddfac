// The simulated server as environment variables describe it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/harness.h"

namespace {

using Words = std::vector<std::string>;
using Variables = std::vector<std::pair<std::string, std::string>>;

// Sets the machine up as these variables say.
void configure(const Variables& variables) {
  sim::reset(sim::Kind::card);
  for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
  sim::configure_from_environment();
  for (const auto& [name, value] : variables) unsetenv(name.c_str());
}

// What a run on that machine says, sends and prints as errors.
std::string seen(const Variables& variables, const Words& words) {
  configure(variables);
  const RunResult result = run(words);
  return "status " + std::to_string(result.status) + "\n" + result.out + result.err +
         result.traffic;
}

struct Case {
  Variables variables;
  Words words;
  std::string shows;  // a part of what is seen
};

TEST(Setting, each_one_reaches_the_run) {
  const std::string dump = path_of("dump");
  const Words identity = {"-e", "18", "01"};
  const Words by_device = {"--open", "-e", "18", "01"};
  const Case cases[] = {
      {{{"QARN_SIM", "none"}}, identity, "status 255"},
      {{{"QARN_SIM_USER", "nobody"}}, identity, "status 255"},
      {{{"QARN_SIM_INTERFACES", "eth0,02:00:00:00:00:01,10.0.0.7"},
        {"QARN_SIM_LAN", "5=020000000001"}},
       {"-a"},
       "30 01 01 03 0A 00 00 07"},
      {{{"QARN_SIM_FAULTS", "refuse cmd=01 value=c3"}}, {"-d"}, "get Device ID failed"},
      {{{"QARN_SIM_PORTS", "none"}}, identity, "status 255"},
      {{{"QARN_SIM_DEVICES", "/dev/ipmi/0"}}, by_device, "status 0"},
      {{{"QARN_SIM_DEVICES", "none"}}, by_device, "status 255"},
      {{{"QARN_SIM_KERNEL", "send=5"}}, by_device, "Error sending command: Input/output error"},
      {{{"QARN_SIM_LOCK", "77"}, {"QARN_SIM_LOCK_UNTIL", "5"}}, identity, "process 77"},
      {{{"QARN_SIM_PORT_OWNERS", "0ca8-0cac : ipmi_si"}}, identity, "ipmi_si"},
      {{{"QARN_SIM_SDR_ERASE_POLLS", "3"}},
       {"--sdr", file_with("empty.sdr", "")},
       "28 27 05 00 43 4C 52 00\n"},
      {{{"QARN_SIM_SDR_CLAIMED", "9"}}, {"--debug", "--sdrdump", dump}, "20 2c 20 00 51 09 00"},
      {{{"QARN_SIM_FRU_READ_LIMIT", "4"}}, {"--wfru", dump}, "checksum error"},
      {{{"QARN_SIM_FRU_SIZE", "16"}}, {"--debug", "--wfru", dump}, "20 2c 10 00 10 00"},
      {{{"QARN_SIM_TARGETS", "2c"}}, {"-e", "18", "34", "00", "2c", "18", "cc", "2c"}, "status 0"},
      {{{"QARN_SIM_LAN", "6=none;3=0a000001"}}, {"-d"}, "Get Net Mask Fail"},
      {{{"QARN_SIM_LAN", "3=0a000001"}}, {"-d"}, "IP Address:\t\t\t10.0.0.1\n"},
      {{{"QARN_SIM_CARD_CODE", "OTHERONE"}}, {"--save", dump}, "Cannot enter downloader"},
  };
  for (const Case& each : cases) {
    const std::string all = seen(each.variables, each.words);
    EXPECT_NE(all.find(each.shows), std::string::npos) << each.variables[0].first << "\n" << all;
  }
}

TEST(Setting, one_that_is_not_understood_ends_the_run_and_names_the_part) {
  const Variables wrong[] = {
      {{"QARN_SIM", "blade"}},
      {{"QARN_SIM_FAULTS", "refuse cmd=01;explode"}},
      {{"QARN_SIM_INTERFACES", "lo0,00:00:00:00:00:00;eth0"}},
      {{"QARN_SIM_PORTS", "ca3,ca2;ca8"}},
      {{"QARN_SIM_LAN", "3=0a000001;300=01"}},
      {{"QARN_SIM_KERNEL", "send=5;wait=4"}},
      {{"QARN_SIM_TARGETS", "2c;100"}},
      {{"QARN_SIM_FRU_SIZE", "70000"}},
      {{"QARN_SIM_CARD_AWAY", "-1"}},
  };
  for (const Variables& variables : wrong) {
    std::string says = variables[0].first;
    const std::string& value = variables[0].second;
    says.append(": \"").append(value, value.rfind(';') + 1).append("\"");
    EXPECT_EXIT(configure(variables), testing::ExitedWithCode(2), says);
  }
}

}  // namespace

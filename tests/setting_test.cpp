// The simulated server as environment variables describe it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/harness.h"

namespace {

// Sets a fresh machine up as this variable says.
void configure(const std::string& name, const std::string& value) {
  sim::reset(sim::Kind::card);
  setenv(name.c_str(), value.c_str(), 1);
  sim::configure_from_environment();
  unsetenv(name.c_str());
}

TEST(Setting, each_one_reaches_the_run) {
  const std::string dump = path_of("dump");
  const std::tuple<const char*, const char*, std::string, std::string> cases[] = {
      {"QARN_SIM", "none", "-e 18 01", "KCS_INIT error"},
      {"QARN_SIM_USER", "nobody", "-e 18 01", "have no right"},
      {"QARN_SIM_FAULTS", "refuse cmd=01 value=c3", "-d", "get Device ID failed"},
      {"QARN_SIM_DEVICES", "none", "--open -d", "Could not open device"},
      {"QARN_SIM_KERNEL", "send=5", "--open -d", "Error sending command: Input/output error"},
      {"QARN_SIM_LOCK", "77", "-d", "process 77"},
      {"QARN_SIM_PORT_OWNERS", "0ca8-0cac : ipmi_si", "-d", "ipmi_si"},
      {"QARN_SIM_SDR_ERASE_POLLS", "3", "--sdr " + file_with("a", ""), "28 27 05 00 43 4C 52 00\n"},
      {"QARN_SIM_SDR_CLAIMED", "9", "--debug --sdrdump " + dump, "20 2c 20 00 51 09 00"},
      {"QARN_SIM_FRU_READ_LIMIT", "4", "--wfru " + dump, "checksum error"},
      {"QARN_SIM_FRU_SIZE", "16", "--debug --wfru " + dump, "20 2c 10 00 10 00"},
      {"QARN_SIM_TARGETS", "2c", "-e 18 34 00 2c 18 bc 20 04 01 db", "response is 1C 34 00"},
      {"QARN_SIM_LAN", "6=none;3=0a000001", "-d", "Get Net Mask Fail"},
      {"QARN_SIM_CARD_CODE", "OTHERONE", "--save " + dump, "Cannot enter downloader"}};
  for (const auto& [name, value, line, shows] : cases) {
    configure(name, value);
    const RunResult result = run(line);
    const std::string all = result.out + result.err + result.traffic;
    EXPECT_NE(all.find(shows), std::string::npos) << name << "\n" << all;
  }
}

TEST(Setting, one_that_is_not_understood_ends_the_run_and_names_the_part) {
  const std::pair<std::string, std::string> wrong[] = {
      {"QARN_SIM", "blade"},
      {"QARN_SIM_FAULTS", "refuse cmd=01;explode"},
      {"QARN_SIM_INTERFACES", "lo0,00:00:00:00:00:00;eth0"},
      {"QARN_SIM_PORTS", "ca3,ca2;ca8"},
      {"QARN_SIM_LAN", "3=0a000001;300=01"},
      {"QARN_SIM_KERNEL", "send=5;wait=4"},
      {"QARN_SIM_TARGETS", "2c;100"},
      {"QARN_SIM_FRU_SIZE", "70000"},
      {"QARN_SIM_CARD_AWAY", "-1"}};
  for (const auto& [name, value] : wrong) {
    const std::string part = value.substr(value.rfind(';') + 1);
    EXPECT_EXIT(configure(name, value), testing::ExitedWithCode(2), name + ": \"" + part + "\"");
  }
}

}  // namespace

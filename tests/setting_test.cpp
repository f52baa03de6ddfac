// The simulated server as environment variables describe it.
#include <cstdlib>

#include "tests/harness.h"

namespace {

void configure(const std::string& name, const std::string& value) {
  setenv(name.c_str(), value.c_str(), 1);
  sim::configure_from_environment();
  unsetenv(name.c_str());
}

// Those that are left out here are used by the tests of what they change.
TEST(Setting, each_one_reaches_the_run) {
  const std::string dump = path_of("dump");
  const std::tuple<const char*, const char*, std::string, std::string> cases[] = {
      {"QARN_SIM", "none", "-d", "KCS_INIT error"},
      {"QARN_SIM_FAULTS", "refuse cmd=01 value=c3", "-d", "get Device ID failed"},
      {"QARN_SIM_FRU_READ_LIMIT", "4", "--wfru " + dump, "checksum error"},
      {"QARN_SIM_FRU_SIZE", "16", "--debug --wfru " + dump, "20 2c 10 00 10 00"},
      {"QARN_SIM_CARD_CODE", "OTHERONE", "--save " + dump, "Cannot enter downloader"}};
  for (const auto& [name, value, line, shows] : cases) {
    sim::reset(sim::Kind::card);
    configure(name, value);
    const RunResult result = run(line);
    EXPECT_NE(result.out.find(shows), std::string::npos) << name << "\n" << result.out;
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
      {"QARN_SIM_CARD_AWAY", "-1"},
      {"QARN_SIM_STATE", "/dev/null"},
      {"QARN_SIM_STATE", file_with("text", "# no state\n")}};
  for (const auto& [name, value] : wrong) {
    const std::string part = value.substr(value.rfind(';') + 1);
    EXPECT_EXIT(configure(name, value), testing::ExitedWithCode(2), name + ": \"" + part + "\"");
  }
}

}  // namespace

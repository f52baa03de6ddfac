// Fuzz target: whole commands. The first line of the input has the words, the lines after it set
// the simulated server (the variables of sim/environment.cpp) and the process (TERMINALS, CLOSED,
// FULL, SIGNAL, LOOKS); what follows a line "== NAME" is a file of that name, or one of the
// machine's streams, ANSWERS and PORTS.
#include "fuzz/command.h"

#include <csignal>

#include "textfile/lines.h"
#include "transport/kcs_intf.h"

namespace {

constexpr uint32_t MOST_FLASH = 0x2000;
constexpr uint32_t SMALL_FLASH = 0x1000;

// The only words that may have a slash: what they lead to is harmless, and has an end or a limit.
const char* const PATHS[] = {
    "/dev/null",       "/dev/zero",   "/dev/full",      "/dev/stdin", "/dev/stdout", "./dump",
    "/proc/self/fd/1", "folder/dump", "folder/../dump", "folder/",    "/",
};

// Not one that stands for a fault of the program.
unsigned signal_of(unsigned choice) {
  constexpr unsigned FAULTS[] = {SIGILL, SIGTRAP, SIGABRT, SIGBUS,
                                 SIGFPE, SIGKILL, SIGSEGV, SIGSYS};
  constexpr unsigned MOST = 64;
  const unsigned signal = choice % (MOST + 1);
  return fuzz::is_among(FAULTS, signal) ? SIGTERM : signal;
}

// A card whose flash is gone through in milliseconds.
void shorten_flash() {
  sim::Card& card = sim::machine().bmc.card;
  card.flash_size = SMALL_FLASH;
  card.update_start = card.flash_base + SMALL_FLASH - 0x100;
}

void set(const std::string& line, fuzz::Command* command) {
  const std::string name = line.substr(0, line.find('='));
  const std::string value = line.substr(std::min(line.size(), name.size() + 1));
  if (name == "TERMINALS") command->terminals = value;
  if (name == "CLOSED") command->closed = value.substr(0, value.find('2'));
  if (name == "FULL") command->full = true;
  if (name == "LOOKS") sim::parse_number(value, 10, UINT16_MAX, command->looks);
  if (name == "SIGNAL") sim::parse_number(value, 10, UINT16_MAX, command->signal);
  // These two would write a file, and the help ends the process.
  if (name == "QARN_SIM_LOG" || name == "QARN_SIM_STATE" || value == "help") return;
  sim::set_variable(name, value);
  if (name == "QARN_SIM") shorten_flash();
}

// What would end a run without a check, or take too long.
void limit(fuzz::Command* command) {
  sim::Bmc& bmc = sim::machine().bmc;
  bmc.card.flash_size = std::min(bmc.card.flash_size, MOST_FLASH);
  // The broken pipe is not to be read from.
  const bool named = std::any_of(command->words.begin(), command->words.end(), [](auto& word) {
    return word.ends_with("/dev/stdout") || word.ends_with("/fd/1");
  });
  using enum sim::FaultKind;
  std::erase_if(bmc.faults, [&](const sim::Fault& fault) {
    return fault.kind == power_cut || (fault.kind == close_output && named);
  });
  command->signal = signal_of(command->signal);
  for (sim::Fault& fault : bmc.faults) {
    if (fault.kind == raise_signal) fault.value = signal_of(fault.value);
  }
}

void take_section(const std::string& section, fuzz::Command* command) {
  const std::string name = section.substr(0, section.find('\n'));
  const std::string content = section.substr(std::min(section.size(), name.size() + 1));
  sim::Machine& machine = sim::machine();
  if (name == "ANSWERS") return machine.bmc.answer_stream.assign(content.begin(), content.end());
  if (name == "PORTS") return machine.port_stream.assign(content.begin(), content.end());
  const bool usable = !name.empty() && name != "." && name != ".." && name.size() < 100 &&
                      name.find_first_of(std::string("/\0", 2)) == std::string::npos;
  if (usable) command->files[name] = content;
}

fuzz::Command take_apart(const std::string& text) {
  const std::string mark = "\n== ";
  fuzz::Command command = {.files = {{"dump", fuzz::OLDER}, {"stdin", ""}}};
  size_t end = text.find(mark);
  const std::vector<std::string> lines = sim::split(text.substr(0, end), '\n');
  for (size_t i = 1; i < lines.size(); i++) set(lines[i], &command);
  if (!lines.empty()) command.words = sim::split(lines[0].c_str(), ' ');
  for (std::string& word : command.words) {
    const std::string value = word.substr(word.find('=') + 1);
    if (!fuzz::is_among(PATHS, value)) std::erase(word, '/');
  }
  while (end != std::string::npos) {
    const size_t start = end + mark.size();
    end = text.find(mark, start);
    take_section(text.substr(start, end - start), &command);
  }
  limit(&command);
  return command;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  sim::reset(sim::Kind::card);
  KCS_bounds = {8, 2};
  file_limit = 0x4000;
  shorten_flash();
  fuzz::run(take_apart({bytes, bytes + size}));
  return 0;
}

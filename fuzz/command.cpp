// Fuzz target: whole commands. The first line of the input has the words, the lines after it set the
// simulated server (the variables of sim/environment.cpp) and the process (SETTINGS); what follows a
// line "== NAME" is a file of that name, or what BYTES names.
#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>

#include "firmware/flash.h"
#include "frontend/options.h"
#include "fuzz/fuzz.h"
#include "fuzz/process.h"
#include "textfile/lines.h"
#include "transport/kcs_intf.h"

namespace {

namespace files = std::filesystem;

constexpr unsigned MOST_WORK = 200000;
constexpr uint32_t MOST_FLASH = 0x2000;
constexpr uint32_t SMALL_FLASH = 0x1000;
constexpr int NO_ANSWER = 255;

struct Input {
  std::vector<std::string> words;
  fuzz::Process process = {.most_work = MOST_WORK};
  std::map<std::string, std::string> files;  // by name
};

// The only words that may have a slash: what they lead to is harmless, and has an end or a limit.
const char* const PATHS[] = {
    "/dev/null",   "/dev/zero", "/dev/full",          "/dev/stdin",
    "/dev/stdout", "./dump",    "/proc/self/fd/1", "folder/dump", "folder/../dump", "folder/", "/",
};
// Standard output by another name.
const char* const OUTPUTS[] = {"/dev/stdout", "/proc/self/fd/1"};

const char OLDER[] = "an older dump\n";

template <typename List>
bool is_among(const List& list, const std::string& text) {
  return std::find(std::begin(list), std::end(list), text) != std::end(list);
}

// What a word may name: all of it, or the value of a long option.
std::string value_of(const std::string& word) {
  const size_t equals = word.starts_with("--") ? word.find('=') : std::string::npos;
  return equals == std::string::npos ? word : word.substr(equals + 1);
}

void make_harmless(std::string& word) {
  if (!is_among(PATHS, value_of(word))) std::erase(word, '/');
}

uint32_t number(const std::string& text) {
  uint32_t value = 0;
  sim::parse_number(text, 10, UINT16_MAX, value);
  return value;
}

constexpr int SIGNALS[] = {1, 2, 3, 15, 20};
int signal_of(unsigned choice) {
  const auto found = std::find(std::begin(SIGNALS), std::end(SIGNALS), static_cast<int>(choice));
  return found != std::end(SIGNALS) ? *found : SIGNALS[choice % std::size(SIGNALS)];
}

struct Setting {
  const char* name;
  void (*set)(const std::string& value, fuzz::Process* process);
};
const Setting SETTINGS[] = {
    {"TERMINALS", [](auto& value, auto* process) { process->terminals = value; }},
    {"CLOSED", [](auto& value, auto* process) { process->closed = value; }},
    {"FULL", [](auto&, auto* process) { process->full = true; }},
    {"SIGNAL", [](auto& value, auto* process) { process->signal = signal_of(number(value)); }},
    {"LOOKS", [](auto& value, auto* process) { process->looks = number(value); }},
};

// Sections that are no files.
const struct {
  const char* name;
  sim::Bytes& (*bytes)();
} BYTES[] = {
    {"ANSWERS", []() -> sim::Bytes& { return sim::machine().bmc.answer_stream; }},
    {"PORTS", []() -> sim::Bytes& { return sim::machine().port_stream; }},
};

// A card whose flash is gone through in milliseconds.
void shorten_flash() {
  sim::Card& card = sim::machine().bmc.card;
  card.flash_size = SMALL_FLASH;
  card.update_start = card.flash_base + SMALL_FLASH - 0x100;
}

void set(const std::string& line, fuzz::Process* process) {
  const std::string name = line.substr(0, line.find('='));
  const std::string value = line.substr(std::min(line.size(), name.size() + 1));
  for (const Setting& setting : SETTINGS) {
    if (setting.name == name) setting.set(value, process);
  }
  // These two would write a file, and the help ends the process.
  if (name == "QARN_SIM_LOG" || name == "QARN_SIM_STATE" || value == "help") return;
  sim::set_variable(name, value);
  if (name == "QARN_SIM") shorten_flash();
}

// What would end the fuzzer, or take too long.
void limit_machine(const Input& input) {
  sim::Bmc& bmc = sim::machine().bmc;
  bmc.card.flash_size = std::min(bmc.card.flash_size, MOST_FLASH);
  // The broken pipe is not to be read from.
  const bool named = std::any_of(input.words.begin(), input.words.end(), [](auto& word) {
    return is_among(OUTPUTS, value_of(word));
  });
  std::erase_if(bmc.faults, [&](const sim::Fault& fault) {
    return fault.kind == sim::FaultKind::power_cut ||
           (fault.kind == sim::FaultKind::close_output && named);
  });
  for (sim::Fault& fault : bmc.faults) {
    if (fault.kind != sim::FaultKind::raise_signal) continue;
    fault.value = static_cast<unsigned>(signal_of(fault.value));
  }
}

void take_section(const std::string& name, const std::string& content, Input* input) {
  for (const auto& row : BYTES) {
    if (name == row.name) return row.bytes().assign(content.begin(), content.end());
  }
  const bool usable = !name.empty() && name != "." && name != ".." && name.size() < 100 &&
                      name.find_first_of(std::string("/\0", 2)) == std::string::npos;
  if (usable) input->files[name] = content;
}

Input take_apart(const std::string& text) {
  constexpr char MARK[] = "\n== ";
  constexpr size_t MARK_SIZE = sizeof MARK - 1;
  Input input;
  input.files = {{"dump", OLDER}};
  size_t end = text.find(MARK);
  const std::vector<std::string> lines = sim::split(text.substr(0, end), '\n');
  if (!lines.empty()) input.words = sim::split(lines[0].c_str(), ' ');
  for (std::string& word : input.words) make_harmless(word);
  for (size_t i = 1; i < lines.size(); i++) set(lines[i], &input.process);
  while (end != std::string::npos) {
    const size_t start = end + MARK_SIZE;
    end = text.find(MARK, start);
    const std::string section = text.substr(start, end - start);
    const size_t line_end = std::min(section.find('\n'), section.size());
    const std::string content = section.substr(std::min(section.size(), line_end + 1));
    take_section(section.substr(0, line_end), content, &input);
  }
  limit_machine(input);
  return input;
}

// The folder of the runs, removed when the fuzzer ends.
struct Folder {
  std::string path = files::current_path() / "command-XXXXXX";
  int outer = open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
  int inner = mkdtemp(path.data()) != nullptr ? open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)
                                              : -1;
  ~Folder() {
    std::error_code ignored;
    files::remove_all(path, ignored);
  }
};

// While it lives, the current folder is the runs' own.
struct Inside {
  static const Folder& folder() {
    static Folder kept;
    return kept;
  }
  Inside() {
    fuzz::require(folder().inner >= 0 && fchdir(folder().inner) == 0);
    for (const auto& entry : files::directory_iterator(".")) files::remove_all(entry);
  }
  ~Inside() {
    fuzz::require(fchdir(folder().outer) == 0);
  }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;
};

constexpr char HARD_LINKS[][5] = {"hard", "same"};

void write_files(const Input& input) {
  for (const auto& [name, content] : input.files) fuzz::file(name.c_str(), content);
  std::error_code ignored;  // a file of the input may have the name
  files::create_directory("folder", ignored);
  files::create_symlink("dump", "link", ignored);
  files::create_symlink("absent", "nowhere", ignored);
  files::create_symlink("loop", "loop", ignored);
  files::create_hard_link(fuzz::file(HARD_LINKS[0], OLDER), HARD_LINKS[1], ignored);
}

std::string content_of(const files::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// A run that was asked for, and what became of it.
struct Run {
  const Input& input;
  Options options;
  bool parsed;
  fuzz::Result result;

  bool said(const char* text) const {
    return result.err.find(text) != std::string::npos;
  }
};

// What the tool makes of the words, in copies: it clears passwords.
bool parse(std::vector<std::string> words, Options* options) {
  words.insert(words.begin(), "qarn");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  opterr = 0;
  optind = 0;
  const int argc = static_cast<int>(words.size());
  const int parsed = argc > 1 ? parse_options(argc, arguments.data(), options) : 0;
  opterr = 1;
  // The paths must outlive the copies.
  static std::vector<std::string> kept;
  kept = std::move(words);
  return parsed == OPTIONS_ACCEPTED;
}

bool is_firmware_action(const Options& options) {
  return (options.firmware_update | options.firmware_save | options.firmware_verify) != 0;
}

// The card leaves its downloader, or is at least asked to, unless the way to it is lost.
void check_card(const Run& run) {
  const sim::Bmc& bmc = sim::machine().bmc;
  const bool by_hand = run.options.raw_count != 0 || run.options.script_path != nullptr;
  if (!bmc.card.in_downloader || by_hand) return;
  fuzz::require(is_firmware_action(run.options));
  if (run.said("no answer from the BMC for 10 seconds")) return;
  if (run.result.gave == NO_ANSWER) {
    const bool seen = run.input.process.terminals.find('2') != std::string::npos;
    return fuzz::require(!seen || run.said("may still be in its downloader"));
  }
  const std::string sent = sim::transcript();
  const auto at = [&](const char* request) { return sent.rfind(request); };
  // The kernel's driver does not hand on what it could not write.
  const bool unwritten = std::any_of(bmc.faults.begin(), bmc.faults.end(), [](const auto& fault) {
    return fault.kind == sim::FaultKind::write_error;
  });
  const bool asked = at("\n18 02\n") != std::string::npos && at("\n18 02\n") > at("\n20 02 ");
  fuzz::require(asked || unwritten);
}

// The interface is idle, or the BMC holds it, or the next run finds its way.
void check_interface(const Run& run) {
  sim::Machine& machine = sim::machine();
  const auto used = std::find_if(machine.ports.begin(), machine.ports.end(), [](const auto& kcs) {
    return kcs.command_port == KCS_para.cmd_port && kcs.data_port == KCS_para.data_port;
  });
  if (used == machine.ports.end() || !machine.port_stream.empty()) return;
  if (used->phase == sim::KcsPhase::idle || used->phase == sim::KcsPhase::busy) return;
  fuzz::require(run.result.gave == NO_ANSWER);
  machine.bmc.faults.clear();
  machine.bmc.answer_stream.clear();
  machine.lock_holder = 0;
  machine.bmc.back_at_us = 0;
  sim::clear_log();
  const fuzz::Result next = fuzz::run({.most_work = MOST_WORK}, {"-e", "18", "01"}, false);
  fuzz::require(next.status == 0 && sim::transcript().ends_with("18 01\n"));
}

bool is_whole_log(const std::string& dump) {
  unsigned low = 0;
  unsigned high = 0;
  int head = 0;
  const int found = std::sscanf(dump.c_str(), "_SEL\n_LOG_NUM   %2x%2x\n\n%n", &low, &high, &head);
  constexpr size_t LINE = 48;
  return found == 2 && dump.size() == static_cast<size_t>(head) + (high << 8 | low) * LINE;
}

// What a whole dump looks like; the inventory's has no end mark.
bool is_whole(const std::string& dump) {
  if (dump.starts_with("_SDR (\n")) return dump.ends_with("\n\n)\n");
  if (dump.starts_with("_SEL\n")) return is_whole_log(dump);
  if (dump.starts_with("_FRU\n")) return true;
  return !dump.empty() && dump.size() % PORTION_SIZE == 0;
}

// Nothing but a dump changes a file, or leaves one, and it is whole.
void check_files(const Run& run) {
  const Options& options = run.options;
  std::vector<std::string> targets;
  for (const char* path : {options.sdr_dump != 0 ? options.sdr_path : nullptr,
                           options.fru_dump_path, options.sel_path,
                           options.firmware_save != 0 ? options.firmware_path : nullptr}) {
    if (path != nullptr && run.parsed) targets.push_back(path);
  }
  // Where links and longer paths lead.
  const bool elsewhere = std::any_of(targets.begin(), targets.end(), [](auto& path) {
    return path == "link" || path == "nowhere" || path.find('/') != std::string::npos;
  });
  for (const auto& entry : files::recursive_directory_iterator(".")) {
    const std::string name = entry.path().filename();
    if (entry.is_symlink() || !entry.is_regular_file()) continue;
    if (name == fuzz::INPUT || name == fuzz::OUTPUT) continue;
    const std::string content = content_of(entry.path());
    const auto before = run.input.files.find(name);
    const bool was_there = before != run.input.files.end();
    if (was_there && content == before->second) continue;
    if (is_among(HARD_LINKS, name) && content == OLDER) continue;
    const bool target =
        is_among(targets, name) || (elsewhere && (name == "dump" || name == "absent"));
    fuzz::require(target && !is_among(HARD_LINKS, name) && is_whole(content));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::start(bytes, size);
  driverHandle = -1;
  KCS_bounds = {8, 2};
  KCS_para = {};
  file_limit = 0x4000;
  shorten_flash();
  const Input input = take_apart({bytes, bytes + size});
  const Inside inside;
  write_files(input);
  Run run = {.input = input, .options = {}, .parsed = false, .result = {}};
  run.parsed = parse(input.words, &run.options);
  run.result = fuzz::run(input.process, input.words, run.options.firmware_save != 0);
  if (run.result.given_up) return 0;
  fuzz::require(run.parsed || sim::transcript().empty());
  check_files(run);
  check_card(run);
  check_interface(run);
  return 0;
}

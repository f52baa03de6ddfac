// Fuzz target: whole commands. The first line of the input has the words, the lines after it set
// the simulated server (the variables of sim/environment.cpp) and the process (SETTINGS); what
// follows a line "== NAME" is a file of that name, or what BYTES names.
#include <fcntl.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "frontend/options.h"
#include "fuzz/fuzz.h"
#include "fuzz/outcome.h"
#include "textfile/lines.h"
#include "transport/kcs_intf.h"

namespace {

namespace files = std::filesystem;

constexpr uint32_t MOST_FLASH = 0x2000;
constexpr uint32_t SMALL_FLASH = 0x1000;

struct Input {
  std::vector<std::string> words;
  fuzz::Process process = {};
  std::map<std::string, std::string> files;  // by name
};

// The only words that may have a slash: what they lead to is harmless, and has an end or a limit.
const char* const PATHS[] = {
    "/dev/null",       "/dev/zero",   "/dev/full",      "/dev/stdin", "/dev/stdout", "./dump",
    "/proc/self/fd/1", "folder/dump", "folder/../dump", "folder/",    "/",
};
// Standard output by another name.
const char* const OUTPUTS[] = {"/dev/stdout", "/proc/self/fd/1"};

// What a word may name: all of it, or the value of a long option.
std::string value_of(const std::string& word) {
  const size_t equals = word.starts_with("--") ? word.find('=') : std::string::npos;
  return equals == std::string::npos ? word : word.substr(equals + 1);
}

void make_harmless(std::string& word) {
  if (!fuzz::is_among(PATHS, value_of(word))) std::erase(word, '/');
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
    return fuzz::is_among(OUTPUTS, value_of(word));
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
  input.files = {{"dump", fuzz::OLDER}};
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
  int inner =
      mkdtemp(path.data()) != nullptr ? open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1;
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

void write_files(const Input& input) {
  for (const auto& [name, content] : input.files) fuzz::file(name.c_str(), content);
  std::error_code ignored;  // a file of the input may have the name of a link
  files::remove(fuzz::HARD_LINKS[1]);
  files::create_directory("folder", ignored);
  files::create_symlink("dump", "link", ignored);
  files::create_symlink("absent", "nowhere", ignored);
  files::create_symlink("loop", "loop", ignored);
  files::create_hard_link(fuzz::file(fuzz::HARD_LINKS[0], fuzz::OLDER), fuzz::HARD_LINKS[1],
                          ignored);
}

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
  fuzz::Run run = {.process = input.process, .files = input.files};
  run.parsed = parse(input.words, &run.options);
  run.result = fuzz::run(input.process, input.words, run.options.firmware_save != 0);
  if (run.result.given_up) return 0;
  fuzz::check(run);
  return 0;
}

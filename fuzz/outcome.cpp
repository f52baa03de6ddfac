// What must hold after a whole command.
#include <algorithm>
#include <cctype>
#include <filesystem>

#include "firmware/flash.h"
#include "fuzz/command.h"
#include "transport/bmc.h"
#include "transport/ipmi.h"
#include "transport/kcs_intf.h"

namespace {

namespace files = std::filesystem;

constexpr int NO_ANSWER = 255;

bool said(const fuzz::Command& run, const char* text) {
  return run.err.find(text) != std::string::npos;
}

// Whether one reached the BMC; its line begins with a hexadecimal digit.
bool any_request() {
  const std::vector<std::string> lines = sim::split(sim::transcript(), '\n');
  return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
    return std::isxdigit(static_cast<unsigned char>(line[0])) != 0;
  });
}

// The card leaves its downloader, or is at least asked to, unless the way to it is lost.
void check_card(const fuzz::Command& run) {
  const sim::Bmc& bmc = sim::machine().bmc;
  const Options& options = run.options;
  if (!bmc.card.in_downloader || options.raw_count != 0 || options.script_path != nullptr) return;
  fuzz::require((options.firmware_update | options.firmware_save | options.firmware_verify) != 0);
  if (said(run, "no answer from the BMC for 10 seconds")) return;
  if (run.gave == NO_ANSWER) {
    const bool seen = fuzz::is_among(run.terminals, '2');
    return fuzz::require(!seen || said(run, "may still be in its downloader"));
  }
  // The kernel's driver does not hand on what it could not write.
  const bool unwritten = std::any_of(bmc.faults.begin(), bmc.faults.end(), [](const auto& fault) {
    return fault.kind == sim::FaultKind::write_error;
  });
  const std::string sent = sim::transcript();
  const size_t asked = sent.rfind("\n18 02\n");
  fuzz::require(unwritten || (asked != std::string::npos && asked > sent.rfind("\n20 02 ")));
}

// Unless the BMC holds the interface, it is idle, or no answer came, and the next run finds its
// way.
void check_interface(const fuzz::Command& run) {
  sim::Machine& machine = sim::machine();
  const auto used = std::find_if(machine.ports.begin(), machine.ports.end(), [](const auto& kcs) {
    return kcs.command_port == KCS_para.cmd_port && kcs.data_port == KCS_para.data_port;
  });
  if (used == machine.ports.end() || !machine.port_stream.empty()) return;
  if (used->phase == sim::KcsPhase::busy) return;
  fuzz::require(used->phase == sim::KcsPhase::idle || run.gave == NO_ANSWER);
  machine.bmc.faults.clear();
  machine.bmc.answer_stream.clear();
  machine.bmc.back_at_us = 0;
  const uint8_t request[] = {BMC_ADDRESS, NETFN_APP, GET_DEVICE_ID};
  uint8_t response[RESPONSE_ROOM];
  unsigned length = 0;
  fuzz::require(Init_Interface("KCS", used->command_port, used->data_port, 0) == 0);
  fuzz::require(Send_Req(request, sizeof request) == 0 && Get_Resp(response, &length) == 0);
  fuzz::require(length > RESPONSE_DATA && response[RESPONSE_COMPLETION] == COMPLETED);
}

bool is_whole_log(const std::string& dump) {
  unsigned low = 0;
  unsigned high = 0;
  int head = 0;
  const int found = std::sscanf(dump.c_str(), "_SEL\n_LOG_NUM   %2x%2x\n\n%n", &low, &high, &head);
  constexpr size_t LINE = 48;
  return found == 2 && dump.size() == static_cast<size_t>(head) + (high << 8 | low) * LINE;
}

// Whether the BMC answers, and what it answers is true.
bool is_sound(const sim::Machine& machine) {
  const auto& faults = machine.bmc.faults;
  return machine.bmc.answer_stream.empty() && machine.port_stream.empty() &&
         machine.kernel_faults.receive_errno == 0 &&
         std::all_of(faults.begin(), faults.end(), [](const sim::Fault& fault) {
           return sim::row_of(fault).point == sim::FaultPoint::arrival;
         });
}

// The card's flash, in whole portions.
bool is_whole_flash(const std::string& dump) {
  if (dump.empty() || dump.size() % PORTION_SIZE != 0) return false;
  const sim::Bytes& flash = sim::card_flash(sim::machine().bmc.card);
  return !is_sound(sim::machine()) || dump.starts_with(std::string(flash.begin(), flash.end()));
}

// What a whole dump looks like; the inventory's has no end mark.
bool is_whole(const std::string& dump) {
  if (dump.starts_with("_SDR (\n")) return dump.ends_with("\n\n)\n");
  if (dump.starts_with("_SEL\n")) return is_whole_log(dump);
  if (dump.starts_with("_FRU\n")) return true;
  return is_whole_flash(dump);
}

// Nothing but a dump changes a file, or leaves one, and it is whole.
void check_files(const fuzz::Command& run) {
  const Options& options = run.options;
  std::vector<std::string> targets;
  for (const char* path :
       {options.sdr_dump != 0 ? options.sdr_path : nullptr, options.fru_dump_path, options.sel_path,
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
    const std::string content = fuzz::content_of(entry.path());
    const auto before = run.files.find(name);
    const bool was_there = before != run.files.end();
    if (was_there && content == before->second) continue;
    if (fuzz::is_among(fuzz::HARD_LINKS, name) && content == fuzz::OLDER) continue;
    const bool target =
        fuzz::is_among(targets, name) || (elsewhere && (name == "dump" || name == "absent"));
    fuzz::require(target && !fuzz::is_among(fuzz::HARD_LINKS, name) && is_whole(content));
  }
}

}  // namespace

void fuzz::check(const Command& run) {
  require(run.parsed || sim::transcript().empty());
  require(!said(run, "ended before the BMC was touched") || !any_request());
  check_files(run);
  check_card(run);
  check_interface(run);
}

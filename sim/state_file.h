// The state file: a line "name hex" for each of the BMC's contents.
#pragma once
#include "sim/bmc.h"

namespace sim {

// True when nothing stands at the path, or a state file that can be read.
bool can_keep_state(const std::string& path);
// A broken line of the file is left out. False when the file cannot be read or written; what is
// written is there wholly or not at all.
bool load_state(const std::string& path, Bmc& bmc);
bool save_state(const std::string& path, const Bmc& bmc);

}  // namespace sim

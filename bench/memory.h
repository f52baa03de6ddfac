// How much memory a process takes, as the kernel reports it.
#pragma once
#include <fstream>
#include <string>

// A line of a process's status file, in kB: "VmRSS:" now, "VmHWM:" at most; 0 when it is not there.
inline double kib_of(const std::string& status_file, const std::string& key) {
  std::ifstream status(status_file);
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key)) return std::stod(line.substr(key.size()));
  }
  return 0;
}

// What the fuzz targets share: an input taken apart, files, a fresh machine, a broken promise.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/machine.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);

namespace fuzz {

uint8_t take(std::string* input);  // its first byte, which goes; 0 when there is none

// Writes a file in this process's own folder, which is the current one; returns its name.
const char* file(const char* name, const std::string& content);

// A fresh machine without a fault, the product's switches as they are at start, the kernel's device
// open. Over that device a failed transaction returns; over the ports it would end the process.
void start(sim::Kind kind);

// A promise that does not hold is a finding.
void require(bool holds);

}  // namespace fuzz

// The two forms of SDR file.
#pragma once
#include <cstdio>

#include "sdr/sdr.h"

// Each appends the records of an open file to `repository`. False after a line that says where the
// file is wrong and why; read errors are left in the file's error mark.
bool load_text(FILE* file, sdr_repository* repository);
bool load_binary(FILE* file, sdr_repository* repository);

// What the plain text of sensor records does not bring back.
#pragma once
#include "sdr/sdr.h"

// A line for each kind of loss, when the dump at `path` would not give the same records again.
void tell_sdr_losses(const char* path, const sdr_repository& repository);

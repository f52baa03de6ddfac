// What the plain text of an inventory does not bring back when it is written to a device.
#pragma once
#include "fru/layout.h"

// Notes in the record which fields of the area, as the device has it, do not come back.
void note_losses(const fru_layout& layout, std::span<const uint8_t> area, fru_info* fru);

// A line for each kind of loss, naming the fields: a failed step.
void tell_losses(const fru_dev& dev);

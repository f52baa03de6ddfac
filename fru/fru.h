// FRU inventory: the model, the device, its image and its text form.
#pragma once

void fruUpdate(const char* path);
void fruDump(const char* path);

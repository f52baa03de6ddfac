// Motorola S-records: data records with 32-bit addresses (S3), one a line.
#pragma once
#include <cstdio>

#include "firmware/flash.h"

// Reads the file through from its start. Null when every data record can be placed; else why not,
// with the line's number (from 1).
const char* srecord_fault(FILE* file, unsigned* line_number);

// Forgets the line that has been read but not placed: the file is read from its start again.
void srecord_restart();

// Fills one portion; sets base, pos and eof. False when a record cannot be placed.
bool srecord_fill(FILE* file, ImageBuffer* buffer);

// Whether the portion filled last holds data.
bool srecord_placed();

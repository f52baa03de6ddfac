// Motorola S-records: data records with 32-bit addresses (S3), one a line.
#pragma once
#include <cstdio>

#include "firmware/flash.h"

// Reads the file through from its start. Null when every data record can be placed, with the
// address after the highest byte; else why not, with the line's number (from 1).
const char* srecord_fault(FILE* file, unsigned* line_number, uint64_t* end);

struct File_signs;
// Reads the file through: notes wrong checksums, and an end record that is missing.
void note_record_signs(FILE* file, File_signs* signs);

// Begins to read the file, whose position is at its start, in portions. Forgets an earlier reading.
void srecord_begin(FILE* file);
// Fills one portion; sets base, pos and eof. False when a record cannot be placed.
bool srecord_fill(ImageBuffer* buffer);
// Ends the reading: before the file is closed.
void srecord_end();

// Whether a record gave the portion filled last its base, and whether it holds data.
bool srecord_placed();
bool srecord_has_data();

// Places one S-record line, NUL-terminated and without its line end: inside the portion in any
// order, the later bytes win. Any other line, and a record that cannot be placed, is dropped.
void interpret_data(ImageBuffer* buffer, const char* line);
// The byte that two hexadecimal digits denote; above 0xFF when one of them is none.
unsigned convert(char c1, char c2);

// The text form of sensor records.
#pragma once
#include <cstdio>

#include "sdr/comments.h"
#include "sdr/sdr.h"
#include "textfile/signs.h"

// The characters of the text of one record without comments on its fields, at most.
inline constexpr size_t RECORD_TEXT_ROOM = 4096;

// Writes a whole text file of these records.
void put_sdr_text(FILE* file, std::span<const sdr_entry> entries, const sdr_comments& comments);
// The bytes of the record's ID string; empty, at the end of the body, when it has none.
std::span<const uint8_t> id_string_of(const sdr_entry& entry);

// Appends the records of a text file. False when it is refused; blame_line says why.
bool load_sdr_text(FILE* file, sdr_repository* repository, File_signs* signs);
// True when a file of this name is read as a binary one.
bool is_binary_sdr(const char* path);

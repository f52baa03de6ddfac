// Signs that a definition file is not what it was meant to be.
#pragma once

enum class Sign : unsigned {
  no_opening,
  no_closing,
  no_record,
  closed_early,
  other_digit,
  quoted_comment,
  open_quote,
  split_field,
  wrong_checksum,
  no_end_record,
  extra_bytes,
  text_after_end,
  records_of_type_0,
  no_internal,
  stray_line,
  split_byte,
  short_request,
  other_line,
  left_out_record,
  wrong_count,
  long_line,
  raw_records,
};
inline constexpr unsigned SIGNS = 22;

// For each kind, how many lines have it and which is the first; all zero at start. Line 0 is the
// whole file.
struct File_signs {
  unsigned lines[SIGNS];
  unsigned first[SIGNS];
  unsigned cut_line;  // the last line whose comment begins inside quotes
};

// Each does nothing for null, when no one will be told.
void note_sign(File_signs* signs, Sign sign, unsigned line);

// A line that belongs nowhere, unless it is empty but for its line end.
void note_stray(File_signs* signs, const char* text, unsigned line);

// Those of a line's text as it stands in the file, and of a part of it that must be bytes.
void note_line(File_signs* signs, const char* text, unsigned line);
void note_bytes(File_signs* signs, const char* text, unsigned line);

// A warning for each kind that was seen.
void tell_signs(const File_signs& signs, const char* path);

// Sensor Data Records: the repository and its file forms.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

inline constexpr unsigned SDR_HEADER_SIZE = 5;
inline constexpr unsigned SDR_LENGTH_BYTE = 4;  // the header byte that counts the body

// One record; the first five fields are its header in wire order (IPMI v2.0 table 43-1).
struct sdr_entry {
  uint8_t record_id_ls;
  uint8_t record_id_ms;
  uint8_t sdr_version;
  uint8_t record_type;
  uint8_t record_length;  // body bytes
  std::unique_ptr<uint8_t[]> sdr_data;
};

// A set of records and what the repository said about itself (table 33-3).
struct sdr_repository {
  uint8_t repo_version;
  uint8_t count_ls, count_ms;      // as claimed; record_count is what arrived
  uint8_t next_id_ls, next_id_ms;  // the record to read next; 0xFFFF: no further one
  uint32_t record_count;           // entries in psdr_entry
  uint8_t free_ls, free_ms;
  uint32_t free_space;
  uint32_t add_timestamp;
  uint32_t erase_timestamp;
  uint8_t op_support;
  std::unique_ptr<sdr_entry[]> psdr_entry;
  std::size_t room;  // entries that psdr_entry can hold
  std::unique_ptr<char[]> source_name;
};

// Reads the whole repository. 1, or 0 with the reason in err_message.
int init_sdr(sdr_repository* repository);
// Reads the record with the ID next_id, appends it and sets next_id to the one after it. 1, or 0
// with err_message; of a record that breaks off the beginning is appended, with zeros for the rest.
int get_sdr(sdr_repository* repository);
// Erases the BMC's repository and adds every entry in order. 1, or 0 with err_message; an entry
// without its body, or one that cannot be sent, fails before anything is erased.
int Write_Sdr(sdr_repository* repository);

struct File_signs;

// Loads a text file, or a binary one whose name ends in ".dat". 1, even without any record; 0 when
// it could not be opened, or is refused, after a line that says where and why; refusal() says it
// too. Warns of signs of a mistake in a file that look_at_sdr_file cannot read.
int FileToSdr(const char* path, sdr_repository* repository);
// Warns of signs of a mistake in a file, if it is a regular one, and prints nothing else.
void look_at_sdr_file(const char* path);
// Writes the records as text. 1, or 0 when the file could not be opened or not be written whole.
int SdrToFile(const char* path, const sdr_repository* repository);

// Appends a record of which `record` holds the header at least; body bytes that it does not hold
// are zero. Null when there is no memory for it; sdr_data is null when there is none for the body.
sdr_entry* append_record(sdr_repository* repository, std::span<const uint8_t> record);
// Releases every entry and the name; harmless on a zeroed or released record.
void freespace(sdr_repository* repository);

std::span<sdr_entry> entries_of(const sdr_repository& repository);
// The bytes of a record; a body for which there was no memory is empty.
std::array<uint8_t, SDR_HEADER_SIZE> header_of(const sdr_entry& entry);
std::span<uint8_t> body_of(const sdr_entry& entry);

// Fuzz target: every text and table that qarn reads from a file. The first byte chooses the reader.
#include "fru/fru.h"
#include "fuzz/fuzz.h"
#include "lan/lan.h"
#include "sdr/sdr.h"
#include "textfile/cfg.h"
#include "textfile/tokenizer.h"

namespace {

void read_sdr(const char* name, const std::string& text) {
  sdr_repository repository{};
  const int result = FileToSdr(fuzz::file(name, text), &repository);
  fuzz::require(result == 1 || repository.record_count == 0);
  if (result == 1) fuzz::require(SdrToFile("/dev/null", &repository) == 1);
  freespace(&repository);
}

void sdr_text(const std::string& text) {
  read_sdr("fuzz.sdr", text);
}

void sdr_binary(const std::string& text) {
  read_sdr("fuzz.dat", text);
}

// The comments on the fields of the sample records.
void comments(const std::string& text) {
  fuzz::file("util.dat", text);
  sdr_repository repository{};
  fuzz::require(init_sdr(&repository) == 1);
  fuzz::require(SdrToFile("/dev/null", &repository) == 1);
  freespace(&repository);
  fuzz::file("util.dat", "");
}

bool has_lone_byte(const fru_field* field) {
  while (field != nullptr && field->len != 1) field = field->next.get();
  return field != nullptr;
}

// A record whose image can be built is the same once a device has it. Not so internal use data,
// whose length a device does not tell, and a custom field of one byte, whose type/length byte C1
// is an end mark.
void write_and_read_back(fru_info* fru) {
  uint8_t image[FRU_IMAGE_ROOM];
  unsigned length = 0;
  fru->common_header[FRU_HEADER_FORMAT] = 1;  // only its low half is read back
  const bool lone = has_lone_byte(fru->chassis_custom.get()) ||
                    has_lone_byte(fru->board_custom.get()) ||
                    has_lone_byte(fru->product_custom.get());
  if (build_fru_image(fru, image, &length) != 1 || fru->internal_len != 0 || lone) return;
  const sim::Bytes built(image, image + length);
  fuzz::start(sim::Kind::plain);
  sim::machine().bmc.fru.devices = {{uint8_t{0}, sim::fru_device({}, length)}};
  fuzz::require(WriteToFRU(image, length, 0) == 1);
  fru_dev read;
  init_fru_dev(&read);
  fuzz::require(get_fru_dev(&read) == 1);
  fuzz::require(build_fru_image(&read.records[0], image, &length) == 1);
  fuzz::require(built == sim::Bytes(image, image + length));
  destroy_fru_dev(&read);
}

void fru_text(const std::string& text) {
  fru_dev dev;
  if (FileToFru(fuzz::file("fuzz.fru", text), &dev) == 1) {
    fuzz::require(FruToFile("/dev/null", &dev) == 1);
    for (unsigned i = 0; i < fru_count(dev); i++) write_and_read_back(&dev.records[i]);
  }
  destroy_fru_dev(&dev);
}

void script(const std::string& text) {
  process_cfg(fuzz::file("fuzz.cfg", text));
}

// The list of interfaces has whatever is in their names.
void interfaces(const std::string& text) {
  sim::machine().interfaces = {{text, {0, 1, 2, 3, 4, 5}, {192, 0, 2, 1}}};
  char address[16];
  getIpfromMAC("00:01:02:03:04:05", address);
  char name[64];
  const char* position = get_name(name, text.c_str());
  fuzz::require(position >= text.c_str() && position <= text.c_str() + text.size() + 1);
}

// The second byte is the room of the cleaned line.
void line(const std::string& text) {
  const size_t room = text.empty() ? 0 : static_cast<uint8_t>(text[0]);
  std::string cleaned(room, '?');
  process_string(text.c_str(), cleaned.data(), room);
  start_with(text.c_str(), "_SDR");
  uint8_t content[CONTENT_SIZE];
  fuzz::require(get_content(text.c_str(), content) <= CONTENT_SIZE);
}

void (*const READERS[])(const std::string&) = {sdr_text, sdr_binary, fru_text, script,
                                               comments, interfaces, line};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string input(bytes, bytes + size);
  const size_t reader = fuzz::take(&input) % std::size(READERS);
  fuzz::start(sim::Kind::card);
  READERS[reader](input);
  return 0;
}

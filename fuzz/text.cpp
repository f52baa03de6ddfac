// Fuzz target: every text and table that qarn reads from a file. The first byte chooses the reader.
#include <algorithm>

#include "frontend/actions.h"
#include "fru/exact.h"
#include "fuzz/fuzz.h"
#include "lan/lan.h"
#include "sdr/sdr.h"
#include "textfile/cfg.h"
#include "textfile/quoted.h"

namespace {

// A record whose image can be built must be the same when it is read back from a device. Left out
// are internal use data, whose length cannot be read from a device, and custom fields of one byte,
// whose type/length byte C1 is also the end mark.
void write_and_read_back(fru_info* fru) {
  uint8_t room[FRU_IMAGE_ROOM];
  fru->common_header[FRU_HEADER_FORMAT] = 1;  // only its low half is read back
  const auto image = build_fru_image(fru, room);
  if (image.empty() || fru->internal_len != 0) return;
  for (const auto* fields : {&fru->chassis_custom, &fru->board_custom, &fru->product_custom}) {
    for (const fru_field* field = fields->get(); field != nullptr; field = field->next.get()) {
      if (field->len == 1) return;
    }
  }
  sim::machine().bmc.fru.devices = {{uint8_t{0}, sim::fru_device({}, image.size())}};
  fru_dev dev;
  init_fru_dev(&dev);
  fuzz::require(WriteToFRU(image, 0) == 1 && get_fru_dev(&dev) == 1);
  uint8_t again[FRU_IMAGE_ROOM];
  fuzz::require(std::ranges::equal(build_fru_image(&dev.records[0], again), image));
  destroy_fru_dev(&dev);
}

bool same_record(const sdr_entry& one, const sdr_entry& other) {
  return header_of(one) == header_of(other) && std::ranges::equal(body_of(one), body_of(other));
}

// The records of any text are the same when their exact text is read.
void dump_records_exactly(const char* path) {
  sdr_repository read{};
  sdr_repository again{};
  if (FileToSdr(path, &read) != 1) return;
  exactFlag = 1;
  fuzz::require(SdrToFile("exact.sdr", &read) == 1 && FileToSdr("exact.sdr", &again) == 1);
  exactFlag = 0;
  fuzz::require(std::ranges::equal(entries_of(read), entries_of(again), same_record));
}

// What is read from exact text can be written to a device that has room, read back, and dumped as
// text that gives the same; an internal use area, whose end is nowhere, may have grown.
void write_and_read_exactly(fru_exact_dev* given) {
  for (fru_exact& fru : records_of(*given)) {
    sim::machine().bmc.fru.devices[fru.id] = sim::fru_device({}, 0xFFFF);
    for (unsigned part = 0; part < FRU_PARTS; part++) {
      // An area whose bytes are not given stays as it is: here it is none.
      if (fru.parts[part].length == 0) fru.header[part + 1] = 0;
    }
  }
  if (given->count != 1 || given->records[0].id != 0 || write_fru_exact(given) != 1) return;
  fru_exact_dev read;
  fru_exact_dev again;
  fuzz::require(read_fru_exact(&read) == 1);
  fuzz::require(FruToExactFile("exact.fru", &read) == 1);
  fuzz::require(ExactFileToFru("exact.fru", &again) == 1);
  for (unsigned part = 0; part < FRU_PARTS; part++) {
    const auto one = bytes_of(given->records[0].parts[part]);
    const auto two = bytes_of(read.records[0].parts[part]);
    fuzz::require(two.size() >= one.size() && std::ranges::equal(one, two.first(one.size())));
    fuzz::require(std::ranges::equal(two, bytes_of(again.records[0].parts[part])));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  std::string text = fuzz::start(bytes, size);
  const unsigned reader = fuzz::take(&text) % 8;
  resetFlag = 0;
  fuzz::file("util.dat", reader == 4 ? text : "");  // comments on the fields of sensor records
  if (reader == 0) sdrUpdate(fuzz::file("fuzz.sdr", text));
  if (reader == 1) sdrUpdate(fuzz::file("fuzz.dat", text));
  fru_dev dev;
  init_fru_dev(&dev);
  if (reader == 2) FileToFru(fuzz::file("fuzz.fru", text), &dev);
  for (unsigned i = 0; i < fru_count(dev); i++) write_and_read_back(&dev.records[i]);
  FruToFile("/dev/null", &dev);
  destroy_fru_dev(&dev);
  if (reader == 3) process_cfg(fuzz::file("fuzz.cfg", text));
  if (reader < 2 || reader == 4) sdrDump("/dev/null");
  // Any bytes may stand in the list of interfaces, as a name.
  sim::machine().interfaces = {{text, {0, 1, 2, 3, 4, 5}, {192, 0, 2, 1}}};
  fru_exact_dev exact;
  if (reader == 6 && ExactFileToFru(fuzz::file("fuzz.fru", text), &exact) == 1) {
    write_and_read_exactly(&exact);
  }
  if (reader == 7) dump_records_exactly(fuzz::file("fuzz.sdr", text));
  char address[16];
  if (reader == 5) getIpfromMAC("00:01:02:03:04:05", address);
  return 0;
}

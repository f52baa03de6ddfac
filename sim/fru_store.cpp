// FRU inventory devices of the simulated BMC.
#include <algorithm>
#include <cstdio>

#include "sim/bmc.h"

namespace sim {

namespace {

constexpr uint8_t WRITE_PROTECTED = 0x80;

FruDevice* find_device(Bmc& bmc, uint8_t id) {
  const auto found = bmc.fru.devices.find(id);
  return found != bmc.fru.devices.end() ? &found->second : nullptr;
}

size_t offset_of(const Bytes& data) {
  return static_cast<size_t>(data[1] | data[2] << 8);
}

Reply area_info(Bmc& bmc, const Bytes& data) {
  if (data.size() != 1) return {INVALID_LENGTH, {}};
  const FruDevice* device = find_device(bmc, data[0]);
  if (device == nullptr) return {NOT_PRESENT, {}};
  const size_t size = device->claimed_size >= 0 ? static_cast<size_t>(device->claimed_size)
                                                : std::min<size_t>(device->contents.size(), 0xFFFF);
  return {COMPLETED, {static_cast<uint8_t>(size), static_cast<uint8_t>(size >> 8), 0}};
}

// Returns no bytes after the end of the contents, or refuses to; an offset after it is refused.
Reply read_answer(Bmc& bmc, const Bytes& data) {
  if (data.size() != 4) return {INVALID_LENGTH, {}};
  const FruDevice* device = find_device(bmc, data[0]);
  if (device == nullptr) return {NOT_PRESENT, {}};
  if (device->refusal != 0) return {device->refusal, {}};
  const size_t offset = offset_of(data);
  const size_t last = device->reads_past_end ? offset + 1 : offset + data[3];
  if (last > device->contents.size()) return {PARAMETER_OUT_OF_RANGE, {}};
  size_t count = std::min<size_t>(data[3], device->contents.size() - offset);
  if (device->answer_limit > 0) count = std::min<size_t>(count, device->answer_limit);
  Reply reply{COMPLETED, {static_cast<uint8_t>(count)}};
  const auto from = device->contents.begin() + static_cast<ptrdiff_t>(offset);
  reply.data.insert(reply.data.end(), from, from + static_cast<ptrdiff_t>(count));
  return reply;
}

Reply write_data(Bmc& bmc, const Bytes& data) {
  if (data.size() < 4) return {INVALID_LENGTH, {}};
  FruDevice* device = find_device(bmc, data[0]);
  if (device == nullptr) return {NOT_PRESENT, {}};
  if (device->refusal != 0) return {device->refusal, {}};
  const size_t offset = offset_of(data);
  const size_t count = data.size() - 3;
  if (offset + count > device->contents.size()) return {PARAMETER_OUT_OF_RANGE, {}};
  const bool guarded =
      device->protected_from >= 0 && offset + count > static_cast<size_t>(device->protected_from);
  if (guarded) return {WRITE_PROTECTED, {}};
  std::copy(data.begin() + 3, data.end(),
            device->contents.begin() + static_cast<ptrdiff_t>(offset));
  return {COMPLETED, {static_cast<uint8_t>(count)}};
}

constexpr Command COMMANDS[] = {
    {NETFN_STORAGE, GET_FRU_AREA_INFO, area_info},
    {NETFN_STORAGE, READ_FRU_DATA, read_answer},
    {NETFN_STORAGE, WRITE_FRU_DATA, write_data},
};

}  // namespace

Bytes example_fru_image() {
  return {
      0x01, 0x00, 0x01, 0x03, 0x08, 0x0D, 0x00, 0xE6,                        // header
      0x01, 0x02, 0x17, 0xC4, 'C',  'P',  '-',  '1',                         // chassis
      0xC5, 'C',  'S',  '1',  '2',  '3',  0xC1, 0x7F,                        //
      0x01, 0x05, 0x00, 0x80, 0x1A, 0x9B, 0xC5, 'M',  'a',  'k',  'e', 'r',  // board
      0xC5, 'B',  'o',  'a',  'r',  'd',  0xC5, 'B',  '0',  '0',  '0', '1',  //
      0xC5, 'P',  '-',  '1',  '0',  '0',  0xC0, 0xC1, 0,    0,    0,   0,    //
      0,    0,    0,    0x47,                                                //
      0x01, 0x05, 0x00, 0xC5, 'M',  'a',  'k',  'e',  'r',  0xC6, 'S', 'e',  // product
      'r',  'v',  'e',  'r',  0xC3, 'S',  '-',  '1',  0xC3, '1',  '.', '0',  //
      0xC5, 'X',  '0',  '0',  '0',  '1',  0xC0, 0xC0, 0xC1, 0,    0,   0,    //
      0,    0,    0,    0x23,                                                //
      0xC0, 0x82, 0x03, 0xA0, 0x1B, 0x10, 0x20, 0x30,                        // multi-record
  };
}

FruDevice fru_device(const Bytes& image, size_t size) {
  FruDevice device;
  device.contents = image;
  device.contents.resize(size);
  return device;
}

std::span<const Command> fru_commands() {
  return COMMANDS;
}

void store(const FruStore& from, State& state) {
  for (const auto& [id, device] : from.devices) {
    char name[16];
    std::snprintf(name, sizeof name, "fru.%02X", id);
    state[name] = device.contents;
  }
}

// Removes the devices that the state does not name; what else is set for the others stays.
void restore(FruStore& to, const State& state) {
  std::map<uint8_t, FruDevice> devices;
  for (const auto& [name, contents] : state) {
    unsigned id = 0;
    if (name.size() != 6 || std::sscanf(name.c_str(), "fru.%2X", &id) != 1) continue;
    FruDevice& device = devices[static_cast<uint8_t>(id)];
    device = to.devices[static_cast<uint8_t>(id)];
    device.contents = contents;
  }
  if (!devices.empty()) to.devices = std::move(devices);
}

}  // namespace sim

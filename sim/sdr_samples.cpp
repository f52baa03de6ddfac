// The records that the simulated BMC's SDR repository starts with.
#include <string>

#include "sim/bmc.h"

namespace sim {

namespace {

enum Type : uint8_t {
  FULL = 0x01,
  COMPACT = 0x02,
  EVENT_ONLY = 0x03,
  GENERIC_DEVICE = 0x10,
  FRU_DEVICE = 0x11,
  CONTROLLER = 0x12,
  OEM = 0xC0,
};
constexpr uint8_t VERSION = 0x51;
constexpr uint8_t BMC_OWNER = 0x20;
constexpr uint8_t ASCII = 0xC0;  // type of an ID string; its length is in the low 5 bits
constexpr uint8_t THRESHOLDS = 0x01;
constexpr uint8_t SENSOR_SPECIFIC = 0x6F;

// The values in which the board's analog sensors differ. A reading is (M x raw) x 10^R.
struct Analog {
  const char* name;
  uint8_t number, entity, instance;
  uint8_t type;  // IPMI v2.0 table 42-3
  uint8_t unit;  // table 43-15
  uint8_t m;
  uint8_t exponents;  // R in bits 7..4, B in bits 3..0
  uint8_t nominal;    // raw, as all that follow
  uint8_t upper[3];   // non-recoverable, critical, non-critical
  uint8_t lower[3];   // the same
};
const Analog ANALOG[] = {
    {"CPU Temp", 0x01, 0x03, 1, 0x01, 0x01, 1, 0x00, 45, {100, 95, 85}, {0, 0, 0}},
    {"Ambient Temp", 0x02, 0x07, 1, 0x01, 0x01, 1, 0x00, 25, {70, 60, 50}, {0, 5, 10}},
    {"+3.3V", 0x03, 0x07, 1, 0x02, 0x04, 17, 0xD0, 194, {220, 213, 207}, {165, 175, 181}},
    {"+12V", 0x04, 0x07, 1, 0x02, 0x04, 63, 0xD0, 190, {216, 209, 203}, {159, 171, 178}},
    {"CPU Fan", 0x05, 0x1D, 1, 0x04, 0x12, 60, 0x00, 60, {255, 255, 255}, {5, 8, 12}},
};

// The values in which the discrete sensors differ.
struct Discrete {
  const char* name;
  uint8_t number, entity, instance;
  uint8_t type;
  uint16_t states;  // that can be asserted and read
};
const Discrete DISCRETE[] = {
    {"Watchdog", 0x10, 0x06, 1, 0x23, 0x000F},
    {"Chassis Intru", 0x11, 0x17, 1, 0x05, 0x0001},
};

Bytes with_name(Bytes body, const std::string& name) {
  body.push_back(static_cast<uint8_t>(ASCII | name.size()));
  body.insert(body.end(), name.begin(), name.end());
  return body;
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes full_sensor(const Analog& of) {
  const auto& [unr, ucr, unc] = of.upper;
  const auto& [lnr, lcr, lnc] = of.lower;
  const Bytes head = {BMC_OWNER, 0,    of.number, of.entity, of.instance,
                      0x7F,      0x68, of.type,   THRESHOLDS};
  const Bytes events_and_thresholds = {0x95, 0x7A, 0x95, 0x7A, 0x3F, 0x3F};
  const Bytes units = {0, of.unit, 0, 0};
  const Bytes conversion = {of.m, 0, 0, 0, 0, of.exponents};
  const Bytes ranges = {0x01, of.nominal, unc, lnc, 0xFF, 0};
  const Bytes limits = {unr, ucr, unc, lnr, lcr, lnc, 2, 2, 0, 0, 0};
  return with_name(joined({head, events_and_thresholds, units, conversion, ranges, limits}),
                   of.name);
}

Bytes compact_sensor(const Discrete& of) {
  const uint8_t low = static_cast<uint8_t>(of.states);
  const uint8_t high = static_cast<uint8_t>(of.states >> 8);
  const Bytes head = {BMC_OWNER, 0,    of.number, of.entity,      of.instance,
                      0x63,      0x40, of.type,   SENSOR_SPECIFIC};
  const Bytes states = {low, high, low, high, low, high};
  const Bytes units_and_sharing = {0xC0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
  return with_name(joined({head, states, units_and_sharing}), of.name);
}

}  // namespace

SdrRecords sample_sdr_records() {
  SdrRecords records;
  const auto add = [&](uint8_t type, const Bytes& body) {
    const uint16_t id = static_cast<uint16_t>(records.size() + 1);
    const Bytes header = {static_cast<uint8_t>(id), 0, VERSION, type,
                          static_cast<uint8_t>(body.size())};
    records[id] = joined({header, body});
  };
  add(CONTROLLER, with_name({0x20, 0, 0, 0x9F, 0, 0, 0, 0x06, 1, 0}, "BMC"));
  for (const Analog& sensor : ANALOG) add(FULL, full_sensor(sensor));
  for (const Discrete& sensor : DISCRETE) add(COMPACT, compact_sensor(sensor));
  const Bytes event = {BMC_OWNER, 0, 0x20, 0x07, 1, 0x12, SENSOR_SPECIFIC, 1, 0, 0, 0};
  add(EVENT_ONLY, with_name(event, "System Event"));
  add(GENERIC_DEVICE, with_name({0x20, 0xA0, 0, 0, 0, 0x08, 0, 0x20, 1, 0}, "DIMM A1 SPD"));
  add(FRU_DEVICE, with_name({0x20, 0, 0x80, 0, 0, 0x10, 0, 0x07, 1, 0}, "Board FRU"));
  add(OEM, {0x57, 0x01, 0x00, 1, 2, 3, 4, 5});
  return records;
}

}  // namespace sim

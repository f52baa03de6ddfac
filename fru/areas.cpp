// Parsers of the bytes of one FRU area: nothing is read past its end.
#include <utility>

#include "base/memory.h"
#include "fru/layout.h"

namespace {

int give_up(fru_fault* fault, unsigned position, const char* reason) {
  fault->position = position;
  fault->reason = reason;
  return 0;
}

// The bytes of an area, and how far they have been read.
struct Cursor {
  const uint8_t* bytes;
  unsigned end;
  unsigned position;
};

// The text behind the type/length byte at the cursor, and its length.
int take_text(Cursor* cursor, std::unique_ptr<char[]>* text, unsigned* length, fru_fault* fault) {
  const unsigned at = cursor->position;
  if (at >= cursor->end) return give_up(fault, at, "the section ends before its fields do");
  *length = cursor->bytes[at] & FRU_TEXT_LENGTH;
  if (*length > cursor->end - at - 1) {
    return give_up(fault, at, "a field is longer than what is left of the section");
  }
  *text = make_text(cursor->bytes + at + 1, *length);
  if (!*text) return give_up(fault, at, "out of memory");
  cursor->position = at + 1 + *length;
  return 1;
}

int take_custom_fields(const fru_layout& layout, Cursor* cursor, fru_info* fru, fru_fault* fault) {
  std::unique_ptr<fru_field>* tail = &(fru->*layout.custom);
  *tail = nullptr;
  fru->*layout.custom_count = 0;
  while (cursor->position < cursor->end) {
    const unsigned at = cursor->position;
    if (cursor->bytes[at] == FRU_END_MARK) return 1;
    *tail = make_node<fru_field>();
    if (!*tail) return give_up(fault, at, "out of memory");
    unsigned length = 0;
    if (take_text(cursor, &(*tail)->data, &length, fault) != 1) {
      *tail = nullptr;
      return 0;
    }
    (*tail)->len = static_cast<int32_t>(length);
    (fru->*layout.custom_count)++;
    tail = &(*tail)->next;
  }
  return give_up(fault, cursor->position, "the section has no end mark C1");
}

// Parses one area as its layout has it.
int parse_area(const fru_layout& layout, const uint8_t* area, unsigned count, unsigned end,
               fru_info* fru, fru_fault* fault) {
  if (count > FRU_AREA_LENGTH && area[FRU_AREA_LENGTH] == 0) return 1;
  if (end < layout.fixed) return give_up(fault, end, "the section ends before its fields do");
  fru->*layout.format = area[FRU_AREA_FORMAT] & FRU_FORMAT_MASK;
  fru->*layout.length = area[FRU_AREA_LENGTH];
  fru->*layout.code = area[FRU_AREA_CODE];
  if (layout.date != nullptr) std::memcpy(fru->*layout.date, area + FRU_AREA_DATE, FRU_DATE_SIZE);

  Cursor cursor{area, end, layout.fixed};
  for (unsigned i = 0; i < layout.text_count; i++) {
    unsigned length = 0;
    if (take_text(&cursor, &(fru->*layout.texts[i]), &length, fault) != 1) return 0;
  }
  if (take_custom_fields(layout, &cursor, fru, fault) != 1) return 0;
  const unsigned last = area[FRU_AREA_LENGTH] * FRU_UNIT - 1;
  fru->*layout.checksum = last < count ? area[last] : uint8_t{0};
  return 1;
}

}  // namespace

int GetChassis(const uint8_t* area, unsigned count, unsigned end, fru_info* fru, fru_fault* fault) {
  return parse_area(FRU_AREAS[CHASSIS_AREA], area, count, end, fru, fault);
}

int GetBoard(const uint8_t* area, unsigned count, unsigned end, fru_info* fru, fru_fault* fault) {
  return parse_area(FRU_AREAS[BOARD_AREA], area, count, end, fru, fault);
}

int GetProduct(const uint8_t* area, unsigned count, unsigned end, fru_info* fru, fru_fault* fault) {
  return parse_area(FRU_AREAS[PRODUCT_AREA], area, count, end, fru, fault);
}

std::unique_ptr<fru_multirecord> make_multirecord(const uint8_t* record) {
  std::unique_ptr<fru_multirecord> node = make_node<fru_multirecord>();
  if (!node) return nullptr;
  node->type_id = record[0];
  node->format = record[1] & FRU_FORMAT_MASK;
  node->length = record[2];
  node->record_checksum = record[3];
  node->header_checksum = record[4];
  node->data_size = node->length;
  node->data = make_owned<uint8_t>(record[2]);
  if (!node->data) return nullptr;
  std::memcpy(node->data.get(), record + FRU_RECORD_HEADER, record[2]);
  return node;
}

int GetMultirecord(const uint8_t* area, unsigned count, fru_info* fru, fru_fault* fault) {
  if (count == 0 || area[0] == 0) return 1;
  std::unique_ptr<fru_multirecord>* tail = &fru->multirecords;
  fru->multirecord_count = 0;
  for (unsigned position = 0; position < count;) {
    const uint8_t* record = area + position;
    const unsigned left = count - position;
    if (left < FRU_RECORD_HEADER || left - FRU_RECORD_HEADER < record[2]) {
      return give_up(fault, position, "a record is longer than what is left of the section");
    }
    *tail = make_multirecord(record);
    if (!*tail) return give_up(fault, position, "out of memory");
    fru->multirecord_count++;
    if ((record[1] & FRU_LAST_RECORD) != 0) return 1;
    tail = &(*tail)->next;
    position += FRU_RECORD_HEADER + record[2];
  }
  return give_up(fault, count, "no record has the end-of-list bit 80");
}

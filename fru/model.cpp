// The FRU model: made, and released however far it got.
#include <utility>

#include "fru/layout.h"

namespace {

// Node by node: a list may have thousands, too many to release one inside the other.
template <typename Node>
void release(std::unique_ptr<Node>* head) {
  while (*head) *head = std::move((*head)->next);
}

}  // namespace

void init_fru_dev(fru_dev* dev) {
  if (dev == nullptr) return;
  dev->records = nullptr;
  dev->count = 0;
}

int destroy_fru_dev(fru_dev* dev) {
  if (dev == nullptr) return 0;
  for (unsigned i = 0; i < fru_count(*dev); i++) destroy_fru_info(&dev->records[i]);
  init_fru_dev(dev);
  return 1;
}

void init_fru_info(fru_info* fru) {
  *fru = fru_info();
}

int destroy_fru_info(fru_info* fru) {
  fru->title = nullptr;
  fru->internal_data = nullptr;
  fru->internal_len = 0;
  for (const fru_layout& layout : FRU_AREAS) {
    for (unsigned i = 0; i < layout.text_count; i++) fru->*layout.texts[i] = nullptr;
    release(&(fru->*layout.custom));
    fru->*layout.custom_count = 0;
  }
  release(&fru->multirecords);
  fru->multirecord_count = 0;
  return 1;
}

uint8_t GetChecksum(const uint8_t* bytes, unsigned count) {
  unsigned sum = 0;
  for (unsigned i = 0; i < count; i++) sum += bytes[i];
  return static_cast<uint8_t>(0 - sum);
}

// The model: it is made here, and released, also when it was filled only in part.
#include <utility>

#include "fru/layout.h"

namespace {

// One after the other: a list may have thousands, and a recursion would be too deep.
template <typename Node>
void release_list(std::unique_ptr<Node>* head) {
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
    for (const fru_text text : layout.texts) fru->*text = nullptr;
    release_list(&(fru->*layout.custom));
    fru->*layout.custom_count = 0;
  }
  release_list(&fru->multirecords);
  fru->multirecord_count = 0;
  return 1;
}

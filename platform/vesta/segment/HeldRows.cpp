#include "vesta/segment/HeldRows.h"

#include <algorithm>

namespace Vesta {

HeldRows::HeldRows(const Layout& layout)
    : keyWords_(layout.keyWords),
      slots_(layout.shape.capacity),
      keys_(std::size_t{layout.shape.capacity} * layout.keyWords) {}

void HeldRows::rowIs(std::uint32_t slot, const Word* key, Word hash, Word sequence) {
  slots_[slot] = {hash | kOccupied, sequence};
  std::copy_n(key, keyWords_, &keys_[slot * std::size_t{keyWords_}]);
}

std::vector<HeldRows::Row> HeldRows::rows() const {
  std::vector<Row> rows;
  for (std::uint32_t slot = 0; slot < capacity(); ++slot) {
    if (!occupied(slot)) continue;
    const Word* const key = &keys_[slot * std::size_t{keyWords_}];
    rows.emplace_back(EncodedKey(key, key + keyWords_), slots_[slot].sequence);
  }
  return rows;
}

}  // namespace Vesta

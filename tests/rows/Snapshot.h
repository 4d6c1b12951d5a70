#pragma once

#include <vector>

#include "rows/BaseRow.h"

namespace Lumen {

/// A row's bytes, where they stand, and its handle's fields.
struct Snapshot {
  explicit Snapshot(const BaseRow& row)
      : contentOffset(row.contentOffset()), sharedContents(row.sharedContents()), readOnly(row.readOnly()) {
    if (row.isNull()) return;
    place = row.bytes().data;
    bytes.assign(place, place + row.bytes().available);
  }
  friend bool operator==(const Snapshot&, const Snapshot&) = default;

  const std::byte* place = nullptr;
  std::vector<std::byte> bytes;
  len_t contentOffset;
  bool sharedContents;
  bool readOnly;
};

}  // namespace Lumen

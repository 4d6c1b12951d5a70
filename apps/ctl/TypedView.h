#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "cairn/Exception.h"
#include "vesta/EncodedRow.h"
#include "vesta/SegmentView.h"

namespace Ctl {

/// The rows of one segment.
template <class Key, class EntryT>
class TypedView {
 public:
  TypedView(const std::string& folder, const std::string& path, unsigned capacity)
      : view_(Vesta::RootPath(folder, path, "table"), Vesta::shapeOf<Key, EntryT>(capacity)) {}

  Vesta::SegmentView& segment() noexcept { return view_; }
  const Vesta::SegmentView& segment() const noexcept { return view_; }

  /// Calls `visit(entry)` for each intact row. What is wrong with others goes to `damage`.
  template <class Visit>
  void each(std::vector<std::string>& damage, const Visit& visit) {
    Vesta::RowReads* const reads = patientReads();
    if (reads == nullptr) return;
    EntryT entry{};
    for (std::uint32_t slot = 0; slot < view_.layout().shape.capacity; ++slot) {
      try {
        if (!Vesta::isOccupied(reads->readSlot(row_.kSizes, slot, row_.words()))) continue;
      } catch (const Cairn::Exception& problem) {
        damage.push_back(problem.message());
        continue;
      }
      row_.decodeEntry(entry);
      visit(entry);
    }
  }

  /// Throws Cairn::CorruptionDetectedException where index or row are damaged, and UnsettledException.
  std::optional<EntryT> find(const Key& key) {
    Vesta::RowReads* const reads = patientReads();
    std::uint32_t slot = 0;
    Vesta::EncodedRow<Key, EntryT> sought;
    sought.encodeKey(key);
    if (reads == nullptr || !reads->lookup(row_.kSizes, sought.key(), row_.words(), slot)) return {};
    EntryT entry{};
    row_.decodeEntry(entry);
    return entry;
  }

 private:
  /// A writer that keeps changing one row must not hold a walk up for long.
  Vesta::RowReads* patientReads() {
    constexpr std::chrono::milliseconds kPatience{200};
    if (view_.reads() != nullptr) view_.reads()->yieldTimeIs(kPatience);
    return view_.reads();
  }

  Vesta::SegmentView view_;
  Vesta::EncodedRow<Key, EntryT> row_;
};

}  // namespace Ctl

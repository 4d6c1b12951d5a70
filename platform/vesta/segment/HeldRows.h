#pragma once

#include <utility>
#include <vector>

#include "vesta/segment/Layout.h"

namespace Vesta {

/// The rows that the writer has put into the slots or found there when it attached, whatever the segment says
/// since: damaged words may look like another key's row, or like none.
class HeldRows {
 public:
  using Row = std::pair<EncodedKey, Word>;  ///< key, sequence of the last change

  explicit HeldRows(const Layout& layout);

  bool occupied(std::uint32_t slot) const { return slots_[slot].hash != 0; }
  /// Whether there is a row whose key has this hash.
  bool hasHash(std::uint32_t slot, Word hash) const { return slots_[slot].hash == (hash | kOccupied); }
  /// Of an occupied slot; good for its cell and tag.
  Word hash(std::uint32_t slot) const { return slots_[slot].hash; }
  bool sameHash(std::uint32_t a, std::uint32_t b) const { return slots_[a].hash == slots_[b].hash; }

  void rowIs(std::uint32_t slot, const Word* key, Word hash, Word sequence);
  void sequenceIs(std::uint32_t slot, Word sequence) { slots_[slot].sequence = sequence; }
  void rowDel(std::uint32_t slot) { slots_[slot].hash = 0; }

  std::uint32_t capacity() const { return static_cast<std::uint32_t>(slots_.size()); }
  std::vector<Row> rows() const;

 private:
  // A bit that is neither of a hash's cell nor of its tag.
  static constexpr Word kOccupied = Word{1} << 40;
  struct Slot {
    Word hash = 0;  // with kOccupied; 0 for no row
    Word sequence = 0;
  };
  std::uint32_t keyWords_;
  std::vector<Slot> slots_;
  std::vector<Word> keys_;  // by slot
};

}  // namespace Vesta

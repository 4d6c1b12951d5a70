#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "apps/core/BeforeImages.h"
#include "apps/core/ConfigTable.h"
#include "apps/core/FlatIndex.h"

namespace Agent {

struct Batch;
struct Operation;

/// An entry that an undecided update holds. Later updates of the entry wait in a list of their own, in order.
struct HeldEntry {
  enum class State : std::uint8_t {
    untouched,    ///< `holder` has written nothing
    writing,      ///< its update is written, the hardware's answer outstanding
    written,      ///< the hardware has answered with success; the batch is undecided
    late,         ///< as writing, but the update has its result: success commits it, failure undoes it
    doomed,       ///< as late, but any answer leads to the undo
    undoing,      ///< the undo is written, the hardware's answer outstanding
    outstanding,  ///< an earlier process wrote the row and the hardware has not answered; nothing to undo
  };

  ConfigTable* table = nullptr;  ///< not owned
  std::uint32_t hash = 0;
  State state = State::untouched;
  bool removed = false;       ///< the table has no row of it because of its update
  bool roomReserved = false;  ///< it counts as a used row of the table beside the rows that are there
  bool repeated = false;      ///< its undo is the second attempt
  bool settled = false;       ///< nothing is to be done for it, but `undecided` is not decided yet
  bool lacksRoom = false;     ///< its undo waits for that of an insertion which has taken its room
  bool present = false;       ///< there was a row before that update
  Lumen::BaseRow row;         ///< of the update that holds the entry; its key is the entry's
  /// The row before that update; a null row if there was none, and while `image` has it.
  Lumen::BaseRow before;
  BeforeImages::Place image = BeforeImages::kNone;
  std::uint64_t handleBefore = 0;  ///< of the row before, likewise
  std::uint64_t genIdBefore = 0;
  std::uint64_t entryHandle = 0;      ///< of the row that its update or undo wrote or removed
  std::uint64_t genId = 0;            ///< of the row that was written
  std::uint64_t handle = 0;           ///< under which an answer is outstanding; 0 for none
  std::uint64_t writtenAt = 0;        ///< Braid::ticks() of the write whose answer is outstanding
  Batch* undecided = nullptr;         ///< that of the update, if it continues on error; until it is decided
  Operation* holder = nullptr;        ///< not owned; null once it has its result
  Operation* firstWaiting = nullptr;  ///< not owned
  Operation* lastWaiting = nullptr;   ///< not owned

  /// The table is not as before: readers are shown `before`.
  bool isChanged() const noexcept { return state != State::untouched && state != State::outstanding; }
  Operation* last() const noexcept { return lastWaiting != nullptr ? lastWaiting : holder; }
};

/// The held entries, by key and by the handle of an outstanding answer. Places of entries are used again, so
/// that nothing is allocated once as many have been held. Pointers stay valid until del().
class HeldEntries {
 public:
  std::size_t size() const noexcept { return byKey_.size(); }
  /// How many are late, doomed or outstanding, or wait for the answer to an undo.
  std::size_t overdue() const noexcept;

  /// Null when nobody holds the entry with the key of `row`.
  HeldEntry* find(const ConfigTable& table, std::uint32_t hash, const Lumen::BaseRow& row);
  /// Null when no answer is outstanding under the handle.
  HeldEntry* find(std::uint64_t handle);
  /// Holds the entry with the key of `row`, which nobody holds. Throws std::bad_alloc.
  HeldEntry& add(ConfigTable& table, std::uint32_t hash, Lumen::BaseRow row);
  void del(HeldEntry& entry) noexcept;

  /// From now on an answer is outstanding under `handle`, not 0, instead of under any other.
  void handleIs(HeldEntry& entry, std::uint64_t handle);
  void handleDel(HeldEntry& entry) noexcept;

  // A large batch's entries do not fit the cache. These bring near what a later call will read; to be called
  // for the update kAhead further on, in this order.
  static constexpr std::size_t kAhead = 6;
  void prefetchKey(std::uint32_t hash) const noexcept { byKey_.prefetch(hash); }
  void prefetchHandle(std::uint64_t handle) const noexcept { byHandle_.prefetch(hashOf(handle)); }
  void prefetchEntry(std::uint64_t handle) const noexcept;
  static void prefetch(const Lumen::BaseRow& row) {
    if (!row.isNull()) __builtin_prefetch(row.bytes().data);
  }
  static void prefetch(const HeldEntry& entry) noexcept {
    const char* const bytes = reinterpret_cast<const char*>(&entry);
    for (std::size_t at = 0; at < sizeof entry; at += kCacheLine) __builtin_prefetch(bytes + at, 1);
  }

  /// Calls `visit(entry)` for each; it may delete that one.
  template <class Visit>
  void forEach(const Visit& visit) {
    for (std::uint32_t place = 0; place < count_; ++place) {
      if (HeldEntry& entry = at(place); entry.table != nullptr) visit(entry);
    }
  }

 private:
  static std::uint32_t hashOf(std::uint64_t handle) noexcept {
    return static_cast<std::uint32_t>((handle ^ handle >> 32) * 0x9e3779b1u);
  }

  static constexpr std::size_t kCacheLine = 64;
  static constexpr std::uint32_t kChunk = 256;

  struct alignas(kCacheLine) Placed : HeldEntry {
    std::uint32_t place = 0;
  };
  Placed& at(std::uint32_t place) const noexcept { return chunks_[place / kChunk][place % kChunk]; }
  void grow();

  std::vector<std::unique_ptr<Placed[]>> chunks_;
  std::uint32_t count_ = 0;  // of all chunks; entries without a table are free
  std::vector<std::uint32_t> free_;
  FlatIndex byKey_;
  FlatIndex byHandle_;
};

}  // namespace Agent

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "apps/core/ConfigTable.h"
#include "quill/HashMap2018.h"

namespace Agent {

struct Operation;

/// The key of one entry: those of the columns of `row` that belong to it.
struct EntryKey {
  ConfigTable* table;  ///< not owned
  Lumen::BaseRow row;
  bool operator==(const EntryKey& other) const {
    return table == other.table && table->keyEquals(row, other.row);
  }
};

/// An entry with an update in flight: written to its table, its answer from the hardware outstanding.
struct EntryInFlight {
  enum class State : std::uint8_t {
    awaited,  ///< `operation` waits for the answer
    overdue,  ///< no operation does: it ran out of time, or was an earlier process's
  };

  State state;
  Operation* operation;             ///< not owned; valid while awaited
  std::uint64_t genId;              ///< of the row written, while awaited
  std::optional<EntryKey> removal;  ///< set when the update in flight removes the entry
  std::vector<Operation*> waiting;  ///< not owned; the entry's further updates, in order
};

/// The entries in flight, by their handles. Those whose removal is in flight are in no table any more and
/// are found by their keys as well. Once the collection has held as many entries, adding one allocates
/// nothing.
class EntriesInFlight {
 public:
  using Handle = std::uint64_t;

  std::size_t size() const noexcept { return byHandle_.size(); }
  /// How many of them are overdue.
  std::size_t overdue() const noexcept { return overdue_; }

  /// Null when the entry has nothing in flight. Valid until the next addition.
  EntryInFlight* find(Handle handle) { return byHandle_.find(handle); }
  /// The handle of the entry with the key of `row` if its removal is in flight.
  std::optional<Handle> removed(const EntryKey& key) const;

  /// Adds an entry whose `operation` writes a row with `genId`. Strong exception guarantee, as the next two.
  void add(Handle handle, Operation& operation, std::uint64_t genId);
  /// Adds an entry whose `operation` removes it from its table.
  void addRemoval(Handle handle, Operation& operation, EntryKey key);
  /// Adds an entry whose answer an earlier process was waiting for.
  void addOverdue(Handle handle);
  void overdueIs(EntryInFlight& entry) noexcept;
  /// Takes the entry out and returns what was waiting for it.
  std::vector<Operation*> del(Handle handle);

  /// Calls `visit(handle, entry)` for each; it may take entries out and add others.
  template <class Visit>
  void forEach(const Visit& visit) {
    for (auto at = byHandle_.first(); at.nonNull(); at.next()) visit(Handle(at.key()), at.value());
  }

 private:
  struct Node {
    using Key = Handle;
    using Value = EntryInFlight;
    static std::uint32_t hash(Handle handle) { return static_cast<std::uint32_t>(handle ^ handle >> 32); }
    Key key;
    Value value;
  };
  struct RemovalNode {
    using Key = EntryKey;
    using Value = Handle;
    static std::uint32_t hash(const EntryKey& key) { return key.table->keyHash(key.row); }
    Key key;
    Value value;
  };

  Quill::HashMap2018<Node> byHandle_;
  Quill::HashMap2018<RemovalNode> removals_;
  std::size_t overdue_ = 0;
};

}  // namespace Agent

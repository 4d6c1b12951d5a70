// The pattern of the row tables over config entities: wrapper, row iterator, change iterator and reactor.
// Each table kind has its own four classes of these, in its own namespace, and a `Kind` that names their
// types:
//   Config, Key, Entry, EntryRow                   the entity, its key and entry, the entry's row class
//   RowIterator, ChangeIterator, Reactor, Wrapper  the kind's own classes
#pragma once

#include <functional>
#include <memory>
#include <unordered_map>

#include "P4RuntimeTolmar/ChangeMap.h"
#include "lumen/DefaultLmTableImplementation.h"
#include "lumen/LumenDB.h"
#include "vesta/IterHint.h"

namespace TolmarHwLib {

/// Walks the rows in the collection's own order. Corruption is reported to the collection and ends the walk.
/// Iterators compare by whether they are at a row, not by position: this is what loop ends rely on.
template <class Kind>
class ConfigRowIterator : public Lumen::LmRowIteratorImpl {
 public:
  /// At the end until placed. `config` may be null: an empty table. Rows are handed out read-only unless they
  /// are `modifiable` and the table is not the placeholder of a corrupt one.
  ConfigRowIterator(typename Kind::Config::Ptr config, bool modifiable);
  ConfigRowIterator(const ConfigRowIterator& other);
  ConfigRowIterator& operator=(const ConfigRowIterator&) = delete;

  bool operator==(const Lumen::LmRowIteratorImpl& other) const override;
  bool operator!=(const Lumen::LmRowIteratorImpl& other) const override { return !(*this == other); }
  explicit operator bool() const override { return valid_; }
  Lumen::BaseRow operator*() const override;
  ConfigRowIterator& operator++() override;
  std::unique_ptr<Lumen::LmRowIteratorImpl> clone() const override;

  void placeFirst();
  void placeAt(const typename Kind::Key& key);

 private:
  using Collection = typename Kind::Config::Map;
  template <class Step>
  void step(const Step& place);

  typename Kind::Config::Ptr config_;
  Collection* walked_;    // not owned, null without config
  Collection* reported_;  // the same, to which corruption is reported
  Vesta::IterHint iterHint_;
  typename Collection::Row value_{};
  const typename Collection::Row* current_;
  bool valid_ = false;
  bool modifiable_;
};

template <class Kind>
class ConfigChangeIterator : public Lumen::LmChangeIteratorImpl {
 public:
  using Position = typename ChangeMap<typename Kind::Key>::Position;
  ConfigChangeIterator(Position position, typename Kind::Config::Ptr config, bool modifiable);

  bool operator==(const Lumen::LmChangeIteratorImpl& other) const override;
  bool operator!=(const Lumen::LmChangeIteratorImpl& other) const override { return !(*this == other); }
  std::shared_ptr<Lumen::BasicLmTableChange> operator*() override;
  ConfigChangeIterator& operator++() override;
  std::unique_ptr<Lumen::LmChangeIteratorImpl> clone() const override;

 private:
  Position position_;
  typename Kind::EntryRow scratchRow_{Lumen::BaseRow()};  // null until the first change is read
  typename Kind::Config::Ptr config_;
  bool modifiable_;
};

template <class Kind>
class ConfigTableWrapper;

/// Has the wrapper record every change of the collection. A notification in progress holds a count on its
/// reactor, so the wrapper releases the reactor by its count, and the reactor may outlive the wrapper until
/// the notification returns.
template <class Kind>
class ConfigReactor : public Kind::Config::NotifieeConst {
 public:
  ConfigReactor(typename Kind::Config::Ptr config, ConfigTableWrapper<Kind>& wrapper);

  void onTable(const typename Kind::Key& key) override;
  /// Detaches the reactor from its wrapper, which is about to be destroyed.
  void wrapperDel();

 private:
  void record(const typename Kind::Key& key);

  typename Kind::Config::Ptr config_;
  typename Kind::EntryRow scratchRow_;
  ConfigTableWrapper<Kind>* wrapper_;  // not owned
};

/// A config entity as a table of rows. `config` may be null: readers see an empty table, writes are an
/// assertion failure. Rows are handed out read-only when the wrapper was built without modifiers or the table
/// is the placeholder of a corrupt one; to write such a row back, take its clone(). Errors, checked in this
/// order and before anything else but the pre-write hook: an index other than 0 is an assertion failure, a
/// row without buffer LmNullRow, a row of another type LmBadCast.
template <class Kind>
class ConfigTableWrapper : public Lumen::DefaultLmTableImplementation {
 public:
  using Config = typename Kind::Config;
  using Key = typename Kind::Key;
  using Entry = typename Kind::Entry;
  using EntryRow = typename Kind::EntryRow;

  ConfigTableWrapper(typename Config::Ptr config, std::shared_ptr<Lumen::LumenDB> lumenDb,
                     const Lumen::LmTableOps* tableOps, bool modifierSupported, bool readerSupported,
                     bool observerSupported);
  ~ConfigTableWrapper() override;

  using DefaultLmTableImplementation::rowDel;
  std::size_t size() const override;
  bool readerSupported() const override { return readerSupportedFlag_; }
  bool modifierSupported() const override { return modifierSupportedFlag_; }
  bool observerSupported() const override { return observerSupportedFlag_; }
  /// For a key without an entry, the row of an empty entry.
  Lumen::BaseRow row(const Lumen::BaseRow& keyRow, unsigned idx) override;
  std::unique_ptr<Lumen::LmRowIteratorImpl> begin(unsigned idx) override;
  std::unique_ptr<Lumen::LmRowIteratorImpl> find(const Lumen::BaseRow& keyRow, unsigned idx) override;
  std::unique_ptr<Lumen::LmRowIteratorImpl> end(unsigned idx) override;
  void rowIs(const Lumen::BaseRow& row, bool flag) override;
  void rowDel(const Lumen::BaseRow& keyRow) override;
  void rowDelAll() override;
  std::uint64_t oldestChangeIdx() const override { return oldestChangeIdx_; }
  std::uint64_t latestChangeIdx() const override { return latestChangeIdx_; }
  std::unique_ptr<Lumen::LmChangeIteratorImpl> nextChange(std::uint64_t idx) override;
  std::unique_ptr<Lumen::LmChangeIteratorImpl> endChange() override;

  // New virtual operations, in slot order after those of the base.

  /// Forgets the changes up to and including `idx`.
  virtual void cleanChangeMap(std::uint64_t idx);
  /// Records one change. The index grows by 2; its lowest bit is set for a deletion.
  virtual void quillTableModified(const EntryRow& row, bool deleted, const Key& key);

  /// To be called when a change could not be recorded: forgets all changes, so that users read the rows
  /// again.
  void changeLost();

  static std::uint32_t tableKeyTarotHasher(const Key& key) { return key.hash(); }
  /// The entry under `key`, or an empty one. Corruption is reported to the collection and reads as no entry.
  /// Valid until the next read of the table. `hint`, unless null, is set to the entry's position, so that a
  /// walk can continue from there.
  static const Entry& lookup(Config* config, const Key& key, bool& found, Vesta::IterHint* hint = nullptr);
  /// Marks a row that is about to be handed out read-only unless it may be modified.
  static void markReadOnly(Lumen::BaseRow& row, Config* config, bool modifiable);
  /// An entry with the key and nothing else.
  static Entry keyOnly(const Key& key);

 private:
  using KeyHash = std::function<std::uint32_t(const Key&)>;

  Config& writable(const char* operation) const;
  std::shared_ptr<typename Kind::Reactor> newReactor();

  typename Config::Ptr config_;
  std::shared_ptr<typename Kind::Reactor> reactor_;
  std::shared_ptr<Lumen::LumenDB> lumenDb_;
  bool readerSupportedFlag_;
  bool modifierSupportedFlag_;
  bool observerSupportedFlag_;
  EntryRow scratchRow_;
  std::uint64_t oldestChangeIdx_ = 1;
  std::uint64_t latestChangeIdx_ = 1;
  ChangeMap<Key> changeMap_;
  std::unordered_map<Key, std::uint64_t, KeyHash> keyToChange_;
};

}  // namespace TolmarHwLib

// Base of the table entities: a keyed collection in shared memory that calls its reactors on
// every write, change and removal, by any process.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "P4RuntimeTolmar/RecordCodec.h"
#include "orrery/TableEntity.h"
#include "quill/Counted.h"
#include "quill/TypeNode.h"
#include "table-service/TableRead.h"
#include "table-service/VestaMap.h"

namespace TolmarHwLib {

/// `Derived` is the entity class.
template <class Derived, class EntryT>
class TableEntityOf : public Quill::Typed<Derived, QuillVesta::TableEntity> {
 public:
  using Key = typename EntryT::Key;
  using Entry = EntryT;
  using Map = Vesta::VestaMap<Key, Entry>;
  using Ptr = Quill::Ptr<Derived>;
  using PtrConst = Quill::Ptr<const Derived>;

  using TableEntityOf::Typed::Typed;
  static constexpr FixedText kTypeName = typeName(Key::kind, Entry::side);
  static const Quill::TypeNode _quillType;

  /// The base of the table's reactors.
  class NotifieeConst : public Quill::Typed<NotifieeConst, Quill::NotifieeConst> {
   public:
    using NotifieeConst::Typed::Typed;
    static constexpr FixedText kTypeName{TableEntityOf::kTypeName, "::NotifieeConst"};
    static const Quill::TypeNode _quillType;

    /// The table that the reactor follows, or null.
    const Derived* notifier() const { return static_cast<const Derived*>(this->notifierObject()); }

    // Virtual operations, in slot order after those of Quill::NotifieeConst.

    /// The entry under `key` was written, changed or removed.
    virtual void onTable(const Key&) {}
    /// The whole collection was attached; called on every reactor before onTable().
    virtual void onTablequillImmediate() {}
    virtual void onTable() {}
  };

  /// Inserts or replaces the entry under its key, then calls the reactors; also for an equal entry. Throws,
  /// with nothing stored and no reactor called, when the table is full ("used N of M") or not this process's
  /// own.
  void tableIs(const Entry& entry) {
    const Key key = entry.key();
    change(key, [&] { return map_.write(key, entry), true; });
  }
  /// Removes the entry under `key` and calls the reactors; nothing happens when there is none.
  void tableDel(const Key& key) {
    change(key, [&] { return map_.remove(key); });
  }
  /// Calls the reactors for each entry that the replacement of a damaged segment has changed.
  void monitor() override {
    map_.monitor();
    notifyOfReplacement(nullptr);
  }
  /// Removes every entry and calls the reactors for each. Throws Cairn::NoPermissionException, with nothing
  /// removed, once the table was found corrupt; an assertion failure before the first attach and after
  /// detach(). Corruption detected while the keys are gathered is reported to the collection and passes out;
  /// nothing has been removed then.
  void tableDelAll();

  /// The collection. Not const: reading it may find it corrupt and put the placeholder in its place.
  Map& table() const { return map_; }

  // The operations of the collection that reactors use.

  /// The entry under `key`, or an empty one with `found` false. Valid until the next read of this table.
  const Entry& directLookup(const Key& key, bool& found, Vesta::IterHint* hint = nullptr) const {
    return map_.directLookup(key, found, hint);
  }
  void corruptionDetected(const std::string& message) const { map_.corruptionDetected(message); }
  Vesta::RootPath rootPath() const { return map_.rootPath(); }

  void attach(const QuillVesta::MountDescription& description, const Vesta::AttachOptions& options,
              Quill::EventLoop& loop) override;
  bool attached() const override { return map_.attached(); }
  pid_t writerProcess() const override {
    return map_.implementation() != nullptr ? map_.implementation()->writerProcess() : 0;
  }
  std::string displacedFile() const override {
    if (auto* const writer = map_.writer()) return writer->displacedFile();
    if (auto* const reader = map_.reader()) return reader->displacedFile();
    return {};
  }
  void cleanup() override { map_.cleanup(); }
  void detach() override {
    pump_.reset();
    map_.detach();
  }

 private:
  // A change may replace a damaged segment. Entries that this removed or set back are notified first, whether
  // or not the change itself took place; its own key is notified once.
  template <class Change>
  void change(const Key& key, const Change& change) {
    bool done = false;
    try {
      done = change();
    } catch (...) {
      notifyOfReplacement(nullptr);
      throw;
    }
    if (map_.hasChangedKeys()) [[unlikely]]
      notifyOfReplacement(done ? &key : nullptr);
    if (done) changed(key);
  }
  // Leaves out `written`, unless it is null. One at a time: a reactor may write, and so notify of the others.
  void notifyOfReplacement(const Key* written);
  void changed(const Key& key) const {
    this->template notify<NotifieeConst>([&key](NotifieeConst& reactor) { reactor.onTable(key); });
  }
  void attachedAgain() const {
    this->template notify<NotifieeConst>([](NotifieeConst& reactor) { reactor.onTablequillImmediate(); });
    this->template notify<NotifieeConst>([](NotifieeConst& reactor) { reactor.onTable(); });
  }

  mutable Map map_;
  std::unique_ptr<QuillVesta::TablePump> pump_;  // while attached as reader; gone before the map is
};

template <class Derived, class EntryT>
constinit const Quill::TypeNode TableEntityOf<Derived, EntryT>::_quillType{
    .name = kTypeName,
    .members = {},
    .newEntityForDir = [](const Quill::Name& name, const Quill::Ptr<Quill::Entity>&) {
      return Quill::Ptr<Quill::Entity>(Quill::allocate<Derived>(name));
    }};

template <class Derived, class EntryT>
constinit const Quill::TypeNode TableEntityOf<Derived, EntryT>::NotifieeConst::_quillType{.name = kTypeName,
                                                                                          .members = {}};

template <class Derived, class EntryT>
void TableEntityOf<Derived, EntryT>::notifyOfReplacement(const Key* written) {
  if (written != nullptr) map_.changedKeyDel(*written);
  while (const std::optional<Key> key = map_.takeChangedKey()) changed(*key);
}

template <class Derived, class EntryT>
void TableEntityOf<Derived, EntryT>::tableDelAll() {
  Cairn::require(map_.implementation() != nullptr, "table is not attached", "tableDelAll");
  if (!map_.attached()) map_.remove(Key{});  // the placeholder refuses
  std::vector<Key> keys;
  try {
    keys.reserve(map_.members());
    Vesta::forEachRow(map_, [&keys](const auto& row) { keys.push_back(row.key); });
  } catch (const Cairn::CorruptionDetectedException& damage) {
    map_.corruptionDetected(damage.message());
    throw;
  }
  for (const Key& key : keys) tableDel(key);
}

template <class Derived, class EntryT>
void TableEntityOf<Derived, EntryT>::attach(const QuillVesta::MountDescription& description,
                                            const Vesta::AttachOptions& options, Quill::EventLoop& loop) {
  pump_.reset();
  // A table found corrupt has no more events, unless its callback has mounted it again.
  map_.readyFunctionIs([this] {
    if (!map_.attached()) pump_.reset();
  });
  if (description.type() == QuillVesta::QuillVestaType::writer) {
    map_.attachWriter(options);
  } else {
    map_.attachReader(options);
    map_.onChangeIs([this](const Key& key) { changed(key); });
    try {
      pump_ = std::make_unique<QuillVesta::TablePump>(map_.events(), loop);
    } catch (...) {
      map_.detach();  // without a pump it would deliver no change
      throw;
    }
  }
  attachedAgain();
}

}  // namespace TolmarHwLib

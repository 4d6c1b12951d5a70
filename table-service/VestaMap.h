#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "table-service/MapLog.h"
#include "table-service/VestaBaseDummy.h"
#include "vesta/EventSource.h"
#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace Vesta {

/// A collection's access to its table: through the attached implementation, or the read-only placeholder once
/// corruption was detected. While nothing is attached, the map reads as empty and writes throw.
/// Thread safety: one thread. Handlers that the map calls may attach and detach it.
template <class Key, class Entry>
class VestaMap final : private EventSource {
 public:
  using Base = VestaBase<Key, Entry>;
  using Row = Value<Key, Entry>;
  using Writer = VestaWriter<Key, Entry>;
  using Reader = VestaReader<Key, Entry>;

  VestaMap() = default;
  ~VestaMap() override = default;

  /// Attaches as the table's one writer; see VestaWriter for errors. Detaches the current implementation
  /// first and keeps it, detached, when attaching fails.
  void attachWriter(const AttachOptions& options) {
    log_.pathIs(options.path);
    release();  // this map may hold the writer lock itself
    auto writer = std::make_unique<Writer>(options);
    Writer* plain = writer.get();
    attach(std::move(writer), plain->debugHandler());
    writer_ = plain;
    writes_ = true;
  }
  /// Attaches as a reader; events() then delivers changes to the handler set by onChangeIs.
  void attachReader(const AttachOptions& options) {
    log_.pathIs(options.path);
    release();
    auto reader = std::make_unique<Reader>(options);
    Reader* plain = reader.get();
    attach(std::move(reader), plain->debugHandler());
    reader_ = plain;
    reader_->onChangeIs([this](const Key& key) {
      if (onChange_) onChange_(key);
    });
  }
  /// Attaches another implementation.
  void attach(std::unique_ptr<Base> implementation, std::shared_ptr<const Cairn::DebugHandler> handler) {
    Cairn::require(implementation != nullptr && handler != nullptr, "implementation and debug handler",
                   "VestaMap::attach");
    drop();
    log_.pathIs(implementation->rootPath());
    log_.handlerIs(std::move(handler));
    implementation_ = std::move(implementation);
    attached_ = true;
  }
  /// Detaches in order, without a placeholder; the map then reads as empty.
  void detach() { drop(); }
  /// Removes the table's files, also after corruption has detached them. No effect unless attachWriter was
  /// the last attach.
  void cleanup() {
    if (writes_) implementation_->cleanup();
  }

  bool attached() const noexcept { return attached_; }
  /// The current implementation; null before the first attach and after detach. Owned by the map.
  Base* implementation() const noexcept { return implementation_.get(); }
  /// Null unless attached as writer or reader.
  Writer* writer() const noexcept { return writer_; }
  Reader* reader() const noexcept { return reader_; }

  /// The entry of `key`, or the table's default entry with `found` false. Valid until the next read.
  const Entry& directLookup(const Key& key, bool& found, IterHint* hint = nullptr) {
    if (implementation_) return implementation_->directLookup(key, found, hint);
    found = false;
    return emptyValue_.entry;
  }
  bool first(Row& value, IterHint& hint) { return implementation_ && implementation_->first(value, hint); }
  bool next(const Key& key, Row& value, IterHint& hint) {
    return implementation_ && implementation_->next(key, value, hint);
  }
  std::size_t members() { return implementation_ ? implementation_->members() : 0; }
  std::size_t capacity() { return implementation_ ? implementation_->capacity() : 0; }

  /// Inserts or replaces.
  void write(const Key& key, const Entry& entry) { required().write(Row{key, entry}, false); }
  /// False when the key has no row.
  bool remove(const Key& key) { return required().remove(key, nullptr); }
  /// Repairs what no read or write of the table notices, and replaces the segment that this map writes if a
  /// reader has reported damage in it; a write does the latter, too. To be called at least once a second.
  void monitor() {
    if (writer_ != nullptr) writer_->monitor();
    if (reader_ != nullptr) reader_->monitor();
  }

  // Each of the three operations above, also one that threw, may have replaced a damaged segment and so have
  // removed rows or set them back to an older content. The caller takes out their keys and notifies of them.

  bool hasChangedKeys() const { return writer_ != nullptr && writer_->hasChangedKeys(); }
  /// One of the keys; nothing when none is left.
  std::optional<Key> takeChangedKey() {
    return writer_ != nullptr ? writer_->takeChangedKey() : std::nullopt;
  }
  void changedKeyDel(const Key& key) {
    if (writer_ != nullptr) writer_->changedKeyDel(key);
  }

  /// Handles corruption detected by a read: puts the placeholder in place, reports the loss of readiness and
  /// writes the report file; a report that cannot be written is logged. Throws
  /// Cairn::CorruptionDetectedException when the map is not attached to a segment.
  void corruptionDetected(const std::string& message);

  /// Called when readiness changes; may be empty.
  void readyCallbackIs(std::function<void()> callback) { readyCallback_ = std::move(callback); }
  /// Run after the callback; must be set before readiness changes.
  void readyFunctionIs(std::function<void()> function) { readyFunction_ = std::move(function); }
  void collectionReadyIs(bool ready);
  bool notifying() const noexcept { return notifying_; }
  void notifyingIs(bool notifying) noexcept { notifying_ = notifying; }

  /// Called with each changed key, from EventSource::poll. Only a map attached as reader has such events.
  void onChangeIs(std::function<void(const Key&)> handler) { onChange_ = std::move(handler); }
  /// Stays valid as long as the map; the descriptor is that of the attached reader, or -1. Corruption
  /// detected by poll is handled by corruptionDetected. A row that keeps changing is logged and read again
  /// later.
  EventSource& events() noexcept { return *this; }

  /// The path of the last attach, also of one that failed; an assertion failure before the first.
  RootPath rootPath() const { return log_.path(); }

 private:
  int wakeDescriptor() const override { return reader_ != nullptr ? reader_->wakeDescriptor() : -1; }
  void descriptorReadable() override {
    guarded([this] { return reader_->descriptorReadable(), std::size_t{0}; });
  }
  std::size_t poll(std::size_t limit) override {
    return guarded([this, limit] { return reader_->poll(limit); });
  }
  bool maySleep() override { return reader_ == nullptr || reader_->maySleep(); }
  void awake() override {
    if (reader_ != nullptr) reader_->awake();
  }

  // While a call into the reader is in progress, what a handler drops stays alive.
  class Calling {
   public:
    explicit Calling(VestaMap& map) : map_(map) { ++map_.calls_; }
    ~Calling() {
      if (--map_.calls_ == 0) map_.leaving_.clear();
    }
    Calling(const Calling&) = delete;
    Calling& operator=(const Calling&) = delete;

   private:
    VestaMap& map_;
  };
  template <class Call>
  std::size_t guarded(const Call& call);
  Base& required() {
    Cairn::require(implementation_ != nullptr, "table is not attached", "VestaMap");
    return *implementation_;
  }
  // Detaches the implementation but keeps it until its successor is attached.
  void release() {
    if (implementation_ && attached_) implementation_->detach();
    attached_ = false;
    writer_ = nullptr;
    reader_ = nullptr;
  }
  void drop() {
    release();
    writes_ = false;
    if (calls_ > 0 && implementation_) {
      leaving_.push_back(std::move(implementation_));
    } else {
      implementation_.reset();
    }
  }

  MapLog log_;
  std::unique_ptr<Base> implementation_;
  std::vector<std::unique_ptr<Base>> leaving_;  // dropped by handlers while a call is in progress
  int calls_ = 0;                               // into readers that are in progress
  Writer* writer_ = nullptr;                    // not owned; the implementation when attached as writer
  Reader* reader_ = nullptr;                    // not owned; the implementation when attached as reader
  bool attached_ = false;
  bool writes_ = false;  // the implementation is the writer, or the placeholder that owns it
  bool notifying_ = true;
  Row emptyValue_{};
  std::function<void()> readyCallback_;
  std::function<void()> readyFunction_;
  std::function<void(const Key&)> onChange_;
};

template <class Key, class Entry>
void VestaMap<Key, Entry>::corruptionDetected(const std::string& message) {
  const MapLog log = log_;  // the callback below may attach the map elsewhere
  const std::string text = log.corruption(message);
  if (!attached_) throw Cairn::CorruptionDetectedException(text);
  log.detached();
  DamagedPlaces places;
  if (reader_ != nullptr) places = reader_->damagedPlaces();
  if (writer_ != nullptr) places = writer_->damagedPlaces();
  implementation_->detach();
  attached_ = false;
  writer_ = nullptr;
  reader_ = nullptr;
  implementation_ =
      std::make_unique<VestaBaseDummy<Key, Entry>>(log.handler(), log.path(), std::move(implementation_));
  collectionReadyIs(false);
  log.report(message, places);
}

template <class Key, class Entry>
void VestaMap<Key, Entry>::collectionReadyIs(bool ready) {
  log_.ready(ready, notifying_);
  if (readyCallback_) readyCallback_();
  readyFunction_();
}

template <class Key, class Entry>
template <class Call>
std::size_t VestaMap<Key, Entry>::guarded(const Call& call) {
  Reader* const called = reader_;
  if (called == nullptr) return 0;
  const Calling calling(*this);
  const std::uint64_t before = called->corruptions();
  try {
    return call();
  } catch (const Cairn::CorruptionDetectedException& corruption) {
    // A handler may have reported it already and even have mounted the table again. What a handler has
    // detected in another table passes out.
    if (reader_ != called) return 0;
    if (called->corruptions() == before) throw;
    corruptionDetected(corruption.message());
  } catch (const UnsettledException& busy) {
    log_.error(0, "poll", busy.message());  // the next poll reads the row again
  }
  return 0;
}

}  // namespace Vesta

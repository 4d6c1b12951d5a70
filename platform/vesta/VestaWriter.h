#pragma once

#include <optional>
#include <vector>

#include "vesta/SegmentWriter.h"
#include "vesta/TypedReads.h"

namespace Vesta {

/// The table of the one process that writes it. Creates a missing segment; keeps the rows of an existing one.
/// The constructor throws Cairn::Exception when the table has a living writer (the text has its pid) and when
/// folders or files are not private or have another owner, and Cairn::SystemException when a system call
/// fails.
///
/// A write takes constant time, except for an insertion that has to rebuild the index: 0.15 ms at a capacity
/// of 8192, 1.5 ms at 65,536, 90 ms at 1,000,000; at most one in capacity / 2 changes. Readers are not held
/// up.
template <class Key, class Entry>
class VestaWriter final : public VestaDebug, public TypedReads<Key, Entry, SegmentWriter> {
 public:
  using typename VestaBase<Key, Entry>::Row;

  explicit VestaWriter(const AttachOptions& options)
      : VestaDebug(options.debugHandler), writer_(shapeOf<Key, Entry>(options.capacity), options) {}

  void detach() override { writer_.detach(); }
  void cleanup() override { writer_.cleanup(); }
  bool write(const Row& value, bool onlyIfPresent) override {
    row_.encodeKey(value.key);
    row_.encodeEntry(value.entry);
    return writer_.write(row_.kSizes, row_.words(), onlyIfPresent);
  }
  bool remove(const Key& key, Row* removed) override {
    row_.encodeKey(key);
    if (removed != nullptr) {
      bool found = false;
      const Row& row = this->lookup(key, found, nullptr);
      if (!found) return false;
      *removed = row;
    }
    return writer_.remove(row_.kSizes, row_.key());
  }
  /// The row that was found last is not read again until this object, the only one that writes, changes the
  /// table: the reactors to one change look the same row up one after another. Damage to that row is detected
  /// by the next read that is not the same.
  const Entry& directLookup(const Key& key, bool& found, IterHint* hint) override {
    if (currentAt_ == writer_.changes() && writer_.attached() && hint == nullptr &&
        this->current().key == key) {
      found = true;
      return this->current().entry;
    }
    const Entry& entry = this->lookup(key, found, hint).entry;  // which keeps the key, too
    currentAt_ = found && hint == nullptr ? writer_.changes() : kNever;
    return entry;
  }
  VestaType type() override { return VestaType::writer; }
  Row& directWrite(const Key& key) override {
    staged_ = Row{};
    staged_.key = key;
    return staged_;
  }
  Row& directUpdate(const Key& key) override {
    bool found = false;
    staged_ = this->lookup(key, found, nullptr);
    staged_.key = key;
    return staged_;
  }
  void directCommit() override { write(staged_, false); }
  WriterCounters writerCounters() override { return writer_.counters(); }
  bool clientQuiesced(const std::string& name) override { return writer_.clientQuiesced(name); }
  bool quiesced(std::uint64_t sequence) override { return writer_.quiesced(sequence); }

  /// Like quiesced, but readers that have made no progress for a second do not count.
  bool movingReadersQuiesced(std::uint64_t sequence) { return writer_.movingReadersQuiesced(sequence); }
  std::vector<ConnectedReader> readers() { return writer_.readers(); }
  /// Whether takeChangedKey would return one.
  bool hasChangedKeys() const noexcept { return writer_.hasChangedKeys(); }
  /// Takes out one of the keys whose rows a replacement of the segment has changed; nothing when there is
  /// none.
  std::optional<Key> takeChangedKey() {
    if (!writer_.hasChangedKeys()) return std::nullopt;
    Key key{};
    EncodedRow<Key, Entry>::decodeKeyFrom(writer_.takeChangedKey().data(), key);
    return key;
  }
  /// Takes `key` out if it is one of them.
  void changedKeyDel(const Key& key) {
    row_.encodeKey(key);
    writer_.changedKeyDel(row_.key());
  }
  SegmentWriter& bytes() noexcept override { return writer_; }

 private:
  SegmentWriter writer_;
  EncodedRow<Key, Entry> row_;
  Row staged_{};
  static constexpr std::uint64_t kNever = ~std::uint64_t{0};
  std::uint64_t currentAt_ = kNever;  // the changes when a row was found last
};

}  // namespace Vesta

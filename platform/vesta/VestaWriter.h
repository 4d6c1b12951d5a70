#pragma once

#include <optional>
#include <vector>

#include "vesta/SegmentWriter.h"
#include "vesta/TypedReads.h"

namespace Vesta {

/// The table of the one process that writes it. Creates a missing segment; keeps the rows of one that is
/// there. The constructor throws Cairn::Exception when the table has a living writer (named by pid), when
/// folders or files are not private or not ours, and Cairn::SystemException when the system refuses
/// something.
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
    return writer_.remove(row_.key());
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

  /// Like quiesced, but readers that have not moved for a second do not count.
  bool movingReadersQuiesced(std::uint64_t sequence) { return writer_.movingReadersQuiesced(sequence); }
  std::vector<ConnectedReader> readers() { return writer_.readers(); }
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
  SegmentWriter& segment() noexcept { return writer_; }

 private:
  SegmentWriter& bytes() noexcept override { return writer_; }

  SegmentWriter writer_;
  EncodedRow<Key, Entry> row_;
  Row staged_{};
};

}  // namespace Vesta

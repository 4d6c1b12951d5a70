#pragma once

#include <functional>

#include "vesta/EventSource.h"
#include "vesta/SegmentReader.h"
#include "vesta/TypedReads.h"

namespace Vesta {

/// The table of a process that reads what another writes. Creates a missing segment, so that either side may
/// start first. The constructor throws as VestaWriter's does, except that a living writer is no error. With a
/// living writer, an incompatible segment is one (Cairn::Exception), and so is a damaged segment
/// (Cairn::CorruptionDetectedException), which the writer replaces at its next write or within a second.
///
/// A lookup never misses a key that has a row. When the writer has replaced the segment, a row that a lookup
/// finds in the retired one may be stale until the next poll(), which switches to the new segment: the bound
/// is the owner's interval between polls. A writer that replaces the segment wakes all readers.
template <class Key, class Entry>
class VestaReader final : public VestaDebug,
                          public TypedReads<Key, Entry, SegmentReader>,
                          public EventSource {
 public:
  explicit VestaReader(const AttachOptions& options)
      : VestaDebug(options.debugHandler), reader_(shapeOf<Key, Entry>(options.capacity), options) {}

  void detach() override { reader_.detach(); }
  VestaType type() override { return VestaType::reader; }
  ReaderCounters readerCounters() override { return reader_.counters(); }
  bool notifying() override { return static_cast<bool>(onChange_); }

  /// Called with each changed key, whether its row was written or removed.
  void onChangeIs(std::function<void(const Key&)> handler) { onChange_ = std::move(handler); }

  int wakeDescriptor() const override { return reader_.wakeDescriptor(); }
  void descriptorReadable() override { reader_.descriptorReadable(); }
  std::size_t poll(std::size_t limit) override {
    return reader_.poll(limit, [this](const Word* words) {
      Key key{};
      EncodedRow<Key, Entry>::decodeKeyFrom(words, key);
      if (onChange_) onChange_(key);
    });
  }
  bool maySleep() override { return reader_.maySleep(); }
  void awake() override { reader_.awake(); }

  /// How often this reader has detected corruption of its table; handlers may throw what they have detected
  /// in another.
  std::uint64_t corruptions() const noexcept { return reader_.corruptions(); }
  SegmentReader& bytes() noexcept override { return reader_; }

 private:
  SegmentReader reader_;
  std::function<void(const Key&)> onChange_;
};

}  // namespace Vesta

#pragma once

#include <functional>

#include "vesta/EventSource.h"
#include "vesta/SegmentReader.h"
#include "vesta/TypedReads.h"

namespace Vesta {

/// The table of a process that reads what another writes. Creates a missing segment, so that either side may
/// start first. The constructor throws as VestaWriter's does, except that a living writer is no error; with
/// one, a segment of another fingerprint or capacity is (Cairn::Exception), and so is a damaged one
/// (Cairn::CorruptionDetectedException; the writer is told and replaces it at its next write).
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
  SegmentReader& segment() noexcept { return reader_; }

 private:
  SegmentReader& bytes() noexcept override { return reader_; }

  SegmentReader reader_;
  std::function<void(const Key&)> onChange_;
};

}  // namespace Vesta

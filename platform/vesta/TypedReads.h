#pragma once

#include "vesta/EncodedRow.h"
#include "vesta/VestaBase.h"
#include "vesta/segment/Damage.h"

namespace Vesta {

/// The reading half of a table over its byte-level side, which offers
///   bool lookup(sizes, const Word* key, Word* row, std::uint32_t& slot);
///   bool rowFrom(std::uint32_t& slot, Word* row);    // the first row at `slot` or after it
///   std::size_t members();  std::uint64_t sequence();  bool attached();  void validate();  ...
/// Each lookup copies the row out of the segment into this object.
template <class Key, class Entry, class Bytes>
class TypedReads : public VestaBase<Key, Entry> {
 public:
  using Base = VestaBase<Key, Entry>;
  using typename Base::Row;

  bool initialize() override { return bytes().attached(); }
  bool validate() override { return bytes().validate(), true; }
  bool validateFiles() override { return bytes().validateFiles(), true; }
  const Row& lookup(const Key& key, bool& found, IterHint* extra) override {
    found = find(key, extra);
    if (!found) return emptyValue_;
    current_.key = key;
    found_.decodeEntry(current_.entry);
    return current_;
  }
  const Entry& directLookup(const Key& key, bool& found, IterHint* hint) override {
    found = find(key, hint);
    if (!found) return emptyValue_.entry;
    found_.decodeEntry(current_.entry);
    return current_.entry;
  }
  bool first(Row& value, IterHint& hint) override { return rowFrom(0, value, hint); }
  bool next(const Key& key, Row& value, IterHint& hint) override {
    if (hint.slot == IterHint::kNowhere && !find(key, &hint)) {
      value = Row{};
      return false;
    }
    return rowFrom(hint.slot + 1, value, hint);
  }
  std::size_t members() override { return bytes().members(); }
  std::size_t minSize() override { return 0; }
  std::size_t maxSize() override { return bytes().capacity(); }
  std::size_t capacity() override { return bytes().capacity(); }
  std::uint64_t sequence() override { return bytes().sequence(); }
  bool connected() override { return bytes().connected(); }
  void yieldTimeIs(std::chrono::milliseconds time) override {
    if (time < std::chrono::milliseconds(1) || time > std::chrono::minutes(1)) {
      throw Cairn::Exception("yield time: expected 1 to 60000 ms, got " + std::to_string(time.count()));
    }
    bytes().yieldTimeIs(time);
  }
  RootPath rootPath() override { return bytes().rootPath(); }
  std::string vestaName() override { return bytes().rootPath().vestaName(); }
  MountStatus mountStatus() override {
    return bytes().attached() ? MountStatus::mounted : MountStatus::detached;
  }
  pid_t writerProcess() override { return bytes().writerProcess(); }

  /// Repairs what no read or write of the table notices; to be called at least once a second.
  void monitor() { bytes().monitor(); }
  /// See TableFiles::displacedFile. Empty while there is no segment.
  std::string displacedFile() { return bytes().displacedFile(); }
  /// The places in the segment that the last corruption detected by this object names.
  const DamagedPlaces& damagedPlaces() { return bytes().damagedPlaces(); }
  virtual Bytes& bytes() noexcept = 0;

 protected:
  /// The row that was found last, as it was then.
  const Row& current() const noexcept { return current_; }

 private:
  using Encoded = EncodedRow<Key, Entry>;

  bool find(const Key& key, IterHint* hint) {
    sought_.encodeKey(key);
    std::uint32_t slot = IterHint::kNowhere;
    const bool found = bytes().lookup(Encoded::kSizes, sought_.key(), found_.words(), slot);
    if (hint != nullptr) hint->slot = slot;
    return found;
  }
  bool rowFrom(std::uint32_t slot, Row& value, IterHint& hint) {
    if (!bytes().rowFrom(slot, found_.words())) {
      value = Row{};
      return false;
    }
    hint.slot = slot;
    found_.decodeKey(value.key);
    found_.decodeEntry(value.entry);
    return true;
  }

  Encoded sought_;  // its key alone
  Encoded found_;
  Row current_{};
  const Row emptyValue_{};
};

}  // namespace Vesta

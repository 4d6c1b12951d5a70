// The default behaviour of a table implementation with one key index; implementations override what they
// offer.
#pragma once

#include <functional>
#include <limits>
#include <map>

#include "lumen/LmTableImplementation.h"

namespace Lumen {

using IndexMap = std::map<std::string, std::string>;

/// Called with the row about to be written, which may be null, and the previous row, null if unknown. Refuses
/// the write by throwing.
using PreWriteHook = std::function<void(const BaseRow& row, const BaseRow& previous)>;

/// Operations that the creator of a table supplies. Empty ones are not used.
struct LmTableOps {
  PreWriteHook preWrite;
};

class DefaultLmTableImplementation : public LmTableImplementation {
 public:
  /// `tableOps` may be null; it is copied.
  DefaultLmTableImplementation(std::string tableTypeName, std::string rowTypeName, std::uint16_t rowTypeId,
                               bool unique, bool ordered, bool bounded, bool readerSupported,
                               const LmTableOps* tableOps, IndexMap indexMap);
  ~DefaultLmTableImplementation() override;

  const std::string& tableTypeName() const override { return tableTypeName_; }
  const std::string& rowTypeName() const override { return rowTypeName_; }
  std::uint16_t rowTypeId() const override { return rowTypeId_; }
  /// LmOutOfRange for any index but 0, as isUnique.
  bool isOrdered(unsigned idx) const override;
  bool isUnique(unsigned idx) const override;
  bool ready() const override { return ready_; }
  std::size_t size() const override { return rowCount_; }
  bool materialized() const override { return materialized_; }
  bool bounded() const override { return bounded_; }
  bool readerSupported() const override { return readerSupported_; }
  bool modifierSupported() const override { return false; }
  bool observerSupported() const override { return false; }
  /// The one index is always active: activating it changes nothing, deactivating it is LmNotSupported.
  void activateIndex(unsigned idx) override;
  void deactivateIndex(unsigned idx) override;
  bool indexActive(unsigned idx) const override { return idx == 0; }
  unsigned indexes() const override { return 1; }

  // Not supported here (LmNotSupported), except rowDel of an iterator, which deletes the row at its position.
  BaseRow row(const BaseRow& keyRow, unsigned idx) override;
  std::unique_ptr<LmRowIteratorImpl> begin(unsigned idx) override;
  std::unique_ptr<LmRowIteratorImpl> find(const BaseRow& keyRow, unsigned idx) override;
  std::unique_ptr<LmRowIteratorImpl> lower_bound(const BaseRow& row, unsigned idx) override;
  std::unique_ptr<LmRowIteratorImpl> upper_bound(const BaseRow& row, unsigned idx) override;
  std::unique_ptr<LmRowIteratorImpl> end(unsigned idx) override;
  std::unique_ptr<LmRowIteratorImpl> rangeBegin(const BaseRow& row, unsigned idx) override;
  std::size_t rangeRows(const BaseRow& row, unsigned idx) override;
  void rowIs(const BaseRow& row, bool flag) override;
  void rowDel(const BaseRow& keyRow) override;
  void rowDel(const LmRowIteratorImpl& at) override;
  void rowDelAll() override;
  std::uint64_t oldestChangeIdx() const override { return 0; }
  std::uint64_t latestChangeIdx() const override { return 0; }
  std::unique_ptr<LmChangeIteratorImpl> nextChange(std::uint64_t idx) override;
  std::unique_ptr<LmChangeIteratorImpl> endChange() override;
  void reportProgress() override {}

  /// One table at a time; a second one is an assertion failure.
  void addInterface(LmTableInterface& tableInterface) override;
  void removeInterface(LmTableInterface& tableInterface) override;
  std::size_t boundInterfacesCount() const override { return interface_ == nullptr ? 0 : 1; }
  void replaceImplementation(const std::shared_ptr<LmTableImplementation>& implementation,
                             LumenDB& lumenDb) override;
  void cleanup() override {}

  const IndexMap& indexMap() const noexcept { return indexMap_; }

 protected:
  bool preWriteActive() const noexcept { return static_cast<bool>(preWriteHook_); }
  void preWrite(const BaseRow& row, const BaseRow& previous) const { preWriteHook_(row, previous); }

  /// Changes up to `span` indices behind the latest stay recorded.
  void changeSpanIs(std::uint64_t span) noexcept { changeSpan_ = span; }
  /// Called after a change was recorded. Returns the index up to which changes are no longer needed. Users of
  /// the table read changes at their own pace (nextChange), so nobody is notified here.
  std::uint64_t notifyObservers(std::uint64_t previousIdx, std::uint64_t latestIdx, bool deleted,
                                const BaseRow& row) const;
  /// Makes `table`, an implementation with cleanChangeMap(idx), forget its changes up to `idx`. The oldest
  /// index never decreases.
  template <class Table>
  static void cleanChanges(Table& table, std::uint64_t idx) {
    if (idx > table.oldestChangeIdx()) table.cleanChangeMap(idx);
  }

 private:
  [[noreturn]] void notSupported(const char* operation) const;

  std::string tableTypeName_;
  std::string rowTypeName_;
  std::uint16_t rowTypeId_;
  bool ordered_;
  bool unique_;
  bool materialized_ = false;
  bool bounded_;
  bool ready_ = true;
  bool readerSupported_;
  std::size_t rowCount_ = 0;
  PreWriteHook preWriteHook_;
  IndexMap indexMap_;
  LmTableInterface* interface_ = nullptr;  // not owned
  std::uint64_t changeSpan_ = std::numeric_limits<std::uint64_t>::max();
};

}  // namespace Lumen

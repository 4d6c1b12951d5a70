#include "lumen/DefaultLmTableImplementation.h"

#include <algorithm>

#include "cairn/Assert.h"
#include "lumen/LmErrors.h"
#include "rows/RowErrors.h"

namespace Lumen {

namespace {

void checkIndex(unsigned idx) {
  if (idx != 0) throw LmOutOfRange("Multiple indices not supported. idx:" + std::to_string(idx));
}

}  // namespace

DefaultLmTableImplementation::DefaultLmTableImplementation(std::string tableTypeName, std::string rowTypeName,
                                                           std::uint16_t rowTypeId, bool unique, bool ordered,
                                                           bool bounded, bool readerSupported,
                                                           const LmTableOps* tableOps, IndexMap indexMap)
    : tableTypeName_(std::move(tableTypeName)),
      rowTypeName_(std::move(rowTypeName)),
      rowTypeId_(rowTypeId),
      ordered_(ordered),
      unique_(unique),
      bounded_(bounded),
      readerSupported_(readerSupported),
      preWriteHook_(tableOps == nullptr ? PreWriteHook() : tableOps->preWrite),
      indexMap_(std::move(indexMap)) {}

DefaultLmTableImplementation::~DefaultLmTableImplementation() = default;

void DefaultLmTableImplementation::notSupported(const char* operation) const {
  throw LmNotSupported(std::string(operation) + " not supported by " + tableTypeName_ + " of " +
                       rowTypeName_);
}

bool DefaultLmTableImplementation::isOrdered(unsigned idx) const {
  checkIndex(idx);
  return ordered_;
}

bool DefaultLmTableImplementation::isUnique(unsigned idx) const {
  checkIndex(idx);
  return unique_;
}

void DefaultLmTableImplementation::activateIndex(unsigned idx) { checkIndex(idx); }

void DefaultLmTableImplementation::deactivateIndex(unsigned idx) {
  checkIndex(idx);
  notSupported("deactivateIndex");
}

BaseRow DefaultLmTableImplementation::row(const BaseRow&, unsigned) { notSupported("row"); }

std::unique_ptr<LmRowIteratorImpl> DefaultLmTableImplementation::begin(unsigned) { notSupported("begin"); }

std::unique_ptr<LmRowIteratorImpl> DefaultLmTableImplementation::find(const BaseRow&, unsigned) {
  notSupported("find");
}

std::unique_ptr<LmRowIteratorImpl> DefaultLmTableImplementation::lower_bound(const BaseRow&, unsigned) {
  notSupported("lower_bound");
}

std::unique_ptr<LmRowIteratorImpl> DefaultLmTableImplementation::upper_bound(const BaseRow&, unsigned) {
  notSupported("upper_bound");
}

std::unique_ptr<LmRowIteratorImpl> DefaultLmTableImplementation::end(unsigned) { notSupported("end"); }

std::unique_ptr<LmRowIteratorImpl> DefaultLmTableImplementation::rangeBegin(const BaseRow&, unsigned) {
  notSupported("rangeBegin");
}

std::size_t DefaultLmTableImplementation::rangeRows(const BaseRow&, unsigned) { notSupported("rangeRows"); }

void DefaultLmTableImplementation::rowIs(const BaseRow&, bool) { notSupported("rowIs"); }

void DefaultLmTableImplementation::rowDel(const BaseRow&) { notSupported("rowDel"); }

void DefaultLmTableImplementation::rowDel(const LmRowIteratorImpl& at) { rowDel(*at); }

void DefaultLmTableImplementation::rowDelAll() { notSupported("rowDelAll"); }

std::unique_ptr<LmChangeIteratorImpl> DefaultLmTableImplementation::nextChange(std::uint64_t) {
  notSupported("nextChange");
}

std::unique_ptr<LmChangeIteratorImpl> DefaultLmTableImplementation::endChange() { notSupported("endChange"); }

void DefaultLmTableImplementation::addInterface(LmTableInterface& tableInterface) {
  Cairn::require(interface_ == nullptr, "a table is bound already", "addInterface");
  interface_ = &tableInterface;
}

void DefaultLmTableImplementation::removeInterface(LmTableInterface& tableInterface) {
  if (interface_ == &tableInterface) interface_ = nullptr;
}

void DefaultLmTableImplementation::replaceImplementation(
    const std::shared_ptr<LmTableImplementation>& implementation, LumenDB&) {
  LmTableInterface* const tableInterface = std::exchange(interface_, nullptr);
  if (tableInterface == nullptr) return;
  if (implementation != nullptr) implementation->addInterface(*tableInterface);
  tableInterface->implementationIs(implementation);
}

std::uint64_t DefaultLmTableImplementation::notifyObservers(std::uint64_t, std::uint64_t latestIdx, bool,
                                                            const BaseRow&) const {
  return std::max(latestIdx - std::min(latestIdx, changeSpan_), oldestChangeIdx());
}

}  // namespace Lumen

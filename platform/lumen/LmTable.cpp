#include "lumen/LmTable.h"

#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"

namespace Lumen {

LmTable::~LmTable() {
  if (implementation_ != nullptr) implementation_->removeInterface(*this);
}

std::string LmTable::descriptor() const {
  const LmClass* const rowClass = LumenDB::lmClass(registration_.rowTypeName);
  return rowClass == nullptr ? std::string() : rowClass->descriptor();
}

std::shared_ptr<LmTableImplementation> LmTable::served() const {
  if (implementation_ == nullptr) {
    throw LmTableError("table " + name() + " has no implementation");
  }
  return implementation_;
}

LmRowIterator LmTable::find(const BaseRow& keyRow) const {
  auto implementation = served();
  auto at = implementation->find(keyRow, 0);
  return {std::move(implementation), std::move(at)};
}

LmRowIterator LmTable::begin() const {
  auto implementation = served();
  auto at = implementation->begin(0);
  return {std::move(implementation), std::move(at)};
}

LmRowIterator LmTable::end() const {
  auto implementation = served();
  auto at = implementation->end(0);
  return {std::move(implementation), std::move(at)};
}

LmChangeIterator LmTable::nextChange(std::uint64_t idx) const {
  auto implementation = served();
  auto at = implementation->nextChange(idx);
  return {std::move(implementation), std::move(at)};
}

LmChangeIterator LmTable::endChange() const {
  auto implementation = served();
  auto at = implementation->endChange();
  return {std::move(implementation), std::move(at)};
}

}  // namespace Lumen

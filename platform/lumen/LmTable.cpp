#include "lumen/LmTable.h"

#include <algorithm>

#include "cairn/Exception.h"
#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"
#include "lumen/Raised.h"

namespace Lumen {

namespace {

/// Hands what leaves `call` to `handler`.
template <class Call, class Handler>
void guarded(const Call& call, const Handler& handler) {
  try {
    call();
  } catch (const std::exception& exception) {
    handler(exception);
  } catch (...) {
    handler(Cairn::Exception("of a type that is no std::exception"));
  }
}

}  // namespace

LmTable::~LmTable() {
  for (const auto& observer : observers_) observer->table_ = nullptr;
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

void LmTable::observerIs(const std::shared_ptr<LmTableObserver>& observer) {
  if (observer == nullptr) throw LmTableError("null observer for table " + name());
  if (observer->table_ != nullptr) {
    throw LmTableError("observer for table " + name() + " follows table " + observer->table_->name());
  }
  observers_.push_back(observer);
  observer->table_ = this;
  observer->startOver();
  tellObservers();
}

void LmTable::observerDel(const LmTableObserver& observer) {
  const auto found = std::ranges::find(observers_, &observer, &std::shared_ptr<LmTableObserver>::get);
  if (found == observers_.end()) return;
  const auto dropped = *found;
  observers_.erase(found);
  dropped->table_ = nullptr;
}

void LmTable::implementationIs(const std::shared_ptr<LmTableImplementation>& implementation) {
  if (implementation == implementation_) return;
  implementation_ = implementation;
  for (const auto& observer : observers_) observer->startOver();
  tellObservers();
}

std::optional<std::uint64_t> LmTable::notifyObservers(std::uint64_t previousIdx, std::uint64_t latestIdx,
                                                      bool, const BaseRow&) {
  if (observers_.empty()) return std::nullopt;
  const auto implementation = implementation_;
  tellObservers();
  if (implementation != implementation_) return previousIdx;
  std::optional<std::uint64_t> consumed;
  for (const auto& observer : observers_) {
    // One that has yet to begin its walk over the rows needs no change from before it.
    const bool yetToWalk = observer->reset_ && !observer->consuming_;
    const std::uint64_t needed = yetToWalk ? latestIdx : observer->consumed_;
    consumed = std::min(consumed.value_or(needed), needed);
  }
  return consumed;
}

void LmTable::tellObservers() {
  if (telling_) return;  // the round under way goes on with it
  const auto keep = shared_from_this();
  const Raised telling(telling_);
  bool told = true;
  while (std::exchange(told, false)) {
    // By position: who is told may drop and attach observers. One passed over is met in the next round.
    for (std::size_t i = 0; i < observers_.size(); ++i) {
      const auto observer = observers_[i];
      const std::uint64_t latest = implementation_ == nullptr ? 0 : implementation_->latestChangeIdx();
      if (observer->told_ && *observer->told_ >= latest) continue;
      observer->told_ = latest;
      told = true;
      const auto ownHandler = [&](const std::exception& exception) { observer->onException(exception); };
      guarded([&] { guarded([&] { observer->onChangesWaiting(); }, ownHandler); },
              [&](const std::exception& exception) { observer->LmTableObserver::onException(exception); });
    }
  }
}

}  // namespace Lumen

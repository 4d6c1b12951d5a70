#include "lumen/LmTableObserver.h"

#include <algorithm>
#include <cstdio>

#include "lumen/LmTable.h"
#include "lumen/Raised.h"

namespace Lumen {

LmTableObserver::~LmTableObserver() = default;

void LmTableObserver::onException(const std::exception& exception) {
  std::fprintf(stderr, "exception in an observer: %s\n", exception.what());
}

void LmTableObserver::startOver() noexcept {
  consumed_ = 0;
  told_.reset();
  reset_ = true;
}

std::size_t LmTableObserver::consume(std::size_t limit) {
  if (consuming_) return 0;
  const auto keep = weak_from_this().lock();  // the handlers may drop this observer
  const Raised consuming(consuming_);
  std::size_t count = 0;
  while (table_ != nullptr) {  // the handlers may have it follow another table
    const auto table = table_->shared_from_this();
    if (reset_) {
      count += walkRows(*table);
      continue;
    }
    count += walkChanges(*table, limit - std::min(limit, count));
    if (!reset_) break;
  }
  return count;
}

std::size_t LmTableObserver::walkRows(LmTable& table) {
  const auto implementation = table.implementation();
  const auto following = [&] { return table_ == &table && table.implementation() == implementation; };
  // What is written during the walk comes again as a change after this index.
  consumed_ = implementation == nullptr ? 0 : implementation->latestChangeIdx();
  const std::uint64_t walked = consumed_;
  onReset();
  std::size_t count = 0;
  if (implementation != nullptr) {
    for (const auto row = implementation->begin(0); following() && *row; ++*row) {
      onChange({walked, ChangeKind::written, **row});
      ++count;
    }
  }
  if (following()) reset_ = false;
  return count;
}

std::size_t LmTableObserver::walkChanges(LmTable& table, std::size_t limit) {
  const auto implementation = table.implementation();
  std::size_t count = 0;
  if (implementation == nullptr) return count;
  const auto end = implementation->endChange();
  for (const auto next = implementation->nextChange(consumed_); count < limit; ++*next) {
    // Trimming may go past the latest change: no walk over the rows takes an observer further than that.
    if (consumed_ < std::min(implementation->oldestChangeIdx(), implementation->latestChangeIdx())) {
      reset_ = true;
    }
    if (reset_ || *next == *end) break;
    const auto change = **next;
    onChange(*change);
    ++count;
    if (table_ != &table || table.implementation() != implementation) break;
    consumed_ = change->index;
  }
  return count;
}

}  // namespace Lumen

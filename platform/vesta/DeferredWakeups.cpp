#include "vesta/DeferredWakeups.h"

#include <algorithm>

#include "vesta/SegmentWriter.h"

namespace Vesta {

namespace {

constexpr unsigned kChanges = 256;

thread_local DeferredWakeups* outermost = nullptr;

}  // namespace

DeferredWakeups::DeferredWakeups() noexcept {
  if (outermost == nullptr) outermost = this;
}

DeferredWakeups::~DeferredWakeups() {
  if (outermost != this) return;
  outermost = nullptr;
  for (std::size_t i = 0; i < count_; ++i) {
    if (writers_[i].writer != nullptr && writers_[i].changes != 0) writers_[i].writer->wakeDeferred();
  }
}

bool DeferredWakeups::defers(SegmentWriter& writer) noexcept {
  if (outermost == nullptr) return false;
  auto& [writers, count] = *outermost;
  const auto is = [&writer](const Deferring& each) { return each.writer == &writer; };
  const auto end = writers.begin() + count;
  const auto found = std::find_if(writers.begin(), end, is);
  if (found == end) {
    if (count < writers.size()) writers[count++] = {&writer, 0};
    return false;
  }
  found->changes = (found->changes + 1) % kChanges;
  return found->changes != 0;
}

bool DeferredWakeups::forget(const SegmentWriter& writer) noexcept {
  if (outermost == nullptr) return false;
  const auto is = [&writer](const Deferring& each) { return each.writer == &writer; };
  const auto end = outermost->writers_.begin() + outermost->count_;
  const auto found = std::find_if(outermost->writers_.begin(), end, is);
  if (found == end) return false;
  found->writer = nullptr;
  return found->changes != 0;
}

}  // namespace Vesta

#include "quill/AllocTrack.h"

#include <algorithm>
#include <mutex>

#include "quill/TypeName.h"

namespace Quill {

namespace {

struct Records {
  std::mutex mutex;
  std::vector<AllocTrackTypeInfo*> list;
};

// Never destroyed: records of static storage in other libraries leave the list at their own end.
Records& records() {
  static auto* const all = new Records;
  return *all;
}

}  // namespace

AllocTrackTypeInfo::~AllocTrackTypeInfo() {
  if (!listed_.load()) return;
  const std::lock_guard lock(records().mutex);
  std::erase(records().list, this);
}

void AllocTrackTypeInfo::trackAllocation(AllocTrackTypeInfo& record, const std::type_info& type,
                                         std::size_t size) {
  if (!record.listed_.load(std::memory_order_acquire)) {
    const std::lock_guard lock(records().mutex);
    if (!record.listed_.load(std::memory_order_relaxed)) {
      record.type_ = &type;
      record.size_ = size;
      records().list.push_back(&record);
      record.listed_.store(true, std::memory_order_release);
    }
  }
  record.allocated_.fetch_add(1, std::memory_order_relaxed);
  record.live_.fetch_add(1, std::memory_order_relaxed);
}

void AllocTrackTypeInfo::trackDeallocation(AllocTrackTypeInfo& record) noexcept {
  record.live_.fetch_sub(1, std::memory_order_relaxed);
}

std::vector<AllocTrackTypeInfo::Count> AllocTrackTypeInfo::counts() {
  const std::lock_guard lock(records().mutex);
  std::vector<Count> result;
  for (const AllocTrackTypeInfo* record : records().list) {
    result.push_back({typeName(*record->type_), record->size_, record->live()});
  }
  return result;
}

std::int64_t AllocTrackTypeInfo::liveTotal() {
  const std::lock_guard lock(records().mutex);
  std::int64_t total = 0;
  for (const AllocTrackTypeInfo* record : records().list) total += record->live();
  return total;
}

}  // namespace Quill

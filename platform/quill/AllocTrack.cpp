#include "quill/AllocTrack.h"

#include <algorithm>
#include <mutex>

#include "quill/TypeName.h"

namespace Quill {

namespace {

struct Listed {
  const AllocTrackTypeInfo* record;
  std::string type;  // a copy: the type may belong to a library that goes before the record does
  std::size_t size;
};

struct Records {
  std::mutex mutex;
  std::vector<Listed> list;
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
  std::erase_if(records().list, [this](const Listed& listed) { return listed.record == this; });
}

void AllocTrackTypeInfo::trackAllocation(AllocTrackTypeInfo& record, const std::type_info& type,
                                         std::size_t size) {
  if (!record.listed_.load(std::memory_order_acquire)) {
    const std::lock_guard lock(records().mutex);
    if (!record.listed_.load(std::memory_order_relaxed)) {
      records().list.push_back({&record, typeName(type), size});
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
  for (const Listed& listed : records().list) {
    result.push_back({listed.type, listed.size, listed.record->live()});
  }
  return result;
}

std::int64_t AllocTrackTypeInfo::liveTotal() {
  const std::lock_guard lock(records().mutex);
  std::int64_t total = 0;
  for (const Listed& listed : records().list) total += listed.record->live();
  return total;
}

}  // namespace Quill

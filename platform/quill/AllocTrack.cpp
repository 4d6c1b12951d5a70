#include "quill/AllocTrack.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <mutex>

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

std::string readableName(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return status == 0 ? name.get() : type.name();
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
    result.push_back({readableName(*record->type_), record->size_, record->live()});
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

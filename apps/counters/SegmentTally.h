#pragma once

#include "apps/counters/Layout.h"

namespace Counters {

/// Copies what the two segments of one table count in this process: as their entities are attached, one as
/// writer and one as reader.
class SegmentTally {
 public:
  template <class Written, class Read>
  void copy(const Written& written, const Read& read, SegmentWords<Counter>& words) {
    bool lost = false;
    if (auto* const writer = written.table().writer()) {
      wakeups_.to(words.wakeups, writer->writerCounters().wakeups);
      // A segment that is not the one before was rebuilt for the damage in that.
      lost = segment_ != 0 && writer->segmentId() != segment_;
      segment_ = writer->segmentId();
    }
    if (auto* const reader = read.table().reader()) {
      const auto counts = reader->readerCounters();
      retries_.to(words.readerRetries, counts.retries);
      overruns_.to(words.logOverruns, counts.overruns);
    }
    const bool attached = written.attached() && read.attached();
    if (lost || (attached_ && !attached)) words.damageReports.add();
    attached_ = attached;
  }

 private:
  CopiedCount wakeups_;
  CopiedCount retries_;
  CopiedCount overruns_;
  std::uint64_t segment_ = 0;
  bool attached_ = true;
};

}  // namespace Counters

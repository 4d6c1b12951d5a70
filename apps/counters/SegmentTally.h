#pragma once

#include "apps/counters/Layout.h"

namespace Counters {

/// Copies what the two segments of one table count in this process: as their entities are attached, one as
/// writer and one as reader. Damage is counted when this process replaces a segment for it, or detaches from
/// one that it cannot replace.
class SegmentTally {
 public:
  template <class Written, class Read>
  void copy(const Written& written, const Read& read, SegmentWords<Counter>& words) {
    if (auto* const writer = written.table().writer()) {
      const auto counts = writer->writerCounters();
      wakeups_.to(words.wakeups, counts.wakeups);
      writerReplacements_.to(words.damageReports, counts.replacements);
    }
    if (auto* const reader = read.table().reader()) {
      const auto counts = reader->readerCounters();
      retries_.to(words.readerRetries, counts.retries);
      overruns_.to(words.logOverruns, counts.overruns);
      readerReplacements_.to(words.damageReports, counts.replacements);
    }
    const bool attached = written.attached() && read.attached();
    if (attached_ && !attached) words.damageReports.add();
    attached_ = attached;
  }

 private:
  CopiedCount wakeups_;
  CopiedCount writerReplacements_;
  CopiedCount readerReplacements_;
  CopiedCount retries_;
  CopiedCount overruns_;
  bool attached_ = true;
};

}  // namespace Counters

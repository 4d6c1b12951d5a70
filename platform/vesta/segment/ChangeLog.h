#pragma once

#include "vesta/segment/Segment.h"

namespace Vesta {

/// One record of the change log.
struct ChangeRecord {
  std::uint32_t slot;
  bool written;  ///< or removed
};

enum class RecordState { read, overrun };

/// Copies the record of the published change `sequence`: `row` gets its first word and the key. `overrun`
/// when the writer may have been overwriting it; throws SegmentCorruption when it was not and the check
/// failed.
RecordState readRecord(const Segment& segment, Word sequence, Word* row, ChangeRecord& record);

/// Whether the writer has begun the change `sequence`, and no later one in the same place of the log.
bool isBegun(const Segment& segment, Word sequence);

/// Copies and checks a record that nobody is writing.
ChangeRecord checkRecord(const Segment& segment, Word sequence, Word* row);

/// Whether the record of `sequence` can be read when `published` is the newest change: the one after it may
/// be overwriting the record that is as far back as the log is long.
inline bool inLog(const Layout& layout, Word sequence, Word published) {
  return sequenceDistance(sequence, published) < layout.records - 1;
}

}  // namespace Vesta

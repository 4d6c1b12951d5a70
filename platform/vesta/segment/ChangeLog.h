#pragma once

#include "vesta/segment/Segment.h"

namespace Vesta {

/// One record of the change log.
struct ChangeRecord {
  std::uint32_t slot;
  bool written;  ///< or removed
};

enum class RecordState { read, overtaken };

/// Copies the record of the change `sequence` out, which the reader knows to be published: `row` gets the
/// version-like first word and the key. Overtaken when the writer may have been at it. Throws
/// Cairn::CorruptionDetectedException when it stood still and its check failed.
RecordState readRecord(const Segment& segment, Word sequence, Word* row, ChangeRecord& record);

/// Copies and checks a record that nobody is writing.
ChangeRecord checkRecord(const Segment& segment, Word sequence, Word* row);

/// Whether the writer has begun the change `sequence`, which follows the newest published one.
inline bool isBegun(const Segment& segment, Word sequence) {
  return segment.load(segment.layout().recordAt(sequence)) >> 2 == sequence;
}

/// Whether the record of `sequence` can still be read when `published` is the newest change. The writer may
/// already be overwriting the record that is as far back as the ring is long, less one.
inline bool inLog(const Layout& layout, Word sequence, Word published) {
  return sequenceDistance(sequence, published) < layout.records - 1;
}

}  // namespace Vesta

#include "vesta/segment/ChangeLog.h"

#include <string>

#include "cairn/Hash.h"

namespace Vesta {

namespace {

Word loadRecord(const Segment& segment, Word sequence, Word* row) {
  const std::size_t at = segment.layout().recordAt(sequence);
  row[0] = segment.load(at);
  for (std::uint32_t i = 0; i < segment.layout().keyWords; ++i) row[1 + i] = segment.load(at + 2 + i);
  return segment.load(at + 1);
}

ChangeRecord checked(const Layout& layout, Word sequence, const Word* row, Word slotAndCheck) {
  const auto slot = static_cast<std::uint32_t>(slotAndCheck >> 32);
  const Word found = slotAndCheck & 0xffffffff;
  const Word computed = Cairn::checksum(row, (1 + layout.keyWords) * sizeof(Word), slot);
  if (row[0] >> 2 != sequence || found != computed || slot >= layout.shape.capacity) [[unlikely]] {
    const std::size_t at = layout.recordAt(sequence);
    throwCorruption("log record " + std::to_string(sequence) + " at word " + std::to_string(at) +
                        ": holds sequence " + std::to_string(row[0] >> 2) + " for slot " +
                        std::to_string(slot) + ", checksum found " + hexText(found) + ", computed " +
                        hexText(computed),
                    {DamagedPlace::word(at)});
  }
  return {slot, (row[0] & 1) != 0};
}

}  // namespace

bool isBegun(const Segment& segment, Word sequence) {
  return segment.load(segment.layout().recordAt(sequence)) >> 2 == sequence;
}

ChangeRecord checkRecord(const Segment& segment, Word sequence, Word* row) {
  const Word slotAndCheck = loadRecord(segment, sequence, row);
  return checked(segment.layout(), sequence, row, slotAndCheck);
}

RecordState readRecord(const Segment& segment, Word sequence, Word* row, ChangeRecord& record) {
  const Word slotAndCheck = loadRecord(segment, sequence, row);
  // L2 of RowProtocol.h.
  if (!inLog(segment.layout(), sequence, segment.load(kSequenceAt))) return RecordState::overrun;
  record = checked(segment.layout(), sequence, row, slotAndCheck);
  return RecordState::read;
}

}  // namespace Vesta

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vesta/AttachOptions.h"
#include "vesta/files/TableFiles.h"
#include "vesta/segment/RowWrites.h"

namespace Vesta {

/// The table's segment, sound and taken over: the one that is there, or a new one if it is missing, of
/// another kind, retired or damaged; what was there is then set aside. The caller holds the creation lock and
/// knows that nobody else writes. It has to wake everyone, here and below.
std::unique_ptr<RowWrites> soundSegment(TableFiles& files, const Layout& layout,
                                        const AttachOptions& options);

/// A row copied out of a segment: the version, the key and the entry.
struct SlotRow {
  std::uint32_t slot;
  std::vector<Word> words;
};

/// The rows of a damaged segment that pass their checks: one for each key, the newest; oldest first.
std::vector<SlotRow> intactRows(const std::shared_ptr<Segment>& damaged);

/// The keys whose rows in `rows` are not the last ones that `writes` knows of: lost, set back or returned.
std::vector<std::vector<Word>> changedKeys(const RowWrites& writes, const std::vector<SlotRow>& rows);

/// Replaces a damaged segment by a new one that continues from the sequence that `options` give. The rows
/// keep their slots, so that a walk over the table continues in the new segment.
std::unique_ptr<RowWrites> replaceDamaged(TableFiles& files, const Layout& layout, std::vector<SlotRow> rows,
                                          const std::string& reason, const AttachOptions& options);

/// Tells the log of an error concerning the table.
void logError(const AttachOptions& options, const std::string& text);

}  // namespace Vesta

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vesta/AttachOptions.h"
#include "vesta/files/TableFiles.h"
#include "vesta/segment/RowWrites.h"

namespace Vesta {

struct IntactSegment {
  std::unique_ptr<RowWrites> rows;  ///< never null
  bool wasDamaged = false;          ///< so it was replaced
};

/// The table's segment, intact and recovered. If it is missing, incompatible, retired or damaged, a new one
/// is created, and the old one retired. The caller holds the creation lock and knows that no other process
/// writes the table. It has to wake all readers, after this and after replaceDamaged.
IntactSegment intactSegment(TableFiles& files, const Layout& layout, const AttachOptions& options);

/// A row copied out of a segment: the version, the key and the entry.
struct SlotRow {
  std::uint32_t slot;
  std::vector<Word> words;
};

/// The rows of a damaged segment that pass their checks: the newest of each key, oldest first.
std::vector<SlotRow> intactRows(const std::shared_ptr<Segment>& damaged);

/// The keys that have another row in `rows` than in `writes`, or a row in only one of them: lost, set back or
/// returned.
std::vector<EncodedKey> changedKeys(const RowWrites& writes, const std::vector<SlotRow>& rows);

/// Replaces a damaged segment by a new one that continues from the sequence in `options`. Rows keep their
/// slots, so that a walk over the table continues in the new segment.
std::unique_ptr<RowWrites> replaceDamaged(TableFiles& files, const Layout& layout, std::vector<SlotRow> rows,
                                          const std::string& reason, const AttachOptions& options);

/// Logs an error that concerns the table.
void logError(const AttachOptions& options, const std::string& text);

}  // namespace Vesta

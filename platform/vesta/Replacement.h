#pragma once

#include <memory>

#include "vesta/AttachOptions.h"
#include "vesta/RowWrites.h"
#include "vesta/TableFiles.h"

namespace Vesta {

/// The table's segment, sound and taken over: the one that is there, or a new one if it is missing, of
/// another kind, retired or damaged; what was there is then set aside. The caller holds the creation lock and
/// knows that nobody else writes. It has to wake everyone, here and below.
std::unique_ptr<RowWrites> soundSegment(TableFiles& files, const Layout& layout,
                                        const AttachOptions& options);

/// Replaces a damaged segment by a new one that goes on from the sequence `options` give, with its sound rows
/// if they say so.
std::unique_ptr<RowWrites> replaceDamaged(TableFiles& files, std::shared_ptr<Segment> damaged,
                                          const std::string& reason, const AttachOptions& options);

/// Tells the log of an error concerning the table.
void logError(const AttachOptions& options, const std::string& text);

}  // namespace Vesta

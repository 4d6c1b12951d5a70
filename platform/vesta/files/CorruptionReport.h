#pragma once

#include <string>

#include "cairn/DebugHandler.h"
#include "vesta/files/RootPath.h"
#include "vesta/segment/Damage.h"

namespace Vesta {

/// Writes a report on damage to the segment at `path` beside it, to a new file "<collection>.report.<n>": the
/// message, time and pid, header and writer's page as read, and a dump of each damaged place, of the newest
/// retired segment, too. The number is one above the highest there, so it is never used again; of many
/// reports the first eight and the last eight are kept. Returns the file's path. Throws
/// Cairn::SystemException when the file cannot be written; that a segment cannot be read is part of the
/// report.
std::string writeCorruptionReport(const Cairn::DebugHandler& handler, const RootPath& path,
                                  const std::string& message, const DamagedPlaces& places);

}  // namespace Vesta

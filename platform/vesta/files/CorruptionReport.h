#pragma once

#include <string>

#include "cairn/DebugHandler.h"
#include "vesta/files/RootPath.h"

namespace Vesta {

/// Writes a report on damage found in the segment at `path` beside it, to a new file
/// "<collection>.report.<n>": the message, time and pid, header and writer's page as read, and a dump of each
/// slot and of the surroundings of each word that the message names. The number is one above the highest
/// there, so it is never used again; of many reports the first eight and the last eight are kept. Returns the
/// file's path. Throws Cairn::SystemException when the file cannot be written; a segment that cannot be read
/// is said so in the report.
std::string writeCorruptionReport(const Cairn::DebugHandler& handler, const RootPath& path,
                                  const std::string& message);

}  // namespace Vesta

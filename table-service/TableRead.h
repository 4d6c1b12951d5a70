// Reading a table that may turn out to be corrupt.
#pragma once

#include "cairn/Exception.h"
#include "vesta/IterHint.h"

namespace Vesta {

/// Runs `read` on `table`, a map or an entity that has one. Corruption that it detects is handed to the
/// table, which then reads as empty; false then. Detected on a table that is not attached any more, it passes
/// out.
template <class Table, class Read>
bool readTable(Table& table, const Read& read) {
  try {
    read();
    return true;
  } catch (const Cairn::CorruptionDetectedException& corruption) {
    table.corruptionDetected(corruption.message());
    return false;
  }
}

/// Calls `visit` with each row, its key and entry, in the table's own order. Corruption passes out.
template <class Map, class Visit>
void forEachRow(Map& map, const Visit& visit) {
  typename Map::Row row;
  IterHint hint;
  for (bool more = map.first(row, hint); more; more = map.next(row.key, row, hint)) visit(row);
}

}  // namespace Vesta

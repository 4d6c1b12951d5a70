#pragma once

#include "cairn/Exception.h"

namespace P4RuntimeTolmar {

/// Runs `read` on `table`. Corruption that it detects is reported to the table, which then reads as empty,
/// and false is returned. The report throws if the table is not attached any more; that exception passes
/// through.
template <class Table, class Read>
bool readTable(const Table& table, const Read& read) {
  try {
    read();
    return true;
  } catch (const Cairn::CorruptionDetectedException& damage) {
    table.corruptionDetected(damage.message());
    return false;
  }
}

}  // namespace P4RuntimeTolmar

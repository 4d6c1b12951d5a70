#pragma once

#include "cairn/Exception.h"

namespace P4RuntimeTolmar {

/// Runs `read` on `table`. Damage found by it is reported to the table, which then reads as empty; false
/// then. A table that is detached already raises the exception again, and it passes on.
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

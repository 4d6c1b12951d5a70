#pragma once

#include "vesta/VestaWriter.h"

/// Turns a bit of the row of `key` over, as a stray write would.
template <class Key, class Entry>
void damageRow(Vesta::VestaWriter<Key, Entry>& table, const Key& key) {
  Vesta::IterHint hint;
  bool found = false;
  table.directLookup(key, found, &hint);
  Vesta::Segment& segment = *table.segment().mapping();
  segment.at(segment.layout().slotAt(hint.slot) + 4) ^= 1u << 7;
}

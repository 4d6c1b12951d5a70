#pragma once

#include "vesta/VestaWriter.h"

/// The slot of the row of `key`.
template <class Key, class Entry>
Vesta::Word* slotOf(Vesta::VestaWriter<Key, Entry>& table, const Key& key) {
  Vesta::IterHint hint;
  bool found = false;
  table.directLookup(key, found, &hint);
  Vesta::Segment& segment = *table.bytes().sharedSegment();
  return &segment.at(segment.layout().slotAt(hint.slot));
}

/// Turns a bit of the row of `key` over, as a stray write would.
template <class Key, class Entry>
void damageRow(Vesta::VestaWriter<Key, Entry>& table, const Key& key) {
  slotOf(table, key)[4] ^= 1u << 7;
}

#pragma once

#include "vesta/VestaWriter.h"

/// Turns a bit of the row of `key` over, as a stray write would.
template <class Key, class Entry>
void damageRow(Vesta::VestaWriter<Key, Entry>& table, const Key& key) {
  Vesta::IterHint hint;
  bool found = false;
  table.directLookup(key, found, &hint);
  Vesta::Segment& segment = *table.segment().mapping();
  const unsigned copy = Vesta::copyOf(segment.load(segment.layout().slotAt(hint.slot)));
  segment.at(segment.layout().copyAt(hint.slot, copy) + 3) ^= 1u << 7;
}

// Records of the table kinds as text.
#pragma once

#include <sstream>
#include <string>

#include "P4RuntimeTolmar/Records.h"
#include "P4RuntimeTolmar/RowLayout.h"
#include "apps/ctl/Entry.h"
#include "rows/BaseRow.h"

namespace Ctl {

template <class Record, class Columns>
Fields fieldsOf(const Record& record, const Columns& columns) {
  Fields fields;
  TolmarHwLib::forEachColumn(columns, [&]<class C>(const C& column) {
    using Encoding = Lumen::Encoding<typename C::Type>;
    std::ostringstream text;
    Encoding::print(text, record.*column.member);
    fields.push_back(
        {column.name, text.str(), Encoding::kQuoted, record.*column.member == typename C::Type{}});
  });
  return fields;
}

template <class Config>
ConfigRow configRowOf(const Config& entry) {
  return {entry.genId, entry.entryHandle, entry.valid, fieldsOf(entry, Config::dataColumns)};
}

/// The record in a generic row. Throws Cairn::AssertionException for bytes that are no row of this kind.
template <class Config>
Config recordOf(const Lumen::BaseRow& row) {
  using Layout = TolmarHwLib::RowLayout<Config>;
  row.requireLayout(Layout::kFixedLength, Layout::kVariableColumns);
  Config entry{};
  TolmarHwLib::forEachIndex<Layout::kCount>([&]<std::size_t I>() {
    row.getColumn(Layout::kOffsets[I], entry.*std::get<I>(Layout::kColumns).member);
  });
  return entry;
}

}  // namespace Ctl

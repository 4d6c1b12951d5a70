// From rows to P4Runtime's table entries.
#pragma once

#include <string_view>

#include "apps/p4/Pipeline.h"
#include "p4/v1/p4runtime.pb.h"
#include "rows/BaseRow.h"

namespace Wire {

/// Fills `entry`, which is empty, with the row's key, action and metadata. Values have the shortest form; a
/// ternary field whose mask is 0 is left out. The bytes of `row` may come from anywhere: throws
/// Cairn::Exception for a row that is not laid out as one of the table, or whose addresses are not of the
/// table's family.
void encodeEntry(const Table& table, const Lumen::BaseRow& row, std::string_view metadata,
                 p4::v1::TableEntry& entry);

}  // namespace Wire

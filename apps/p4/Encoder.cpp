#include "apps/p4/Encoder.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/p4/Values.h"
#include "cairn/Exception.h"
#include "rows/Encoding.h"

namespace Wire {

namespace {

/// Reads the values of one row. What value() returns is valid until the next call.
class RowReader {
 public:
  RowReader(const Table& table, const Lumen::BaseRow& row) : table_(table), row_(row.bytes()) {
    row.requireLayout(table.rowClass->fixedLength(), table.rowClass->variableColumns());
    if (row.rowType() == table.rowClass->oid()) return;
    throw Cairn::Exception(fmt::format("table {}: expected rows of type {}, got {}", table.name,
                                       table.rowClass->oid(), row.rowType()));
  }

  std::string_view value(const Field& field, const Place& place) {
    if (field.bits == 1) return isZero(field, place) ? std::string_view("\0", 1) : std::string_view("\1", 1);
    return shortestValue(bytesAt(field, place), place, scratch_);
  }
  bool isZero(const Field& field, const Place& place) const {
    const std::byte* const first = bytesAt(field, place);
    return std::all_of(first, first + place.bytes, [](std::byte byte) { return byte == std::byte{}; });
  }
  std::uint32_t priority() const { return Lumen::loadBytes<std::uint32_t>(row_.data + table_.priority->at); }

 private:
  const std::byte* bytesAt(const Field& field, const Place& place) const {
    if (place.slot == 0) return row_.data + place.at;
    const auto address = Lumen::Encoding<IpGenAddr>::addressBytes(row_, place.slot);
    if (address.size() == place.bytes) return address.data();
    throw Cairn::Exception(fmt::format("table {}: expected {} address bytes in column {}, got {}",
                                       table_.name, place.bytes, field.name, address.size()));
  }

  const Table& table_;
  Lumen::RowBytes row_;
  std::array<char, 16> scratch_;
};

}  // namespace

void encodeEntry(const Table& table, const Lumen::BaseRow& row, std::string_view metadata,
                 p4::v1::TableEntry& entry) {
  RowReader reader(table, row);
  entry.set_table_id(table.id);
  entry.mutable_match()->Reserve(static_cast<int>(table.matchFields.size()));
  for (const Field& field : table.matchFields) {
    if (field.mask && reader.isZero(field, *field.mask)) continue;
    p4::v1::FieldMatch& match = *entry.add_match();
    match.set_field_id(field.id);
    const std::string_view value = reader.value(field, field.value);
    if (!field.mask) {
      match.mutable_exact()->set_value(value.data(), value.size());
      continue;
    }
    match.mutable_ternary()->set_value(value.data(), value.size());
    const std::string_view mask = reader.value(field, *field.mask);
    match.mutable_ternary()->set_mask(mask.data(), mask.size());
  }
  if (table.priority) entry.set_priority(static_cast<std::int32_t>(reader.priority()));
  p4::v1::Action& action = *entry.mutable_action()->mutable_action();
  action.set_action_id(table.actionId);
  action.mutable_params()->Reserve(static_cast<int>(table.parameters.size()));
  for (const Field& field : table.parameters) {
    p4::v1::Action::Param& parameter = *action.add_params();
    parameter.set_param_id(field.id);
    const std::string_view value = reader.value(field, field.value);
    parameter.set_value(value.data(), value.size());
  }
  if (!metadata.empty()) entry.set_metadata(metadata.data(), metadata.size());
}

}  // namespace Wire

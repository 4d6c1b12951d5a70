#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "apps/core/Status.h"
#include "apps/p4/Pipeline.h"
#include "p4/v1/p4runtime.pb.h"
#include "rows/BaseRow.h"

namespace Wire {

/// Builds one row of a table in place, without allocations until row(). The steps return false at the first
/// defect, which status() then reports.
class RowBuilder {
 public:
  explicit RowBuilder(const Table& table);

  /// Match fields and priority: each exact field once, each ternary field at most once.
  bool key(const p4::v1::TableEntry& entry);
  /// The table's action with each of its parameters once.
  bool action(const p4::v1::TableEntry& entry);
  /// What no entry of this agent may have besides: counters, meters, time-outs, the default action.
  bool nothingElse(const p4::v1::TableEntry& entry);
  bool metadata(const p4::v1::TableEntry& entry, std::size_t maxBytes);
  Lumen::BaseRow row() const;

  /// Refuses the entry, with the table's name before the text; always false.
  [[gnu::cold]] bool refuse(Agent::StatusCode code, const std::string& problem);
  Agent::Status status() && { return std::move(status_); }

 private:
  bool matchField(const p4::v1::FieldMatch& match, std::uint64_t& seen);
  bool ternary(const Field& field, std::string_view value, std::string_view mask);
  bool priority(std::int32_t priority);
  bool store(const char* kind, const Field& field, const Place& place, std::string_view value);
  const Field* fieldIn(const char* kind, const std::vector<Field>& fields, std::uint32_t id,
                       std::uint64_t& seen);
  bool requireAll(const char* kind, const std::vector<Field>& fields, std::uint64_t missing);

  const Table& table_;
  std::array<std::byte, kMaxRowBytes> bytes_;  // as many as Table::blankRow
  Agent::Status status_;
};

}  // namespace Wire

#include "apps/p4/RowBuilder.h"

#include <fmt/format.h>
#include <google/protobuf/message.h>

#include <cstring>
#include <limits>

#include "apps/p4/Values.h"

namespace Wire {

using Agent::StatusCode;

namespace {

constexpr const char* kMatchField = "match field";
constexpr const char* kParameter = "parameter";

[[gnu::cold]] std::string hexText(std::string_view value) {
  constexpr std::size_t kShown = 20;
  std::string text = "0x";
  for (const char byte : value.substr(0, kShown))
    text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  if (value.size() > kShown) text += fmt::format("... ({} bytes)", value.size());
  return text;
}

/// Which of the fields of the oneof is set, by its name; "none" when none is.
[[gnu::cold]] std::string setField(const google::protobuf::Message& message, const char* oneof) {
  const auto* const fields = message.GetDescriptor()->FindOneofByName(oneof);
  const auto* const field = message.GetReflection()->GetOneofFieldDescriptor(message, fields);
  return field == nullptr ? "none" : field->name();
}

std::uint64_t firstBits(std::size_t count) { return count == 0 ? 0 : ~std::uint64_t{0} >> (64 - count); }

/// The part of an entry that it may not have, or null.
const char* surplusPart(const p4::v1::TableEntry& entry) {
  if (entry.has_meter_config()) return "meter_config";
  if (entry.has_counter_data()) return "counter_data";
  if (entry.has_meter_counter_data()) return "meter_counter_data";
  if (entry.has_time_since_last_hit()) return "time_since_last_hit";
  if (entry.idle_timeout_ns() != 0) return "idle_timeout_ns";
  if (entry.controller_metadata() != 0) return "controller_metadata (superseded by metadata)";
  return entry.is_const() ? "is_const" : nullptr;
}

}  // namespace

RowBuilder::RowBuilder(const Table& table) : table_(table) {
  std::memcpy(bytes_.data(), table.blankRow.data(), table.blankRow.size());
}

bool RowBuilder::refuse(StatusCode code, const std::string& problem) {
  status_ = {code, fmt::format("table {}: {}", table_.name, problem)};
  return false;
}

Lumen::BaseRow RowBuilder::row() const {
  return Lumen::BaseRow::fromBytes(std::span(bytes_.data(), table_.blankRow.size()));
}

bool RowBuilder::key(const p4::v1::TableEntry& entry) {
  if (entry.is_default_action()) {
    return refuse(StatusCode::invalidArgument, "expected an entry with a key, got the default action");
  }
  std::uint64_t seen = 0;
  for (const p4::v1::FieldMatch& match : entry.match()) {
    if (!matchField(match, seen)) return false;
  }
  std::uint64_t missing = firstBits(table_.matchFields.size()) & ~seen;
  for (std::size_t i = 0; missing != 0 && i < table_.matchFields.size(); ++i) {
    if (table_.matchFields[i].mask) missing &= ~(std::uint64_t{1} << i);  // mask 0 and value 0
  }
  return requireAll(kMatchField, table_.matchFields, missing) && priority(entry.priority());
}

bool RowBuilder::matchField(const p4::v1::FieldMatch& match, std::uint64_t& seen) {
  const Field* const field = fieldIn(kMatchField, table_.matchFields, match.field_id(), seen);
  if (field == nullptr) return false;
  if (!field->mask && match.has_exact())
    return store(kMatchField, *field, field->value, match.exact().value());
  if (field->mask && match.has_ternary()) {
    return ternary(*field, match.ternary().value(), match.ternary().mask());
  }
  return refuse(StatusCode::invalidArgument,
                fmt::format("match field {}: expected {}, got {}", field->name,
                            field->mask ? "ternary" : "exact", setField(match, "field_match_type")));
}

bool RowBuilder::ternary(const Field& field, std::string_view value, std::string_view mask) {
  if (!store(kMatchField, field, field.value, value) ||
      !store("mask of match field", field, *field.mask, mask)) {
    return false;
  }
  std::byte anyMask{};
  std::byte outside{};
  for (std::size_t i = 0; i < field.value.bytes; ++i) {
    const std::byte maskByte = bytes_[field.mask->at + i];
    anyMask |= maskByte;
    outside |= bytes_[field.value.at + i] & ~maskByte;
  }
  if (anyMask == std::byte{}) {
    return refuse(
        StatusCode::invalidArgument,
        fmt::format("match field {}: expected a mask other than 0, or the field left out, got mask {}",
                    field.name, hexText(mask)));
  }
  if (outside != std::byte{}) {
    return refuse(StatusCode::invalidArgument,
                  fmt::format("match field {}: expected no value bits outside the mask {}, got value {}",
                              field.name, hexText(mask), hexText(value)));
  }
  return true;
}

bool RowBuilder::priority(std::int32_t priority) {
  if (!table_.priority) {
    if (priority == 0) return true;
    return refuse(StatusCode::invalidArgument,
                  fmt::format("expected no priority beside exact match fields, got {}", priority));
  }
  if (priority > 0) {
    Lumen::storeBytes(&bytes_[table_.priority->at], static_cast<std::uint32_t>(priority));
    return true;
  }
  return refuse(StatusCode::invalidArgument, fmt::format("expected a priority from 1 to {}, got {}",
                                                         std::numeric_limits<std::int32_t>::max(), priority));
}

bool RowBuilder::action(const p4::v1::TableEntry& entry) {
  if (!entry.action().has_action()) {
    return refuse(StatusCode::invalidArgument,
                  fmt::format("expected action, got {}", setField(entry.action(), "type")));
  }
  const p4::v1::Action& action = entry.action().action();
  if (action.action_id() != table_.actionId) {
    return refuse(StatusCode::invalidArgument,
                  fmt::format("expected action {:#010x} ({}), got {:#010x}", table_.actionId,
                              table_.actionName(), action.action_id()));
  }
  std::uint64_t seen = 0;
  for (const p4::v1::Action::Param& param : action.params()) {
    const Field* const field = fieldIn(kParameter, table_.parameters, param.param_id(), seen);
    if (field == nullptr || !store(kParameter, *field, field->value, param.value())) return false;
  }
  return requireAll(kParameter, table_.parameters, firstBits(table_.parameters.size()) & ~seen);
}

bool RowBuilder::nothingElse(const p4::v1::TableEntry& entry) {
  const char* const part = surplusPart(entry);
  return part == nullptr || refuse(StatusCode::invalidArgument,
                                   fmt::format("expected key, action and metadata alone, got {}", part));
}

bool RowBuilder::metadata(const p4::v1::TableEntry& entry, std::size_t maxBytes) {
  return entry.metadata().size() <= maxBytes ||
         refuse(StatusCode::invalidArgument, fmt::format("expected metadata of at most {} bytes, got {}",
                                                         maxBytes, entry.metadata().size()));
}

bool RowBuilder::store(const char* kind, const Field& field, const Place& place, std::string_view value) {
  const Fit fit = storeValue(value, place, field.bits, bytes_.data());
  if (fit == Fit::fits) [[likely]]
    return true;
  return refuse(StatusCode::outOfRange,
                fmt::format("{} {}: expected a value of at most {} bits, got {}", kind, field.name,
                            field.bits, fit == Fit::empty ? "no bytes" : hexText(value)));
}

/// The field with that id, now seen; null when there is none or it has been seen before.
const Field* RowBuilder::fieldIn(const char* kind, const std::vector<Field>& fields, std::uint32_t id,
                                 std::uint64_t& seen) {
  const std::uint32_t index = id - 1;
  if (index >= fields.size()) {
    refuse(StatusCode::invalidArgument,
           fmt::format("expected a {} id from 1 to {}, got {}", kind, fields.size(), id));
    return nullptr;
  }
  const std::uint64_t bit = std::uint64_t{1} << index;
  if ((seen & bit) != 0) {
    refuse(StatusCode::invalidArgument,
           fmt::format("{} {}: expected once, got it twice", kind, fields[index].name));
    return nullptr;
  }
  seen |= bit;
  return &fields[index];
}

bool RowBuilder::requireAll(const char* kind, const std::vector<Field>& fields, std::uint64_t missing) {
  if (missing == 0) [[likely]]
    return true;
  std::string names;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if ((missing >> i & 1) != 0) names += (names.empty() ? "" : ", ") + fields[i].name;
  }
  return refuse(StatusCode::invalidArgument, fmt::format("expected every {}, got none for {}", kind, names));
}

}  // namespace Wire

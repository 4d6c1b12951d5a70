#include "apps/p4/Decoder.h"

#include <fmt/format.h>

#include "apps/p4/RowBuilder.h"

namespace Wire {

using Agent::Status;
using Agent::StatusCode;

namespace {

/// The entity's table entry, or null with the reason in `status`.
const p4::v1::TableEntry* tableEntryOf(const p4::v1::Entity& entity, Status& status) {
  if (entity.has_table_entry()) [[likely]]
    return &entity.table_entry();
  if (entity.entity_case() == p4::v1::Entity::ENTITY_NOT_SET) {
    status = {StatusCode::invalidArgument, "expected an entity, got none"};
    return nullptr;
  }
  const auto* const field = p4::v1::Entity::descriptor()->FindFieldByNumber(entity.entity_case());
  status = {StatusCode::unimplemented, fmt::format("expected a table_entry, got {}", field->name())};
  return nullptr;
}

bool updateTypeOf(const p4::v1::Update& update, Agent::UpdateType& type) {
  switch (update.type()) {
    case p4::v1::Update::INSERT:
      type = Agent::UpdateType::insert;
      return true;
    case p4::v1::Update::MODIFY:
      type = Agent::UpdateType::modify;
      return true;
    case p4::v1::Update::DELETE:
      type = Agent::UpdateType::remove;
      return true;
    default:
      return false;
  }
}

}  // namespace

Status Decoder::unknownTable(std::uint32_t id) const {
  std::string known;
  for (const Table& table : pipeline_.tables()) {
    known += fmt::format("{}{:#010x} ({})", known.empty() ? "" : ", ", table.id, table.name);
  }
  return {StatusCode::invalidArgument, fmt::format("expected a table of {}, got {:#010x}", known, id)};
}

Status Decoder::decode(const p4::v1::Update& update, DecodedUpdate& decoded) const {
  decoded.table = nullptr;
  Status status;
  const p4::v1::TableEntry* const entry = tableEntryOf(update.entity(), status);
  if (entry == nullptr) return status;
  decoded.table = pipeline_.table(entry->table_id());
  if (decoded.table == nullptr) return unknownTable(entry->table_id());
  RowBuilder builder(*decoded.table);
  if (!updateTypeOf(update, decoded.type)) {
    builder.refuse(StatusCode::invalidArgument, fmt::format("expected INSERT, MODIFY or DELETE, got type {}",
                                                            static_cast<int>(update.type())));
    return std::move(builder).status();
  }
  const bool isRemoval = decoded.type == Agent::UpdateType::remove;
  const bool isGood =
      builder.key(*entry) && (isRemoval || (builder.nothingElse(*entry) && builder.action(*entry) &&
                                            builder.metadata(*entry, maxMetadata_)));
  if (!isGood) return std::move(builder).status();
  decoded.row = builder.row();
  decoded.metadata = isRemoval ? std::string_view() : entry->metadata();
  return status;
}

Status Decoder::decode(const p4::v1::Entity& entity, ReadFilter& filter) const {
  Status status;
  const p4::v1::TableEntry* const entry = tableEntryOf(entity, status);
  if (entry == nullptr) return status;
  filter = {};
  const bool isKeyless = entry->match().empty() && entry->priority() == 0;
  if (entry->table_id() == 0) {
    if (isKeyless && !entry->is_default_action()) return status;
    return {StatusCode::invalidArgument, "expected a table id beside a key or the default action, got 0"};
  }
  filter.table = pipeline_.table(entry->table_id());
  if (filter.table == nullptr) return unknownTable(entry->table_id());
  if (isKeyless && !entry->is_default_action()) return status;
  RowBuilder builder(*filter.table);
  if (!builder.key(*entry)) return std::move(builder).status();
  filter.key = builder.row();
  return status;
}

}  // namespace Wire

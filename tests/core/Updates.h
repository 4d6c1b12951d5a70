#pragma once

#include <string>

#include "apps/core/AgentCore.h"

/// "+5" inserts entry 5 of l3IifTH3, "~5" modifies and "-5" removes it.
inline Agent::Update updateFrom(Agent::AgentCore& core, const std::string& text) {
  using Agent::UpdateType;
  const std::vector<Lumen::ColumnText> fields = {{"l3Iif", std::string_view(text).substr(1)}, {"vrf", "9"}};
  const UpdateType type = text[0] == '+'   ? UpdateType::insert
                          : text[0] == '~' ? UpdateType::modify
                                           : UpdateType::remove;
  Agent::ConfigTable* const table = core.table("l3IifTH3");
  return {type, table, table->row(fields), {}, {}};
}

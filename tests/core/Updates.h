#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "apps/core/AgentCore.h"
#include "lumen/RowText.h"

/// "+5" or "+5=9" inserts entry 5 of l3IifTH3, with VRF 9, "~5=9" modifies and "-5" removes it; "+5=9:text"
/// has that text for metadata.
inline Agent::Update updateFrom(Agent::AgentCore& core, const std::string& text) {
  using Agent::UpdateType;
  const std::size_t colon = std::min(text.find(':'), text.size());
  const std::size_t equals = std::min(text.find('='), colon);
  const std::string number = text.substr(1, equals - 1);
  const std::string vrf = equals == colon ? "1" : text.substr(equals + 1, colon - equals - 1);
  const UpdateType type = text[0] == '+'   ? UpdateType::insert
                          : text[0] == '~' ? UpdateType::modify
                                           : UpdateType::remove;
  Agent::ConfigTable* const table = core.table("l3IifTH3");
  const std::vector<Lumen::ColumnText> fields = {{"l3Iif", number}, {"vrf", vrf}};
  Agent::Update made{type, table, Lumen::rowFromText(table->rowClass(), fields), {}, {}};
  if (colon != text.size()) made.metadata = std::make_unique<const std::string>(text.substr(colon + 1));
  return made;
}

#include "apps/client/Catalogue.h"

#include <algorithm>

#include "cairn/Exception.h"
#include "p4/config/v1/p4info.pb.h"

namespace Client {

namespace {

namespace Config = p4::config::v1;

/// By width, where it leaves no choice, and by the annotation.
template <class Described>
Format formatOf(const Described& field) {
  if (field.bitwidth() == 1) return Format::boolean;
  for (const std::string& annotation : field.annotations()) {
    if (annotation == "@format(MAC_ADDRESS)" && field.bitwidth() == 48) return Format::mac;
    if (annotation == "@format(IPV4_ADDRESS)" && field.bitwidth() == 32) return Format::ipv4;
    if (annotation == "@format(IPV6_ADDRESS)" && field.bitwidth() == 128) return Format::ipv6;
  }
  return Format::number;
}

template <class Described>
Field fieldOf(const Described& field) {
  return {field.name(), field.id(), static_cast<unsigned>(field.bitwidth()), formatOf(field), false};
}

Table tableOf(const Config::Table& described, const Config::P4Info& info) {
  Table table{described.preamble().name(), described.preamble().id(), 0, false, {}, {}};
  const auto refuse = [&table](const std::string& problem) {
    throw Cairn::Exception("P4Info: table " + table.name + ": " + problem);
  };
  for (const Config::MatchField& match : described.match_fields()) {
    const bool isTernary = match.match_type() == Config::MatchField::TERNARY;
    if (!isTernary && match.match_type() != Config::MatchField::EXACT) {
      refuse("expected exact or ternary match fields, got another kind for " + match.name());
    }
    table.matchFields.push_back(fieldOf(match));
    table.matchFields.back().isTernary = isTernary;
    table.hasPriority = table.hasPriority || isTernary;
  }
  if (described.action_refs_size() != 1) {
    refuse("expected one action, got " + std::to_string(described.action_refs_size()));
  }
  table.actionId = described.action_refs(0).id();
  for (const Config::Action& action : info.actions()) {
    if (action.preamble().id() != table.actionId) continue;
    for (const auto& parameter : action.params()) table.parameters.push_back(fieldOf(parameter));
  }
  return table;
}

}  // namespace

Catalogue::Catalogue(const Config::P4Info& info) {
  for (const Config::Table& described : info.tables()) tables_.push_back(tableOf(described, info));
}

const Table& Catalogue::table(std::string_view name) const {
  std::string names;
  for (const Table& each : tables_) {
    if (each.name == name) return each;
    names += (names.empty() ? "" : ", ") + each.name;
  }
  throw Cairn::Exception("expected a table (" + names + "), got \"" + std::string(name) + "\"");
}

const Table* Catalogue::table(std::uint32_t id) const noexcept {
  const auto found =
      std::find_if(tables_.begin(), tables_.end(), [id](const Table& each) { return each.id == id; });
  return found == tables_.end() ? nullptr : &*found;
}

}  // namespace Client

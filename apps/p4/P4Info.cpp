#include "apps/p4/P4Info.h"

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include "cairn/Exception.h"

namespace Wire {

namespace {

namespace Config = p4::config::v1;

/// Version of the tables; a controller compares it. It changes when tables do, not with each release.
constexpr const char* kPipelineVersion = "1.0.0";

void nameIs(Config::Preamble& preamble, std::uint32_t id, const std::string& name) {
  preamble.set_id(id);
  preamble.set_name(name);
  preamble.set_alias(name);
}

/// So that clients can print addresses as such: 32 bits may also be a number.
template <class Described>
void formatIs(Described& described, Format format) {
  constexpr const char* kAnnotations[] = {"", "@format(MAC_ADDRESS)", "@format(IPV4_ADDRESS)",
                                          "@format(IPV6_ADDRESS)"};
  if (format != Format::number) described.add_annotations(kAnnotations[static_cast<std::size_t>(format)]);
}

void fillTable(Config::Table& message, const Table& table) {
  nameIs(*message.mutable_preamble(), table.id, table.name);
  for (const Field& field : table.matchFields) {
    Config::MatchField& match = *message.add_match_fields();
    match.set_id(field.id);
    match.set_name(field.name);
    match.set_bitwidth(field.bits);
    formatIs(match, field.format);
    match.set_match_type(field.mask ? Config::MatchField::TERNARY : Config::MatchField::EXACT);
  }
  Config::ActionRef& action = *message.add_action_refs();
  action.set_id(table.actionId);
  action.set_scope(Config::ActionRef::TABLE_ONLY);  // no table has a default action
  message.set_size(table.capacity);
}

void fillAction(Config::Action& message, const Table& table) {
  nameIs(*message.mutable_preamble(), table.actionId, table.actionName());
  for (const Field& field : table.parameters) {
    Config::Action::Param& parameter = *message.add_params();
    parameter.set_id(field.id);
    parameter.set_name(field.name);
    parameter.set_bitwidth(field.bits);
    formatIs(parameter, field.format);
  }
}

}  // namespace

Config::P4Info p4InfoOf(const Pipeline& pipeline) {
  Config::P4Info info;
  info.mutable_pkg_info()->set_name("tolmar");
  info.mutable_pkg_info()->set_version(kPipelineVersion);
  for (const Table& table : pipeline.tables()) {
    fillTable(*info.add_tables(), table);
    fillAction(*info.add_actions(), table);
  }
  return info;
}

std::string formatted(const Config::P4Info& info, P4InfoFormat format) {
  std::string out;
  bool done = false;
  if (format == P4InfoFormat::text) {
    done = google::protobuf::TextFormat::PrintToString(info, &out);
  } else if (format == P4InfoFormat::binary) {
    done = info.SerializeToString(&out);
  } else {
    google::protobuf::util::JsonPrintOptions options;
    options.add_whitespace = true;
    done = google::protobuf::util::MessageToJsonString(info, &out, options).ok();
  }
  if (!done) throw Cairn::Exception("P4Info could not be formatted");
  return out;
}

}  // namespace Wire

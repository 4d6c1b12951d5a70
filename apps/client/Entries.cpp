#include "apps/client/Entries.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "cairn/Exception.h"

namespace Client {

namespace {

using p4::v1::TableEntry;

constexpr const char* kPriority = "priority";
constexpr const char* kMetadata = "metadata";

const Field* named(const std::vector<Field>& fields, std::string_view name) {
  const auto found =
      std::find_if(fields.begin(), fields.end(), [name](const Field& field) { return field.name == name; });
  return found == fields.end() ? nullptr : &*found;
}

std::string namesOf(const Table& table) {
  std::string names;
  for (const auto* fields : {&table.matchFields, &table.parameters}) {
    for (const Field& field : *fields) names += field.name + ", ";
  }
  return names + (table.hasPriority ? "priority, metadata" : "metadata");
}

std::string onesOf(unsigned bits) {
  std::string bytes((bits + 7) / 8, '\xff');
  if (bits % 8 != 0) bytes[0] = static_cast<char>((1 << bits % 8) - 1);
  return bytes;
}

void addMatch(const Field& field, std::string_view text, TableEntry& entry) {
  p4::v1::FieldMatch& match = *entry.add_match();
  match.set_field_id(field.id);
  if (!field.isTernary) return match.mutable_exact()->set_value(bytesOf(text, field.bits));
  const std::size_t slash = text.find('/');
  match.mutable_ternary()->set_value(bytesOf(text.substr(0, slash), field.bits));
  const bool isMasked = slash != std::string_view::npos;
  match.mutable_ternary()->set_mask(isMasked ? bytesOf(text.substr(slash + 1), field.bits)
                                             : onesOf(field.bits));
}

std::int32_t priorityOf(std::string_view text) {
  std::int32_t priority = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), priority);
  if (error == std::errc{} && end == text.data() + text.size()) return priority;
  throw Cairn::Exception("expected a number of 32 bits, got \"" + std::string(text) + "\"");
}

/// Bytes with a leading zero count here, unlike in numbers.
std::string metadataOf(const std::string& text) {
  if (!text.starts_with("0x")) return text;
  std::string bytes;
  for (std::size_t i = 2; i < text.size(); i += 2) {
    unsigned byte = 0;
    const auto [end, error] =
        std::from_chars(&text[i], &text[i] + std::min(text.size() - i, std::size_t{2}), byte, 16);
    if (end != &text[i] + 2)
      throw Cairn::Exception("expected pairs of hexadecimal digits, got \"" + text + "\"");
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

std::string metadataText(const std::string& bytes) {
  const bool isPlain = !bytes.starts_with("0x") &&
                       std::all_of(bytes.begin(), bytes.end(), [](char c) { return c > ' ' && c <= '~'; });
  if (isPlain) return bytes;
  std::string text = "0x";
  for (const char byte : bytes) {
    for (const int shift : {4, 0})
      text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> shift & 0xf];
  }
  return text;
}

/// Adds the field to the entry, or its value to those of the parameters.
void add(const Table& table, const FieldText& field, TableEntry& entry,
         std::vector<std::string>& parameters) {
  if (const Field* const match = named(table.matchFields, field.name)) {
    addMatch(*match, field.value, entry);
  } else if (const Field* const parameter = named(table.parameters, field.name)) {
    parameters[static_cast<std::size_t>(parameter - table.parameters.data())] =
        bytesOf(field.value, parameter->bits);
  } else if (field.name == kPriority) {
    entry.set_priority(priorityOf(field.value));
  } else if (field.name == kMetadata) {
    entry.set_metadata(metadataOf(field.value));
  } else {
    throw Cairn::Exception("expected one of " + namesOf(table) + ", got \"" + field.name + "\"");
  }
}

}  // namespace

std::vector<FieldText> fieldsOf(std::span<const std::string> words) {
  std::vector<FieldText> fields;
  for (const std::string& word : words) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw Cairn::Exception("expected FIELD=VALUE, got \"" + word + "\"");
    }
    fields.push_back({word.substr(0, equals), word.substr(equals + 1)});
  }
  return fields;
}

std::string joined(std::span<const FieldText> fields) {
  std::string text;
  for (const FieldText& field : fields) {
    if (!text.empty()) text += ' ';
    text.append(field.name).append("=").append(field.value);
  }
  return text;
}

TableEntry entryOf(const Table& table, std::span<const FieldText> fields, Part part) {
  TableEntry entry;
  entry.set_table_id(table.id);
  std::vector<std::string> parameters(table.parameters.size(), std::string(1, '\0'));
  std::set<std::string_view> seen;
  for (const FieldText& field : fields) {
    if (!seen.insert(field.name).second) {
      throw Cairn::Exception("expected each field once, got \"" + field.name + "\" twice");
    }
    try {
      add(table, field, entry, parameters);
    } catch (const Cairn::Exception& error) {
      throw Cairn::Exception("field \"" + field.name + "\" of " + table.name + ": " + error.message());
    }
  }
  if (part == Part::key) return entry;
  p4::v1::Action& action = *entry.mutable_action()->mutable_action();
  action.set_action_id(table.actionId);
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    p4::v1::Action::Param& parameter = *action.add_params();
    parameter.set_param_id(table.parameters[i].id);
    parameter.set_value(std::move(parameters[i]));
  }
  return entry;
}

std::vector<FieldText> fieldsOf(const Table& table, const TableEntry& entry, Part part) {
  std::vector<FieldText> fields;
  for (const Field& field : table.matchFields) {
    for (const p4::v1::FieldMatch& match : entry.match()) {
      if (match.field_id() != field.id) continue;
      std::string text =
          textOf(field.isTernary ? match.ternary().value() : match.exact().value(), field.format);
      if (field.isTernary) text.append("/").append(textOf(match.ternary().mask(), field.format));
      fields.push_back({field.name, text});
    }
  }
  if (entry.priority() != 0) fields.push_back({kPriority, std::to_string(entry.priority())});
  if (part == Part::key) return fields;
  for (const p4::v1::Action::Param& parameter : entry.action().action().params()) {
    for (const Field& field : table.parameters) {
      if (field.id == parameter.param_id())
        fields.push_back({field.name, textOf(parameter.value(), field.format)});
    }
  }
  if (!entry.metadata().empty()) fields.push_back({kMetadata, metadataText(entry.metadata())});
  return fields;
}

std::vector<FieldText> generatedFields(const Table& table, std::uint64_t number,
                                       std::span<const FieldText> given, Part part) {
  std::vector<FieldText> fields(given.begin(), given.end());
  const auto add = [&](const std::string& name, const std::string& value) {
    const auto isName = [&name](const FieldText& field) { return field.name == name; };
    if (std::none_of(given.begin(), given.end(), isName)) fields.push_back({name, value});
  };
  for (const Field& field : table.matchFields) add(field.name, generated(number, field.bits, field.format));
  if (table.hasPriority) add(kPriority, std::to_string(number % 0x7fffffff + 1));
  if (part == Part::key) return fields;
  for (const Field& field : table.parameters) add(field.name, generated(number, field.bits, field.format));
  return fields;
}

}  // namespace Client

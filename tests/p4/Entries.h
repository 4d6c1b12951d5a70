// The pipeline of the four tables and entries of random values for them.
#pragma once

#include <algorithm>
#include <array>
#include <random>
#include <string>

#include "apps/p4/Pipeline.h"
#include "p4/v1/p4runtime.pb.h"

namespace Entries {

inline const Wire::Pipeline& pipeline() {
  static const Wire::Pipeline made(Wire::outputTables());
  return made;
}

using Random = std::mt19937_64;

/// A value of at most `bits` bits in its shortest form; short values are as likely as long ones.
inline std::string randomValue(unsigned bits, Random& random) {
  const unsigned used = static_cast<unsigned>(random() % bits) + 1;
  std::string value((used + 7) / 8, '\0');
  for (char& byte : value) byte = static_cast<char>(random());
  value[0] = static_cast<char>(static_cast<unsigned char>(value[0]) & (0xffu >> (7 - (used - 1) % 8)));
  value.erase(0, std::min(value.find_first_not_of('\0'), value.size() - 1));
  return value;
}

/// Both of one length, value bits inside the mask, the mask not 0.
inline void randomTernary(unsigned bits, Random& random, p4::v1::FieldMatch::Ternary& match) {
  std::string mask = randomValue(bits, random);
  if (mask == std::string(1, '\0')) mask = "\1";
  std::string value = mask;
  for (char& byte : value) byte = static_cast<char>(static_cast<unsigned char>(byte) & random());
  value.erase(0, std::min(value.find_first_not_of('\0'), value.size() - 1));
  match.set_value(value);
  match.set_mask(mask);
}

/// An entry whose fields, masks included, are what `value` returns for each.
template <class Value>
p4::v1::TableEntry filledEntry(const Wire::Table& table, const Value& value) {
  p4::v1::TableEntry entry;
  entry.set_table_id(table.id);
  for (const Wire::Field& field : table.matchFields) {
    p4::v1::FieldMatch& match = *entry.add_match();
    match.set_field_id(field.id);
    std::string& place =
        field.mask ? *match.mutable_ternary()->mutable_value() : *match.mutable_exact()->mutable_value();
    place = value(field);
    if (field.mask) match.mutable_ternary()->set_mask(place);
  }
  if (table.priority) entry.set_priority(9);
  entry.mutable_action()->mutable_action()->set_action_id(table.actionId);
  for (const Wire::Field& field : table.parameters) {
    auto& param = *entry.mutable_action()->mutable_action()->add_params();
    param.set_param_id(field.id);
    param.set_value(value(field));
  }
  return entry;
}

/// An entry as Reads return it: fields in the order of their ids, values in the shortest form.
inline p4::v1::TableEntry randomEntry(const Wire::Table& table, Random& random) {
  p4::v1::TableEntry entry =
      filledEntry(table, [&](const Wire::Field& field) { return randomValue(field.bits, random); });
  auto& fields = *entry.mutable_match();
  for (int i = fields.size(); table.priority && i-- > 0;) {
    if (random() % 3 == 0) {
      fields.DeleteSubrange(i, 1);
    } else {
      randomTernary(table.matchFields[static_cast<std::size_t>(i)].bits, random,
                    *fields[i].mutable_ternary());
    }
  }
  if (table.priority) entry.set_priority(static_cast<std::int32_t>(random() % 0x7fffffff) + 1);
  entry.set_metadata(std::string(random() % 5, 'm'));
  return entry;
}

/// The same entry as a controller may send it: fields in any order, values with leading zeros.
inline p4::v1::TableEntry disguised(p4::v1::TableEntry entry, Random& random) {
  const auto lengthen = [&random](std::string& text) { text.insert(0, random() % 4, '\0'); };
  for (auto& field : *entry.mutable_match()) {
    if (field.has_exact()) lengthen(*field.mutable_exact()->mutable_value());
    if (field.has_ternary()) lengthen(*field.mutable_ternary()->mutable_value());
    if (field.has_ternary()) lengthen(*field.mutable_ternary()->mutable_mask());
  }
  auto& params = *entry.mutable_action()->mutable_action()->mutable_params();
  for (auto& param : params) lengthen(*param.mutable_value());
  std::shuffle(params.pointer_begin(), params.pointer_end(), random);
  std::shuffle(entry.mutable_match()->pointer_begin(), entry.mutable_match()->pointer_end(), random);
  return entry;
}

inline p4::v1::Update updateOf(const p4::v1::TableEntry& entry,
                               p4::v1::Update::Type type = p4::v1::Update::INSERT) {
  p4::v1::Update update;
  update.set_type(type);
  *update.mutable_entity()->mutable_table_entry() = entry;
  return update;
}

}  // namespace Entries

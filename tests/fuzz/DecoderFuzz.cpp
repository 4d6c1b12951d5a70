// Updates as hostile input. The first byte chooses between bytes off the wire, as they are, and a good entry
// that the rest changes piece by piece, which comes further. What the decoder takes must come back from a
// Read as the same entry; what it refuses must have a code of its own and a text.
#include <google/protobuf/util/message_differencer.h>

#include <cstdint>
#include <string>

#include "Fuzz.h"
#include "apps/p4/Decoder.h"
#include "apps/p4/Encoder.h"
#include "tests/p4/Entries.h"

namespace {

using Agent::StatusCode;
using p4::v1::Update;

const Wire::Decoder& decoder() {
  static const Wire::Decoder made(Entries::pipeline(), 16);
  return made;
}

template <class Elements>
void changeElements(Elements& elements, std::uint8_t what, std::uint8_t which) {
  if (elements.empty()) return;
  const int index = which % elements.size();
  if (what == 0) elements.DeleteSubrange(index, 1);
  if (what == 1) *elements.Add() = elements.at(index);
  if (what == 2) elements.SwapElements(0, index);
}

void changeValue(std::string& value, std::uint8_t how) {
  if (how < 64) value.resize(how % 20, static_cast<char>(how));
  if (how >= 64 && how < 128) value.insert(0, how % 20, '\0');
  if (how >= 128 && !value.empty()) value[how % value.size()] = static_cast<char>(how * 37);
}

void changeMatch(p4::v1::FieldMatch& match, std::uint8_t how) {
  if (how % 8 == 0) match.set_field_id(how / 8);
  if (how % 8 == 1) changeValue(*match.mutable_exact()->mutable_value(), how);
  if (how % 8 == 2) changeValue(*match.mutable_ternary()->mutable_value(), how);
  if (how % 8 == 3) changeValue(*match.mutable_ternary()->mutable_mask(), how);
  if (how % 8 == 4) match.clear_field_match_type();
  if (how % 8 == 5) match.mutable_optional();
}

/// Three bytes for each change: what, which, how.
void change(p4::v1::TableEntry& entry, const std::uint8_t* bytes) {
  auto& action = *entry.mutable_action()->mutable_action();
  const auto [what, which, how] = std::tuple{bytes[0], bytes[1], bytes[2]};
  if (what < 48) changeElements(*entry.mutable_match(), what % 3, which);
  if (what >= 48 && what < 96) changeElements(*action.mutable_params(), what % 3, which);
  if (what >= 96 && what < 144 && entry.match_size() != 0) {
    changeMatch(*entry.mutable_match(which % entry.match_size()), how);
  }
  if (what >= 144 && what < 192 && action.params_size() != 0) {
    auto& param = *action.mutable_params(which % action.params_size());
    what % 4 == 0 ? param.set_param_id(how) : changeValue(*param.mutable_value(), how);
  }
  if (what == 192) entry.set_table_id(0x02000000u + how % 6);
  if (what == 193) action.set_action_id(0x01000000u + how % 6);
  if (what == 194) entry.set_priority(static_cast<std::int8_t>(how));
  if (what == 195) entry.mutable_action()->clear_type();
  if (what == 196) entry.set_metadata(std::string(how, 'm'));
  if (what == 197) entry.set_is_const(true);
}

Update updateFrom(const std::uint8_t* data, std::size_t size) {
  Update update;
  if (data[0] % 4 == 0) {
    static_cast<void>(update.ParseFromArray(data + 1, static_cast<int>(size - 1)));
    return update;
  }
  Entries::Random random(data[1]);
  const auto& tables = Entries::pipeline().tables();
  update = Entries::updateOf(Entries::randomEntry(tables[data[0] / 4 % tables.size()], random));
  update.set_type(static_cast<Update::Type>(data[2] % 5));
  for (std::size_t at = 3; at + 3 <= size; at += 3)
    change(*update.mutable_entity()->mutable_table_entry(), data + at);
  return update;
}

void checkRefusal(const Agent::Status& status) {
  mustHold(!status.message.empty() && status.message.size() < 4096);
  mustHold(status.code == StatusCode::invalidArgument || status.code == StatusCode::outOfRange ||
           status.code == StatusCode::unimplemented);
}

p4::v1::TableEntry encoded(const Wire::DecodedUpdate& decoded) {
  p4::v1::TableEntry entry;
  Wire::encodeEntry(*decoded.table, decoded.row, decoded.metadata, entry);
  return entry;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) return 0;
  const Update update = updateFrom(data, size);
  Wire::ReadFilter filter;
  const Agent::Status filtered = decoder().decode(update.entity(), filter);
  if (!filtered.ok()) checkRefusal(filtered);
  Wire::DecodedUpdate decoded;
  const Agent::Status status = decoder().decode(update, decoded);
  if (!status.ok()) {
    checkRefusal(status);
    return 0;
  }
  mustHold(filtered.ok() && filter.table == decoded.table);
  const p4::v1::TableEntry entry = encoded(decoded);
  const Update rewrite = Entries::updateOf(entry, Update::MODIFY);
  Wire::DecodedUpdate again;
  mustHold(decoder().decode(rewrite, again).ok());
  mustHold(again.table == decoded.table && again.row.rowEqual(decoded.row));
  mustHold(again.metadata == decoded.metadata);
  mustHold(google::protobuf::util::MessageDifferencer::Equals(encoded(again), entry));
  return 0;
}

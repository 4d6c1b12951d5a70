// What becomes of each update that a controller can send, good ones as rows and bad ones as codes and texts.
#include "apps/p4/Decoder.h"

#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <span>

#include "apps/p4/Encoder.h"
#include "cairn/Exception.h"
#include "lumen/RowText.h"
#include "tests/p4/Entries.h"

namespace {

using Agent::StatusCode;
using p4::v1::TableEntry;
using p4::v1::Update;

enum TableNumber : std::size_t { kIpv4, kIpv6, kStation, kIif };

const Wire::Decoder& decoder() {
  static const Wire::Decoder made(Entries::pipeline(), 8);
  return made;
}

/// An entry of the table whose fields all have the value 1 under the mask 3.
TableEntry sampleEntry(TableNumber number) {
  const Wire::Table& table = Entries::pipeline().tables()[number];
  TableEntry entry;
  entry.set_table_id(0x02000001 + static_cast<std::uint32_t>(number));
  for (std::uint32_t id = 1; id <= table.matchFields.size(); ++id) {
    auto& match = *entry.add_match();
    match.set_field_id(id);
    if (number == kStation) {
      match.mutable_ternary()->set_value("\1");
      match.mutable_ternary()->set_mask(id == 4 ? "\1" : "\3");
    } else {
      match.mutable_exact()->set_value("\1");
    }
  }
  if (number == kStation) entry.set_priority(9);
  entry.mutable_action()->mutable_action()->set_action_id(0x01000001 + static_cast<std::uint32_t>(number));
  for (std::uint32_t id = 1; id <= table.parameters.size(); ++id) {
    auto& param = *entry.mutable_action()->mutable_action()->add_params();
    param.set_param_id(id);
    param.set_value("\1");
  }
  return entry;
}

TableEntry& entry(Update& update) { return *update.mutable_entity()->mutable_table_entry(); }
p4::v1::TableAction& tableAction(Update& update) { return *entry(update).mutable_action(); }
p4::v1::Action& action(Update& update) { return *tableAction(update).mutable_action(); }
p4::v1::FieldMatch& match(Update& update, int index = 0) { return *entry(update).mutable_match(index); }
std::string& value(Update& update) { return *match(update).mutable_exact()->mutable_value(); }
p4::v1::FieldMatch::Ternary& ternary(Update& update, int index = 0) {
  return *match(update, index).mutable_ternary();
}

struct Case {
  TableNumber table;
  void (*change)(Update& update);
  const char* text;  // without the table's name
  StatusCode code = StatusCode::invalidArgument;
};

constexpr StatusCode kRange = StatusCode::outOfRange;

/// Refused in every update and in Reads.
const Case kInKeys[] = {
    {kIif, [](Update& u) { u.clear_entity(); }, "expected an entity, got none"},
    {kIif, [](Update& u) { u.mutable_entity()->Clear(); }, "expected an entity, got none"},
    {kIif, [](Update& u) { u.mutable_entity()->mutable_meter_entry(); },
     "expected a table_entry, got meter_entry", StatusCode::unimplemented},
    {kIif, [](Update& u) { entry(u).set_table_id(0x02000005); },
     "expected a table of 0x02000001 (l3TunnelIpv4TH3), 0x02000002 (l3TunnelIpv6TH3), 0x02000003 "
     "(myStationTcamTH3), 0x02000004 (l3IifTH3), got 0x02000005"},
    {kIif, [](Update& u) { entry(u).set_is_default_action(true); },
     "expected an entry with a key, got the default action"},

    {kIif, [](Update& u) { match(u).clear_field_id(); }, "expected a match field id from 1 to 1, got 0"},
    {kIpv4, [](Update& u) { match(u).set_field_id(6); }, "expected a match field id from 1 to 5, got 6"},
    {kIif, [](Update& u) { *entry(u).add_match() = match(u); },
     "match field l3Iif: expected once, got it twice"},
    {kIpv4, [](Update& u) { entry(u).mutable_match()->DeleteSubrange(1, 3); },
     "expected every match field, got none for dip, protocol, l4DestPort"},
    {kIif, [](Update& u) { match(u).clear_exact(); }, "match field l3Iif: expected an exact match, got none"},
    {kIif, [](Update& u) { ternary(u); }, "match field l3Iif: expected an exact match, got a ternary match"},
    {kStation, [](Update& u) { value(u); },
     "match field macAddr: expected a ternary match, got an exact match"},
    {kStation, [](Update& u) { match(u).mutable_other(); },
     "match field macAddr: expected a ternary match, got an architecture-specific match"},

    {kIif, [](Update& u) { value(u).clear(); },
     "match field l3Iif: expected a value of at most 64 bits, got no bytes", kRange},
    {kIif, [](Update& u) { value(u) = "\1" + std::string(8, '\2'); },
     "match field l3Iif: expected a value of at most 64 bits, got 0x010202020202020202", kRange},
    {kIpv4, [](Update& u) { value(u) = std::string(300, '\1'); },
     "match field sip: expected a value of at most 32 bits, got "
     "0x0101010101010101010101010101010101010101... (300 bytes)",
     kRange},
    {kStation, [](Update& u) { ternary(u, 3).set_mask("\3"); },
     "mask of match field t: expected a value of at most 1 bits, got 0x03", kRange},
    {kStation, [](Update& u) { ternary(u).clear_mask(); },
     "mask of match field macAddr: expected a value of at most 48 bits, got no bytes", kRange},
    {kStation,
     [](Update& u) { ternary(u).mutable_value()->front() = ternary(u).mutable_mask()->front() = '\0'; },
     "match field macAddr: expected a mask other than 0, or the field left out, got mask 0x00"},
    {kStation, [](Update& u) { ternary(u, 1).set_value("\5"); },
     "match field vlanId: expected no value bits outside the mask 0x03, got value 0x05"},

    {kIif, [](Update& u) { entry(u).set_priority(-1); },
     "expected no priority beside exact match fields, got -1"},
    {kStation, [](Update& u) { entry(u).set_priority(0); },
     "expected a priority from 1 to 2147483647, got 0"},
    {kStation, [](Update& u) { entry(u).set_priority(-1); },
     "expected a priority from 1 to 2147483647, got -1"},
};

/// Ignored in removals.
const Case kInTheRest[] = {
    {kIif, [](Update& u) { entry(u).clear_action(); }, "expected an action, got none"},
    {kIif, [](Update& u) { tableAction(u).clear_action(); },
     "expected an action, got an action without kind"},
    {kIif, [](Update& u) { tableAction(u).set_action_profile_member_id(1); },
     "expected an action, got an action profile member"},
    {kIif, [](Update& u) { tableAction(u).set_action_profile_group_id(1); },
     "expected an action, got an action profile group"},
    {kIif, [](Update& u) { tableAction(u).mutable_action_profile_action_set(); },
     "expected an action, got a one-shot action set"},
    {kIif, [](Update& u) { action(u).set_action_id(0x01000003); },
     "expected action 0x01000004 (set_l3IifTH3), got 0x01000003"},
    {kIif, [](Update& u) { action(u).mutable_params()->RemoveLast(); },
     "expected every parameter, got none for vrf"},
    {kIif, [](Update& u) { action(u).mutable_params(9)->set_param_id(1); },
     "parameter classId: expected once, got it twice"},
    {kIif, [](Update& u) { action(u).add_params()->set_param_id(11); },
     "expected a parameter id from 1 to 10, got 11"},
    {kIif, [](Update& u) { action(u).mutable_params(9)->clear_value(); },
     "parameter vrf: expected a value of at most 16 bits, got no bytes", kRange},
    {kIif, [](Update& u) { action(u).mutable_params(5)->set_value("\2"); },
     "parameter intEnable: expected a value of at most 1 bits, got 0x02", kRange},
    {kIif, [](Update& u) { entry(u).set_metadata("123456789"); },
     "expected metadata of at most 8 bytes, got 9"},
};

/// The status of the entry in an update; a text without the table's name before it.
Agent::Status statusOf(Update update, Update::Type type) {
  update.set_type(type);
  Wire::DecodedUpdate decoded;
  Agent::Status status = decoder().decode(update, decoded);
  const std::string name = decoded.table == nullptr ? "" : "table " + decoded.table->name + ": ";
  EXPECT_TRUE(status.ok() || status.message.starts_with(name)) << status.message;
  if (!status.ok()) status.message.erase(0, name.size());
  return status;
}

Agent::Status filterOf(const Update& update, Wire::ReadFilter& filter) {
  Agent::Status status = decoder().decode(update.entity(), filter);
  EXPECT_EQ(status.ok(), status.message.empty());
  return status;
}

TEST(Decode, RefusesWithCodeAndText) {
  for (const std::span<const Case> cases : {std::span<const Case>(kInKeys), {kInTheRest}}) {
    const bool isInKeys = cases.data() == kInKeys;
    for (const auto& [table, change, text, code] : cases) {
      SCOPED_TRACE(text);
      Update update = Entries::updateOf(sampleEntry(table));
      change(update);
      for (const auto type : {Update::INSERT, Update::MODIFY, Update::DELETE}) {
        const bool isRefused = isInKeys || type != Update::DELETE;
        const Agent::Status status = statusOf(update, type);
        EXPECT_EQ(status.code, isRefused ? code : StatusCode::ok);
        EXPECT_EQ(status.message, isRefused ? text : "");
      }
      Wire::ReadFilter filter;
      EXPECT_EQ(filterOf(update, filter).code, isInKeys ? code : StatusCode::ok);
    }
  }
}

TEST(Decode, RefusesOtherTypesAndPartsOfAnEntry) {
  for (const int type : {0, 9}) {
    EXPECT_EQ(statusOf(Entries::updateOf(sampleEntry(kIif)), static_cast<Update::Type>(type)).message,
              "expected INSERT, MODIFY or DELETE, got type " + std::to_string(type));
  }
  for (const std::string part :
       {"meter_config {}", "counter_data {}", "meter_counter_data {}", "time_since_last_hit {}",
        "idle_timeout_ns: 1", "controller_metadata: 1", "is_const: true"}) {
    Update update = Entries::updateOf(sampleEntry(kIif));
    ASSERT_TRUE(google::protobuf::TextFormat::MergeFromString(part, &entry(update)));
    const std::string text =
        "expected key, action and metadata alone, got " + part.substr(0, part.find_first_of(" :"));
    EXPECT_TRUE(statusOf(update, Update::INSERT).message.starts_with(text));
    EXPECT_EQ(statusOf(update, Update::MODIFY).code, StatusCode::invalidArgument);
    EXPECT_TRUE(statusOf(update, Update::DELETE).ok());
  }
}

/// The row as text, less the agent's own columns.
std::string rowOf(Update& update) {
  Wire::DecodedUpdate decoded;
  const Agent::Status status = decoder().decode(update, decoded);
  if (!status.ok()) return status.message;
  std::string text = Lumen::rowText(decoded.row);
  const std::string_view own = "genId = 0, entryHandle = 0, valid = false, ";
  EXPECT_TRUE(text.starts_with(own)) << text;
  return std::string(decoded.metadata) + "|" + text.substr(own.size());
}

TEST(Row, HasEveryColumnOfItsEntry) {
  Update iif = Entries::updateOf(sampleEntry(kIif));
  value(iif) = "\1\2\3\4\5\6\7\x08";
  action(iif).mutable_params(0)->set_value("\x12\x34");
  action(iif).mutable_params(0)->Swap(action(iif).mutable_params(7));
  entry(iif).set_metadata("12345678");
  EXPECT_EQ(rowOf(iif),
            "12345678|l3Iif = 72623859790382856, classId = 4660, ecnDecapMappingPtr = 1, "
            "flexCtrBaseCounterIdx = 1, "
            "flexCtrOffsetMode = 1, flexCtrPoolNumber = 1, intEnable = true, ipmcL3Iif = 1, "
            "ipOptionProfileIndex = 1, l3IifProfileIndex = 1, vrf = 1");
  Update station = Entries::updateOf(sampleEntry(kStation));
  match(station).Swap(&match(station, 3));
  entry(station).mutable_match()->DeleteSubrange(1, 1);
  EXPECT_THAT(
      rowOf(station),
      testing::StartsWith(
          "|macAddr = \"00:00:00:00:00:01\", vlanId = 0, portNum = 1, t = true, macAddrMask = "
          "\"00:00:00:00:00:03\", vlanIdMask = 0, portNumMask = 3, tMask = true, priority = 9, arpRarp"));
  Update ipv4 = Entries::updateOf(sampleEntry(kIpv4), Update::DELETE);
  value(ipv4) = std::string("\0\0\xc0\0\2\1", 6);
  EXPECT_TRUE(
      rowOf(ipv4).starts_with("|sip = \"192.0.2.1\", dip = \"0.0.0.1\", protocol = 1, l4DestPort = 1, "
                              "l4SrcPort = 1, allowedPortBitmapProfilePtr = 0, bfdEnable = false, "));
  Update ipv6 = Entries::updateOf(sampleEntry(kIpv6));
  value(ipv6) = std::string("\x20\1", 2) + std::string(14, '\5');
  EXPECT_THAT(rowOf(ipv6),
              testing::StartsWith("|sip = \"2001:505:505:505:505:505:505:505\", dip = \"::1\", "));
}

TEST(Row, OfAnotherShapeIsNotEncoded) {
  Update ipv4 = Entries::updateOf(sampleEntry(kIpv4));
  Wire::DecodedUpdate decoded;
  ASSERT_TRUE(decoder().decode(ipv4, decoded).ok());
  for (const TableNumber other : {kIpv6, kStation}) {
    TableEntry read;
    const Wire::Table& table = Entries::pipeline().tables()[other];
    EXPECT_THROW(Wire::encodeEntry(table, decoded.row, "", read), Cairn::Exception);
  }
}

struct FilterCase {
  TableNumber table;
  void (*change)(Update& update);
  std::uint32_t tableId;
  bool hasKey = false;
};

TEST(Filter, NamesTableAndKey) {
  const FilterCase cases[] = {
      {kIif, [](Update& u) { entry(u).Clear(); }, 0},
      {kIif, [](Update& u) { entry(u).clear_match(); }, 0x02000004},
      {kStation, [](Update& u) { entry(u).clear_match(), entry(u).clear_priority(); }, 0x02000003},
      {kIif, [](Update& u) { entry(u).clear_action(); }, 0x02000004, true},
      {kStation, [](Update&) {}, 0x02000003, true},
      {kStation, [](Update& u) { entry(u).clear_match(); }, 0x02000003, true},
  };
  for (const FilterCase& tried : cases) {
    Update update = Entries::updateOf(sampleEntry(tried.table), Update::DELETE);
    tried.change(update);
    SCOPED_TRACE(update.ShortDebugString());
    Wire::ReadFilter filter;
    EXPECT_TRUE(filterOf(update, filter).ok());
    EXPECT_EQ(filter.table == nullptr ? 0 : filter.table->id, tried.tableId);
    EXPECT_EQ(!filter.key.isNull(), tried.hasKey);
    if (!tried.hasKey) continue;
    Wire::DecodedUpdate decoded;
    ASSERT_TRUE(decoder().decode(update, decoded).ok());
    EXPECT_TRUE(filter.key.rowEqual(decoded.row));
  }
  Update keyOfNoTable = Entries::updateOf(sampleEntry(kIif));
  entry(keyOfNoTable).set_table_id(0);
  Update defaultActions;
  entry(defaultActions).set_is_default_action(true);
  for (const Update& update : {keyOfNoTable, defaultActions}) {
    Wire::ReadFilter filter;
    EXPECT_EQ(filterOf(update, filter).code, StatusCode::invalidArgument);
  }
}

}  // namespace

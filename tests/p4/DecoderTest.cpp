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
  TableEntry entry =
      Entries::filledEntry(Entries::pipeline().tables()[number], [](const Wire::Field&) { return "\1"; });
  for (auto& match : *entry.mutable_match()) {
    if (match.has_ternary() && match.field_id() != 4) match.mutable_ternary()->set_mask("\3");
  }
  return entry;
}

/// The entry with `from` in its text replaced by `to`; a `from` that ends with dots extends to the end.
TableEntry changedEntry(TableNumber number, std::string_view from, const std::string& to) {
  std::string text = sampleEntry(number).ShortDebugString();
  const bool isRest = from.ends_with("...");
  if (isRest) from.remove_suffix(3);
  const std::size_t at = text.find(from);
  EXPECT_NE(at, text.npos) << from << " in " << text;
  text.replace(at, isRest ? text.npos : from.size(), to);
  TableEntry changed;
  EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &changed)) << text;
  return changed;
}

struct Case {
  TableNumber table;
  const char* from;
  const char* to;
  const char* text;  // without the table's name
  StatusCode code = StatusCode::invalidArgument;
};

constexpr StatusCode kRange = StatusCode::outOfRange;

/// Refused in every update and in Reads.
const Case kInKeys[] = {
    {kIif, "table_id: 33554436", "table_id: 5",
     "expected a table of 0x02000001 (l3TunnelIpv4TH3), 0x02000002 (l3TunnelIpv6TH3), 0x02000003 "
     "(myStationTcamTH3), 0x02000004 (l3IifTH3), got 0x00000005"},
    {kIif, "", "is_default_action: true ", "expected an entry with a key, got the default action"},
    {kIif, "field_id: 1", "", "expected a match field id from 1 to 1, got 0"},
    {kIpv4, "field_id: 1", "field_id: 6", "expected a match field id from 1 to 5, got 6"},
    {kIpv4, "field_id: 2", "field_id: 1", "match field sip: expected once, got it twice"},
    {kIpv4, "match { field_id: 4...", "", "expected every match field, got none for l4DestPort, l4SrcPort"},
    {kIif, R"(exact { value: "\001" })", "", "match field l3Iif: expected exact, got none"},
    {kIif, "exact", "ternary", "match field l3Iif: expected exact, got ternary"},
    {kStation, R"(ternary { value: "\001" mask: "\003" })", "other { }",
     "match field macAddr: expected ternary, got other"},

    {kIif, R"(value: "\001")", "", "match field l3Iif: expected a value of at most 64 bits, got no bytes",
     kRange},
    {kIif, R"(value: "\001")", R"(value: "123456789")",
     "match field l3Iif: expected a value of at most 64 bits, got 0x313233343536373839", kRange},
    {kIpv4, R"(value: "\001")", R"(value: "123456789123456789123")",
     "match field sip: expected a value of at most 32 bits, got "
     "0x3132333435363738393132333435363738393132... "
     "(21 bytes)",
     kRange},
    {kStation, R"(mask: "\001")", R"(mask: "\003")",
     "mask of match field t: expected a value of at most 1 bits, got 0x03", kRange},
    {kStation, R"(mask: "\003")", "",
     "mask of match field macAddr: expected a value of at most 48 bits, got no bytes", kRange},
    {kStation, R"(value: "\001" mask: "\003")", R"(value: "\000" mask: "\000")",
     "match field macAddr: expected a mask other than 0, or the field left out, got mask 0x00"},
    {kStation, R"(value: "\001")", R"(value: "\005")",
     "match field macAddr: expected no value bits outside the mask 0x03, got value 0x05"},

    {kIif, "", "priority: -1 ", "expected no priority beside exact match fields, got -1"},
    {kStation, "priority: 9", "", "expected a priority from 1 to 2147483647, got 0"},
    {kStation, "priority: 9", "priority: -1", "expected a priority from 1 to 2147483647, got -1"},
};

/// Ignored in removals and in Reads.
const Case kInTheRest[] = {
    {kIif, "action...", "", "expected action, got none"},
    {kIif, "action...", "action { action_profile_group_id: 1 }",
     "expected action, got action_profile_group_id"},
    {kIif, "action_id: 16777220", "action_id: 7",
     "expected action 0x01000004 (set_l3IifTH3), got 0x00000007"},
    {kIif, "params { param_id: 10...", "} }", "expected every parameter, got none for vrf"},
    {kIif, "param_id: 10", "param_id: 1", "parameter classId: expected once, got it twice"},
    {kIif, "param_id: 10", "param_id: 11", "expected a parameter id from 1 to 10, got 11"},
    {kIif, R"(10 value: "\001")", "10", "parameter vrf: expected a value of at most 16 bits, got no bytes",
     kRange},
    {kIif, R"(6 value: "\001")", R"(6 value: "\002")",
     "parameter intEnable: expected a value of at most 1 bits, got 0x02", kRange},

    {kIif, "", "meter_config { } ", "expected key, action and metadata alone, got meter_config"},
    {kIif, "", "counter_data { } ", "expected key, action and metadata alone, got counter_data"},
    {kIif, "", "meter_counter_data { } ", "expected key, action and metadata alone, got meter_counter_data"},
    {kIif, "", "time_since_last_hit { } ",
     "expected key, action and metadata alone, got time_since_last_hit"},
    {kIif, "", "idle_timeout_ns: 1 ", "expected key, action and metadata alone, got idle_timeout_ns"},
    {kIif, "", "controller_metadata: 1 ",
     "expected key, action and metadata alone, got controller_metadata (superseded by metadata)"},
    {kIif, "", "is_const: true ", "expected key, action and metadata alone, got is_const"},
    {kIif, "", R"(metadata: "123456789" )", "expected metadata of at most 8 bytes, got 9"},
};

/// The status of an update, its text without the table's name before it.
Agent::Status statusOf(Update update, Update::Type type) {
  update.set_type(type);
  Wire::DecodedUpdate decoded;
  Agent::Status status = decoder().decode(update, decoded);
  const std::string name = decoded.table == nullptr ? "" : "table " + decoded.table->name + ": ";
  EXPECT_TRUE(status.ok() || status.message.starts_with(name)) << status.message;
  if (!status.ok()) status.message.erase(0, name.size());
  return status;
}

StatusCode filterCode(const p4::v1::Entity& entity, Wire::ReadFilter& filter) {
  const Agent::Status status = decoder().decode(entity, filter);
  EXPECT_EQ(status.ok(), status.message.empty());
  return status.code;
}

TEST(Decode, RefusesWithCodeAndText) {
  for (const std::span<const Case> cases : {std::span<const Case>(kInKeys), {kInTheRest}}) {
    const bool isInKeys = cases.data() == kInKeys;
    for (const auto& [table, from, to, text, code] : cases) {
      SCOPED_TRACE(text);
      const Update update = Entries::updateOf(changedEntry(table, from, to));
      for (const auto type : {Update::INSERT, Update::MODIFY, Update::DELETE}) {
        const bool isRefused = isInKeys || type != Update::DELETE;
        const Agent::Status status = statusOf(update, type);
        EXPECT_EQ(status.code, isRefused ? code : StatusCode::ok);
        EXPECT_EQ(status.message, isRefused ? text : "");
      }
      Wire::ReadFilter filter;
      EXPECT_EQ(filterCode(update.entity(), filter), isInKeys ? code : StatusCode::ok);
    }
  }
}

TEST(Decode, RefusesWhatIsNoUpdateOfAnEntry) {
  for (const int type : {0, 9}) {
    EXPECT_EQ(statusOf(Entries::updateOf(sampleEntry(kIif)), static_cast<Update::Type>(type)).message,
              "expected INSERT, MODIFY or DELETE, got type " + std::to_string(type));
  }
  Update other;
  Wire::ReadFilter filter;
  EXPECT_EQ(statusOf(other, Update::DELETE).message, "expected an entity, got none");
  EXPECT_EQ(filterCode(other.entity(), filter), StatusCode::invalidArgument);
  other.mutable_entity()->mutable_meter_entry();
  EXPECT_EQ(statusOf(other, Update::DELETE).message, "expected a table_entry, got meter_entry");
  EXPECT_EQ(filterCode(other.entity(), filter), StatusCode::unimplemented);
}

/// The row as text, less the agent's own columns.
std::string rowOf(const TableEntry& entry, Update::Type type = Update::INSERT) {
  const Update update = Entries::updateOf(entry, type);
  Wire::DecodedUpdate decoded;
  const Agent::Status status = decoder().decode(update, decoded);
  if (!status.ok()) return status.message;
  std::string text = Lumen::rowText(decoded.row);
  const std::string_view own = "genId = 0, entryHandle = 0, valid = false, ";
  EXPECT_TRUE(text.starts_with(own)) << text;
  return std::string(decoded.metadata) + "|" + text.substr(own.size());
}

TEST(Row, HasEveryColumnOfItsEntry) {
  TableEntry iif = changedEntry(kIif, R"(value: "\001")", R"(value: "\001\002\003\004\005\006\007\010")");
  auto& parameters = *iif.mutable_action()->mutable_action()->mutable_params();
  parameters[0].set_value("\x12\x34");
  parameters.SwapElements(0, 7);
  iif.set_metadata("12345678");
  EXPECT_EQ(rowOf(iif),
            "12345678|l3Iif = 72623859790382856, classId = 4660, ecnDecapMappingPtr = 1, "
            "flexCtrBaseCounterIdx = 1, "
            "flexCtrOffsetMode = 1, flexCtrPoolNumber = 1, intEnable = true, ipmcL3Iif = 1, "
            "ipOptionProfileIndex = 1, l3IifProfileIndex = 1, vrf = 1");
  TableEntry station = sampleEntry(kStation);
  station.mutable_match()->SwapElements(0, 3);
  station.mutable_match()->DeleteSubrange(1, 1);
  EXPECT_THAT(
      rowOf(station),
      testing::StartsWith(
          "|macAddr = \"00:00:00:00:00:01\", vlanId = 0, portNum = 1, t = true, macAddrMask = "
          "\"00:00:00:00:00:03\", vlanIdMask = 0, portNumMask = 3, tMask = true, priority = 9, arpRarp"));
  EXPECT_THAT(rowOf(changedEntry(kIpv4, R"(\001)", R"(\000\000\300\000\002\001)"), Update::DELETE),
              testing::StartsWith("|sip = \"192.0.2.1\", dip = \"0.0.0.1\", protocol = 1, l4DestPort = 1, "
                                  "l4SrcPort = 1, allowedPortBitmapProfilePtr = 0, bfdEnable = false, "));
  EXPECT_THAT(rowOf(changedEntry(kIpv6, R"(\001)", R"(\040\00155555555555555)")),
              testing::StartsWith("|sip = \"2001:3535:3535:3535:3535:3535:3535:3535\", dip = \"::1\", "));
}

TEST(Row, OfAnotherShapeIsNotEncoded) {
  const Update ipv4 = Entries::updateOf(sampleEntry(kIpv4));
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
  const char* from;
  const char* to;
  std::uint32_t tableId;
  bool hasKey;
};

TEST(Filter, NamesTableAndKey) {
  const FilterCase cases[] = {
      {kIif, "...", "", 0, false},
      {kIif, "match...", "", 0x02000004, false},
      {kStation, "match...", "", 0x02000003, false},
      {kIif, "action...", "", 0x02000004, true},
      {kStation, "", "", 0x02000003, true},
      {kStation, "match...", "priority: 9", 0x02000003, true},
  };
  for (const auto& [table, from, to, tableId, hasKey] : cases) {
    const Update update = Entries::updateOf(changedEntry(table, from, to), Update::DELETE);
    SCOPED_TRACE(update.ShortDebugString());
    Wire::ReadFilter filter;
    EXPECT_EQ(filterCode(update.entity(), filter), StatusCode::ok);
    EXPECT_EQ(filter.table == nullptr ? 0 : filter.table->id, tableId);
    EXPECT_EQ(!filter.key.isNull(), hasKey);
    if (!hasKey) continue;
    Wire::DecodedUpdate decoded;
    ASSERT_TRUE(decoder().decode(update, decoded).ok());
    EXPECT_TRUE(filter.key.rowEqual(decoded.row));
  }
  for (const TableEntry& entry :
       {changedEntry(kIif, "table_id: 33554436", ""), changedEntry(kIif, "...", "is_default_action: true")}) {
    Wire::ReadFilter filter;
    EXPECT_EQ(filterCode(Entries::updateOf(entry).entity(), filter), StatusCode::invalidArgument);
  }
}

}  // namespace

// What becomes of each update that a controller can send, good ones as rows and bad ones as codes and texts.
#include "apps/p4/Decoder.h"

#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include "apps/p4/Encoder.h"
#include "cairn/Exception.h"
#include "lumen/RowText.h"
#include "tests/p4/Entries.h"

namespace {

using Agent::StatusCode;
using google::protobuf::util::MessageDifferencer;
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

struct Case {
  const char* name;
  TableNumber table;
  void (*change)(Update& update);
  StatusCode code;  // of an INSERT and a MODIFY
  StatusCode codeOfDelete;
  const char* text;  // of the INSERT's status; null where only its code counts
};

TableEntry& entry(Update& update) { return *update.mutable_entity()->mutable_table_entry(); }
p4::v1::TableAction& tableAction(Update& update) { return *entry(update).mutable_action(); }
p4::v1::Action& action(Update& update) { return *tableAction(update).mutable_action(); }
p4::v1::FieldMatch& match(Update& update, int index = 0) { return *entry(update).mutable_match(index); }
std::string& value(Update& update) { return *match(update).mutable_exact()->mutable_value(); }
p4::v1::FieldMatch::Ternary& ternary(Update& update, int index = 0) {
  return *match(update, index).mutable_ternary();
}

constexpr StatusCode kOk = StatusCode::ok;
constexpr StatusCode kInvalid = StatusCode::invalidArgument;
constexpr StatusCode kRange = StatusCode::outOfRange;
constexpr StatusCode kUnimplemented = StatusCode::unimplemented;

const Case kCases[] = {
    {"Good", kIif, [](Update&) {}, kOk, kOk, ""},
    {"NoType", kIif, [](Update& u) { u.clear_type(); }, kInvalid, kInvalid,
     "table l3IifTH3: expected INSERT, MODIFY or DELETE, got type 0"},
    {"UnknownType", kIif, [](Update& u) { u.set_type(static_cast<Update::Type>(9)); }, kInvalid, kInvalid,
     "table l3IifTH3: expected INSERT, MODIFY or DELETE, got type 9"},
    {"NoEntity", kIif, [](Update& u) { u.clear_entity(); }, kInvalid, kInvalid,
     "expected an entity, got none"},
    {"EmptyEntity", kIif, [](Update& u) { u.mutable_entity()->Clear(); }, kInvalid, kInvalid,
     "expected an entity, got none"},
    {"OtherEntity", kIif, [](Update& u) { u.mutable_entity()->mutable_meter_entry(); }, kUnimplemented,
     kUnimplemented, "expected a table_entry, got meter_entry"},
    {"NoTable", kIif, [](Update& u) { entry(u).set_table_id(0); }, kInvalid, kInvalid,
     "expected a table of 0x02000001 (l3TunnelIpv4TH3), 0x02000002 (l3TunnelIpv6TH3), 0x02000003 "
     "(myStationTcamTH3), 0x02000004 (l3IifTH3), got 0x00000000"},
    {"UnknownTable", kIif, [](Update& u) { entry(u).set_table_id(0x02000005); }, kInvalid, kInvalid, nullptr},
    {"DefaultAction", kIif, [](Update& u) { entry(u).set_is_default_action(true); }, kInvalid, kInvalid,
     "table l3IifTH3: expected an entry with a key, got the default action"},

    {"FieldId0", kIif, [](Update& u) { match(u).clear_field_id(); }, kInvalid, kInvalid,
     "table l3IifTH3: expected a match field id from 1 to 1, got 0"},
    {"FieldIdBeyond", kIpv4, [](Update& u) { match(u).set_field_id(6); }, kInvalid, kInvalid,
     "table l3TunnelIpv4TH3: expected a match field id from 1 to 5, got 6"},
    {"FieldTwice", kIif, [](Update& u) { *entry(u).add_match() = entry(u).match(0); }, kInvalid, kInvalid,
     "table l3IifTH3: match field l3Iif: expected once, got it twice"},
    {"FieldsMissing", kIpv4, [](Update& u) { entry(u).mutable_match()->DeleteSubrange(1, 3); }, kInvalid,
     kInvalid, "table l3TunnelIpv4TH3: expected every match field, got none for dip, protocol, l4DestPort"},
    {"FieldWithoutKind", kIif, [](Update& u) { match(u).clear_exact(); }, kInvalid, kInvalid,
     "table l3IifTH3: match field l3Iif: expected an exact match, got none"},
    {"TernaryForExact", kIif, [](Update& u) { ternary(u); }, kInvalid, kInvalid,
     "table l3IifTH3: match field l3Iif: expected an exact match, got a ternary match"},
    {"ExactForTernary", kStation, [](Update& u) { value(u); }, kInvalid, kInvalid,
     "table myStationTcamTH3: match field macAddr: expected a ternary match, got an exact match"},
    {"Lpm", kIif, [](Update& u) { match(u).mutable_lpm(); }, kInvalid, kInvalid, nullptr},
    {"Range", kIif, [](Update& u) { match(u).mutable_range(); }, kInvalid, kInvalid, nullptr},
    {"Optional", kStation, [](Update& u) { match(u).mutable_optional(); }, kInvalid, kInvalid, nullptr},
    {"OtherMatch", kStation, [](Update& u) { match(u).mutable_other(); }, kInvalid, kInvalid,
     "table myStationTcamTH3: match field macAddr: expected a ternary match, got an architecture-specific "
     "match"},

    {"EmptyValue", kIif, [](Update& u) { value(u).clear(); }, kRange, kRange,
     "table l3IifTH3: match field l3Iif: expected a value of at most 64 bits, got no bytes"},
    {"LeadingZeros", kIif, [](Update& u) { value(u).insert(0, 30, '\0'); }, kOk, kOk, ""},
    {"TooWide", kIif, [](Update& u) { value(u) = "\1" + std::string(8, '\2'); }, kRange, kRange,
     "table l3IifTH3: match field l3Iif: expected a value of at most 64 bits, got 0x010202020202020202"},
    {"AddressTooWide", kIpv4, [](Update& u) { value(u) = std::string(300, '\1'); }, kRange, kRange,
     "table l3TunnelIpv4TH3: match field sip: expected a value of at most 32 bits, got "
     "0x0101010101010101010101010101010101010101... (300 bytes)"},
    {"BoolTooWide", kStation, [](Update& u) { ternary(u, 3).set_mask("\3"); }, kRange, kRange,
     "table myStationTcamTH3: mask of match field t: expected a value of at most 1 bits, got 0x03"},

    {"MaskEmpty", kStation, [](Update& u) { ternary(u).clear_mask(); }, kRange, kRange,
     "table myStationTcamTH3: mask of match field macAddr: expected a value of at most 48 bits, got no "
     "bytes"},
    {"MaskZero", kStation,
     [](Update& u) {
       ternary(u).set_value(std::string(1, '\0'));
       ternary(u).set_mask(std::string(2, '\0'));
     },
     kInvalid, kInvalid,
     "table myStationTcamTH3: match field macAddr: expected a mask other than 0, or the field left out, got "
     "mask "
     "0x0000"},
    {"ValueOutsideMask", kStation, [](Update& u) { ternary(u, 1).set_value("\5"); }, kInvalid, kInvalid,
     "table myStationTcamTH3: match field vlanId: expected no value bits outside the mask 0x03, got value "
     "0x05"},
    {"TernaryLeftOut", kStation, [](Update& u) { entry(u).clear_match(); }, kOk, kOk, ""},

    {"PriorityBesideExact", kIif, [](Update& u) { entry(u).set_priority(1); }, kInvalid, kInvalid,
     "table l3IifTH3: expected no priority beside exact match fields, got 1"},
    {"PriorityZero", kStation, [](Update& u) { entry(u).set_priority(0); }, kInvalid, kInvalid,
     "table myStationTcamTH3: expected a priority from 1 to 2147483647, got 0"},
    {"PriorityNegative", kStation, [](Update& u) { entry(u).set_priority(-1); }, kInvalid, kInvalid,
     "table myStationTcamTH3: expected a priority from 1 to 2147483647, got -1"},
    {"PriorityNegativeBesideExact", kIif, [](Update& u) { entry(u).set_priority(-1); }, kInvalid, kInvalid,
     nullptr},

    {"NoAction", kIif, [](Update& u) { entry(u).clear_action(); }, kInvalid, kOk,
     "table l3IifTH3: expected an action, got none"},
    {"ActionWithoutKind", kIif, [](Update& u) { tableAction(u).clear_action(); }, kInvalid, kOk,
     "table l3IifTH3: expected an action, got an action without kind"},
    {"ProfileMember", kIif, [](Update& u) { tableAction(u).set_action_profile_member_id(1); }, kInvalid, kOk,
     "table l3IifTH3: expected an action, got an action profile member"},
    {"ProfileGroup", kIif, [](Update& u) { tableAction(u).set_action_profile_group_id(1); }, kInvalid, kOk,
     "table l3IifTH3: expected an action, got an action profile group"},
    {"OneShot", kIif, [](Update& u) { tableAction(u).mutable_action_profile_action_set(); }, kInvalid, kOk,
     "table l3IifTH3: expected an action, got a one-shot action set"},
    {"ActionOfOtherTable", kIif, [](Update& u) { action(u).set_action_id(0x01000003); }, kInvalid, kOk,
     "table l3IifTH3: expected action 0x01000004 (set_l3IifTH3), got 0x01000003"},
    {"ParameterMissing", kIif, [](Update& u) { action(u).mutable_params()->RemoveLast(); }, kInvalid, kOk,
     "table l3IifTH3: expected every parameter, got none for vrf"},
    {"ParameterTwice", kIif, [](Update& u) { action(u).mutable_params(9)->set_param_id(1); }, kInvalid, kOk,
     "table l3IifTH3: parameter classId: expected once, got it twice"},
    {"ParameterSurplus", kIif, [](Update& u) { action(u).add_params()->set_param_id(11); }, kInvalid, kOk,
     "table l3IifTH3: expected a parameter id from 1 to 10, got 11"},
    {"ParameterEmpty", kIif, [](Update& u) { action(u).mutable_params(9)->clear_value(); }, kRange, kOk,
     "table l3IifTH3: parameter vrf: expected a value of at most 16 bits, got no bytes"},
    {"ParameterTooWide", kIif, [](Update& u) { action(u).mutable_params(5)->set_value("\2"); }, kRange, kOk,
     "table l3IifTH3: parameter intEnable: expected a value of at most 1 bits, got 0x02"},

    {"Meter", kIif, [](Update& u) { entry(u).mutable_meter_config(); }, kInvalid, kOk,
     "table l3IifTH3: expected key, action and metadata alone, got meter_config"},
    {"Counter", kIif, [](Update& u) { entry(u).mutable_counter_data(); }, kInvalid, kOk, nullptr},
    {"MeterCounter", kIif, [](Update& u) { entry(u).mutable_meter_counter_data(); }, kInvalid, kOk, nullptr},
    {"LastHit", kIif, [](Update& u) { entry(u).mutable_time_since_last_hit(); }, kInvalid, kOk, nullptr},
    {"IdleTimeout", kIif, [](Update& u) { entry(u).set_idle_timeout_ns(1); }, kInvalid, kOk, nullptr},
    {"OldMetadata", kIif, [](Update& u) { entry(u).set_controller_metadata(1); }, kInvalid, kOk, nullptr},
    {"Const", kIif, [](Update& u) { entry(u).set_is_const(true); }, kInvalid, kOk, nullptr},
    {"Metadata", kIif, [](Update& u) { entry(u).set_metadata("12345678"); }, kOk, kOk, ""},
    {"MetadataTooLong", kIif, [](Update& u) { entry(u).set_metadata("123456789"); }, kInvalid, kOk,
     "table l3IifTH3: expected metadata of at most 8 bytes, got 9"},
};

Agent::Status statusOf(const Case& tried, Update::Type type) {
  Update update = Entries::updateOf(sampleEntry(tried.table), type);
  tried.change(update);
  Wire::DecodedUpdate decoded;
  return decoder().decode(update, decoded);
}

TEST(Decode, HasCodeAndText) {
  for (const Case& tried : kCases) {
    SCOPED_TRACE(tried.name);
    const Agent::Status inserted = statusOf(tried, Update::INSERT);
    EXPECT_EQ(inserted.code, tried.code);
    EXPECT_EQ(inserted.ok(), inserted.message.empty());
    EXPECT_EQ(inserted.message, tried.text != nullptr ? tried.text : inserted.message);
    EXPECT_EQ(statusOf(tried, Update::MODIFY).code, tried.code);
    EXPECT_EQ(statusOf(tried, Update::DELETE).code, tried.codeOfDelete);
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
  entry(iif).set_metadata("mine");
  EXPECT_EQ(
      rowOf(iif),
      "mine|l3Iif = 72623859790382856, classId = 4660, ecnDecapMappingPtr = 1, flexCtrBaseCounterIdx = 1, "
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

/// The same entry as a controller may send it: fields in any order, values with leading zeros.
TableEntry disguised(TableEntry entry, Entries::Random& random) {
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

TEST(Row, ComesBackAsTheEntryThatWasWritten) {
  Entries::Random random(1);
  for (int i = 0; i < 4000; ++i) {
    const Wire::Table& table = Entries::pipeline().tables()[static_cast<std::size_t>(i % 4)];
    const TableEntry written = Entries::randomEntry(table, random);
    const Update update = Entries::updateOf(disguised(written, random), Update::MODIFY);
    Wire::DecodedUpdate decoded;
    const Agent::Status status = decoder().decode(update, decoded);
    ASSERT_TRUE(status.ok()) << status.message << update.DebugString();
    ASSERT_EQ(decoded.table, &table);
    TableEntry read;
    Wire::encodeEntry(table, decoded.row, decoded.metadata, read);
    ASSERT_TRUE(MessageDifferencer::Equals(read, written)) << read.DebugString() << written.DebugString();
  }
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
  const char* name;
  TableNumber table;
  void (*change)(Update& update);
  StatusCode code;
  std::uint32_t tableId;  // of the filter
  bool hasKey;
};

const FilterCase kFilterCases[] = {
    {"AllTables", kIif, [](Update& u) { entry(u).Clear(); }, kOk, 0, false},
    {"OneTable", kIif, [](Update& u) { entry(u).clear_match(); }, kOk, 0x02000004, false},
    {"OneTernaryTable", kStation, [](Update& u) { entry(u).clear_match(), entry(u).clear_priority(); }, kOk,
     0x02000003, false},
    {"OneEntry", kIif, [](Update& u) { entry(u).clear_action(); }, kOk, 0x02000004, true},
    {"OneEntryWithAction", kIif, [](Update&) {}, kOk, 0x02000004, true},
    {"OneTernaryEntry", kStation, [](Update&) {}, kOk, 0x02000003, true},
    {"TernaryEntryWithoutFields", kStation, [](Update& u) { entry(u).clear_match(); }, kOk, 0x02000003, true},
    {"TernaryKeyWithoutPriority", kStation, [](Update& u) { entry(u).clear_priority(); }, kInvalid, 0, false},
    {"PartOfKey", kIpv4, [](Update& u) { entry(u).mutable_match()->RemoveLast(); }, kInvalid, 0, false},
    {"UnknownTable", kIif, [](Update& u) { entry(u).set_table_id(5); }, kInvalid, 0, false},
    {"KeyOfNoTable", kIif, [](Update& u) { entry(u).set_table_id(0); }, kInvalid, 0, false},
    {"DefaultAction", kIif, [](Update& u) { entry(u).Clear(), entry(u).set_is_default_action(true); },
     kInvalid, 0, false},
    {"TooWide", kIif, [](Update& u) { value(u) = "123456789"; }, kRange, 0, false},
    {"NoEntity", kIif, [](Update& u) { u.clear_entity(); }, kInvalid, 0, false},
    {"OtherEntity", kIif, [](Update& u) { u.mutable_entity()->mutable_counter_entry(); }, kUnimplemented, 0,
     false},
};

TEST(Filter, NamesTableAndKey) {
  for (const FilterCase& tried : kFilterCases) {
    SCOPED_TRACE(tried.name);
    Update update = Entries::updateOf(sampleEntry(tried.table), Update::DELETE);
    tried.change(update);
    Wire::ReadFilter filter;
    const Agent::Status status = decoder().decode(update.entity(), filter);
    EXPECT_EQ(status.code, tried.code) << status.message;
    EXPECT_EQ(status.ok(), status.message.empty());
    if (!status.ok()) continue;
    EXPECT_EQ(filter.table == nullptr ? 0 : filter.table->id, tried.tableId);
    EXPECT_EQ(!filter.key.isNull(), tried.hasKey);
    if (filter.key.isNull()) continue;
    Wire::DecodedUpdate decoded;
    ASSERT_TRUE(decoder().decode(update, decoded).ok());
    EXPECT_TRUE(filter.key.rowEqual(decoded.row));
  }
}

}  // namespace

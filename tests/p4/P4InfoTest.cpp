#include "apps/p4/P4Info.h"

#include <google/protobuf/util/json_util.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "apps/p4/P4InfoDifference.h"
#include "cairn/Exception.h"
#include "tests/p4/Entries.h"

namespace {

using google::protobuf::util::MessageDifferencer;
using p4::config::v1::P4Info;
using Wire::P4InfoFormat;

const P4Info& info() {
  static const P4Info made = Wire::p4InfoOf(Entries::pipeline());
  return made;
}

// Controllers keep these ids and names: what stands in the file does not change, it is only added to.
TEST(P4Info, IsThatOfTheGoldenFile) {
  std::ifstream file(GOLDEN);
  std::stringstream golden;
  golden << file.rdbuf();
  EXPECT_EQ(Wire::formatted(info(), P4InfoFormat::text), golden.str());
}

TEST(P4Info, ReadsBackFromOtherFormats) {
  P4Info read;
  EXPECT_TRUE(read.ParseFromString(Wire::formatted(info(), P4InfoFormat::binary)));
  EXPECT_TRUE(MessageDifferencer::Equals(read, info()));
  read.Clear();
  const std::string json = Wire::formatted(info(), P4InfoFormat::json);
  EXPECT_TRUE(google::protobuf::util::JsonStringToMessage(json, &read).ok());
  EXPECT_TRUE(MessageDifferencer::Equals(read, info()));
}

TEST(Pipeline, RefusesAddressesWithoutFamily) {
  const Wire::TableSource source[] = {
      {"tunnel", 1, Wire::AddressFamily::none, "TolmarHwLib::L3TunnelTH3ConfigEntryRow"}};
  EXPECT_THROW(Wire::Pipeline{source}, Cairn::Exception);
}

template <class Elements>
void reverse(Elements& elements) {
  std::reverse(elements.pointer_begin(), elements.pointer_end());
}

/// Documents everything and reverses the order of everything.
void rearrange(P4Info& theirs) {
  theirs.mutable_pkg_info()->mutable_doc()->set_brief("package");
  for (auto& table : *theirs.mutable_tables()) {
    table.mutable_preamble()->mutable_doc()->set_brief("table");
    for (auto& field : *table.mutable_match_fields()) field.mutable_doc()->set_brief("field");
    reverse(*table.mutable_match_fields());
  }
  for (auto& action : *theirs.mutable_actions()) {
    action.mutable_preamble()->mutable_doc()->set_description("action");
    for (auto& param : *action.mutable_params()) param.mutable_doc()->set_brief("parameter");
    reverse(*action.mutable_params());
  }
  reverse(*theirs.mutable_tables());
  reverse(*theirs.mutable_actions());
}

void leaveOut(P4Info& theirs, int index) {
  theirs.mutable_tables()->DeleteSubrange(index, 1);
  theirs.mutable_actions()->DeleteSubrange(index, 1);
}

struct Case {
  const char* name;
  void (*change)(P4Info& theirs);
  const char* tables;      // which of ours are in a good one, "" for a bad one
  const char* difference;  // what its text contains
};

const Case kCases[] = {
    {"Equal", [](P4Info&) {}, "1111", ""},
    {"DocumentedAndInAnotherOrder", &rearrange, "1111", ""},
    {"WithOneTable", [](P4Info& t) { leaveOut(t, 0), leaveOut(t, 0), leaveOut(t, 0); }, "0001", ""},
    {"Empty", [](P4Info& t) { t.Clear(); }, "", "deleted: pkg_info"},
    {"TableWithoutAction", [](P4Info& t) { t.mutable_actions()->RemoveLast(); }, "",
     "action 0x01000004: expected with table l3IifTH3, got it left out"},
    {"ActionWithoutTable", [](P4Info& t) { t.mutable_tables()->RemoveLast(); }, "",
     "action 0x01000004: expected left out like table l3IifTH3, got it without the table"},
    {"UnknownTable", [](P4Info& t) { t.mutable_tables(3)->mutable_preamble()->set_id(0x02000005); }, "",
     "table 0x02000005: this pipeline has none with that id"},
    {"TableTwice", [](P4Info& t) { *t.add_tables() = t.tables(2); }, "",
     "table 0x02000003 (myStationTcamTH3): expected once, got it twice"},
    {"ActionTwice", [](P4Info& t) { *t.add_actions() = t.actions(2); }, "",
     "action 0x01000003 (set_myStationTcamTH3): expected once, got it twice"},
    {"OtherSize", [](P4Info& t) { t.mutable_tables(3)->set_size(1); }, "",
     "table 0x02000004 (l3IifTH3): modified: size: 8192 -> 1"},
    {"OtherWidth", [](P4Info& t) { t.mutable_tables(3)->mutable_match_fields(0)->set_bitwidth(9); }, "",
     "modified: match_fields[0].bitwidth: 64 -> 9"},
    {"FieldMissing", [](P4Info& t) { t.mutable_tables(0)->mutable_match_fields()->RemoveLast(); }, "",
     "deleted: match_fields[4]"},
    {"ParameterMissing", [](P4Info& t) { t.mutable_actions(0)->mutable_params()->RemoveLast(); }, "",
     "action 0x01000001 (set_l3TunnelIpv4TH3): deleted: params[12]"},
    {"OtherVersion", [](P4Info& t) { t.mutable_pkg_info()->set_version("2"); }, "",
     "modified: pkg_info.version"},
    {"LongVersion", [](P4Info& t) { t.mutable_pkg_info()->set_version(std::string(9999, '2')); }, "",
     "22..."},
    {"UnknownFieldInside",
     [](P4Info& t) {
       auto& table = *t.mutable_tables(1);
       table.GetReflection()->MutableUnknownFields(&table)->AddVarint(10, 1);
     },
     "", "table 0x02000002 (l3TunnelIpv6TH3): added: 10"},
};

TEST(Difference, IsNamed) {
  for (const Case& tried : kCases) {
    SCOPED_TRACE(tried.name);
    P4Info theirs = info();
    tried.change(theirs);
    std::vector<bool> tables;
    const auto difference = Wire::differenceBetween(info(), theirs, tables);
    std::string names;
    for (const bool isThere : tables) names += isThere ? '1' : '0';
    EXPECT_EQ(names, tried.tables);
    EXPECT_EQ(difference.has_value(), names.empty());
    EXPECT_NE(difference.value_or("").find(tried.difference), std::string::npos) << *difference;
  }
}

}  // namespace

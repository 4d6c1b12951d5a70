#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lumen/LmErrors.h"
#include "tests/lumen/MemoryTable.h"

namespace {

using LumenTest::keyOf;
using LumenTest::MemoryTable;
using LumenTest::pairRow;
using LumenTest::valueOf;
using testing::ElementsAre;
using testing::ThrowsMessage;

struct DatabaseTest : testing::Test, LumenTest::Pairs {};

TEST_F(DatabaseTest, Tables_ByNameAndInOrderOfRegistration) {
  db.registerTable("Others", "LumenTest::Other", Lumen::TableType::external, 1, 2, "folder",
                   {{"byValue", "value"}});
  std::vector<std::string> names;
  for (const auto& known : db.tables()) names.push_back(known->name());
  EXPECT_THAT(names, ElementsAre("Pairs", "Others"));
  EXPECT_EQ(db.table("Others")->descriptor(), R"({"key":"uint64_t", "value":"uint64_t"})");
  EXPECT_EQ(db.table("pairs"), nullptr);
}

TEST_F(DatabaseTest, Registration_RepeatedIsNoErrorAndKeepsTheImplementation) {
  db.registerTable("Pairs", LumenTest::kRowTypeName, Lumen::TableType::external, 256, 256, "", {});
  EXPECT_EQ(db.table("Pairs"), table);
  EXPECT_EQ(table->implementation(), memory);
}

TEST_F(DatabaseTest, Errors_SayWhatWasExpectedAndWhatCame) {
  struct Case {
    const char* name;
    std::function<void()> act;
    const char* text;
  };
  db.registerTable("Empty", LumenTest::kRowTypeName, Lumen::TableType::external, 256, 256, "", {});
  const auto other = std::make_shared<MemoryTable>("LumenTest::Other");
  const Case cases[] = {
      {"registered otherwise",
       [&] { db.registerTable("Pairs", "LumenTest::Other", Lumen::TableType::external, 256, 256, "", {}); },
       "table Pairs is registered otherwise: with rows of type LumenTest::Pair, now asked for with "
       "LumenTest::Other"},
      {"unknown table", [&] { db.tableImplementationIs("Pears", memory); },
       "no table named Pears among 2 registered"},
      {"unknown table dropped", [&] { db.tableImplementationDel("Pears"); },
       "no table named Pears among 2 registered"},
      {"null implementation", [&] { db.tableImplementationIs("Pairs", nullptr); },
       "null implementation for table Pairs"},
      {"other rows", [&] { db.tableImplementationIs("Pairs", other); },
       "table Pairs has rows of type LumenTest::Pair, its implementation of type LumenTest::Other"},
      {"serves another", [&] { db.tableImplementationIs("Empty", memory); },
       "the implementation for table Empty serves another table"},
      {"not served", [&] { db.table("Empty")->rowIs(pairRow(1)); }, "table Empty has no implementation"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_THAT(one.act, ThrowsMessage<Lumen::LmTableError>(one.text));
  }
  EXPECT_EQ(table->implementation(), memory) << "failures leave the table as it was";
  EXPECT_THROW(db.registerTable("X", "LumenTest::Unknown", Lumen::TableType::external, 256, 256, "", {}),
               Lumen::LmMetadataError);
  EXPECT_EQ(db.table("X"), nullptr);
}

TEST_F(DatabaseTest, Iterators_AreValuesThatKeepTheirTable) {
  for (std::uint64_t key = 1; key <= 3; ++key) table->rowIs(pairRow(key, key * 10));
  auto row = table->begin();
  auto copy = row;
  ++row;
  EXPECT_EQ(keyOf(*copy), 1u);
  EXPECT_EQ(keyOf(*row), 2u);
  copy = row;
  EXPECT_EQ(keyOf(*copy), 2u);
  auto change = table->nextChange(2);
  const auto gone = memory->gone;
  memory.reset();
  db.tableImplementationDel("Pairs");
  EXPECT_FALSE(*gone);
  EXPECT_EQ(valueOf(*++row), 30u);
  EXPECT_EQ((*change)->index, 4u);
  row = std::move(copy);
  change = Lumen::LmChangeIterator(change);
  EXPECT_EQ(keyOf((*change)->row), 2u);
}

}  // namespace

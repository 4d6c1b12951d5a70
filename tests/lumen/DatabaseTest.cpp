#include <gmock/gmock.h>

#include "lumen/LmErrors.h"
#include "tests/lumen/MemoryTable.h"

namespace {

using LumenTest::keyOf;
using LumenTest::MemoryTable;
using LumenTest::pairRow;
using LumenTest::valueOf;
using testing::ThrowsMessage;

struct DatabaseTest : testing::Test, LumenTest::Pairs {};

TEST_F(DatabaseTest, Tables_ByNameAndInOrderOfRegistration) {
  db.registerTable("Pairs", LumenTest::kRowTypeName, Lumen::TableType::external, 256, 256, "", {});
  EXPECT_THAT(db.tables(), testing::ElementsAre(table, others)) << "registered again without effect";
  EXPECT_EQ(table->implementation(), memory);
  EXPECT_EQ(table->descriptor(), R"({"key":"uint64_t", "value":"uint64_t"})");
  EXPECT_EQ(db.table("pairs"), nullptr);
}

TEST_F(DatabaseTest, Errors_SayWhatWasExpectedAndWhatCame) {
  db.registerTable("Empty", LumenTest::kRowTypeName, Lumen::TableType::external, 256, 256, "", {});
  const struct {
    std::function<void()> act;
    const char* text;
  } cases[] = {
      {[&] { db.registerTable("Pairs", "LumenTest::Other", Lumen::TableType::external, 256, 256, "", {}); },
       "table Pairs is registered otherwise: with rows of type LumenTest::Pair, now asked for with "
       "LumenTest::Other"},
      {[&] { db.tableImplementationIs("Pears", memory); }, "no table named Pears among 3 registered"},
      {[&] { db.tableImplementationDel("Pears"); }, "no table named Pears among 3 registered"},
      {[&] { db.tableImplementationIs("Pairs", nullptr); }, "null implementation for table Pairs"},
      {[&] { db.tableImplementationIs("Pairs", std::make_shared<MemoryTable>("LumenTest::Other")); },
       "table Pairs has rows of type LumenTest::Pair, its implementation of type LumenTest::Other"},
      {[&] { db.tableImplementationIs("Empty", memory); },
       "the implementation for table Empty serves another table"},
      {[&] { db.table("Empty")->rowIs(pairRow(1)); }, "table Empty has no implementation"},
  };
  for (const auto& [act, text] : cases) EXPECT_THAT(act, ThrowsMessage<Lumen::LmTableError>(text));
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
  copy = row;
  auto change = table->nextChange(2);
  const auto gone = memory->gone;
  memory.reset();
  db.tableImplementationDel("Pairs");
  EXPECT_FALSE(*gone);
  EXPECT_EQ(valueOf(*++row), 30u);
  row = std::move(copy);
  change = Lumen::LmChangeIterator(change);
  EXPECT_EQ((*change)->index, 4u);
}

// The default implementation, as every table here is one.

TEST_F(DatabaseTest, OtherIndices_AreOutOfRange) {
  const std::function<void()> calls[] = {[&] { memory->isUnique(3); }, [&] { memory->isOrdered(3); },
                                         [&] { memory->activateIndex(3); },
                                         [&] { memory->deactivateIndex(3); }};
  for (const auto& call : calls) {
    EXPECT_THAT(call, ThrowsMessage<Lumen::LmOutOfRange>("Multiple indices not supported. idx:3"));
  }
  EXPECT_FALSE(memory->indexActive(3));
}

TEST_F(DatabaseTest, PreWriteHook_ComesFromTheTableOperations) {
  EXPECT_FALSE(memory->preWriteActive());
  int nulls = 0;
  const Lumen::LmTableOps ops{
      [&](const auto& row, const auto& previous) { nulls += row.isNull() + previous.isNull(); }};
  const MemoryTable hooked(LumenTest::kRowTypeName, &ops);
  ASSERT_TRUE(hooked.preWriteActive());
  hooked.preWrite(pairRow(1), {});
  EXPECT_EQ(nulls, 1);
}

}  // namespace

// The row tables: registration, walks, refusals, damage.
#include <filesystem>

#include "lumen/LmErrors.h"
#include "rows/RowErrors.h"
#include "tests/P4RuntimePlugin/ScriptedTable.h"
#include "tests/SlotOf.h"
#include "tests/vesta/DamagedRow.h"
#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using Lumen::BaseRow, testing::ElementsAre, testing::ThrowsMessage;

template <class Kind>
struct RowsOf : RowTableTest<Kind> {};
TYPED_TEST_SUITE(RowsOf, AllKinds);

TYPED_TEST(RowsOf, Slots_OfWrapperAndIteratorsAreInOrder) {
  using T = typename TypeParam::Wrapper;
  expectSlotsInOrder(&T::tableTypeName, &T::rowTypeName, &T::rowTypeId, &T::isOrdered, &T::isUnique,
                     &T::ready, &T::size, &T::materialized, &T::bounded, &T::readerSupported,
                     &T::modifierSupported, &T::observerSupported, &T::activateIndex, &T::deactivateIndex,
                     &T::indexActive, &T::indexes, &T::row, &T::begin, &T::find, &T::lower_bound,
                     &T::upper_bound, &T::end, &T::rangeBegin, &T::rangeRows, &T::rowIs,
                     static_cast<void (T::*)(const Lumen::BaseRow&)>(&T::rowDel),
                     static_cast<void (T::*)(const Lumen::LmRowIteratorImpl&)>(&T::rowDel), &T::rowDelAll,
                     &T::oldestChangeIdx, &T::latestChangeIdx, &T::nextChange, &T::endChange,
                     &T::reportProgress, &T::addInterface, &T::removeInterface, &T::boundInterfacesCount,
                     &T::replaceImplementation, &T::cleanup, &T::cleanChangeMap, &T::quillTableModified);
  using R = typename TypeParam::RowIterator;
  expectSlotsInOrder(&R::operator==, &R::operator!=, &R::operator bool, &R::operator*, &R::operator++,
                     &R::clone);
  using C = typename TypeParam::ChangeIterator;
  expectSlotsInOrder(&C::operator==, &C::operator!=, &C::operator*, &C::operator++, &C::clone);
}

TYPED_TEST(RowsOf, Walks_FromTheStartOrAFoundRowContinueWhenTheirRowIsDeleted) {
  auto& rows = this->rowTable;
  Contents<TypeParam> left;
  for (std::uint32_t n = 0; n < 60; ++n) {
    rows.table->rowIs(rows.row(n, n));
    left.emplace(rows.key(n), rows.entry(n, n));
  }
  EXPECT_EQ(rows.contents(*rows.table), left);
  EXPECT_EQ(rows.table->find(rows.row(60)), rows.table->end());
  for (auto at = rows.table->begin(); at != rows.table->end(); ++at) {
    const auto entry = rows.entryOf(*at);
    EXPECT_EQ(left.erase(entry.key()), 1u);
    auto from = rows.table->find(*at);
    EXPECT_EQ(rows.entryOf(*from), entry);
    EXPECT_EQ(rows.entryOf(rows.table->row(*at)), entry);
    rows.table->rowDel(from);
    EXPECT_EQ(rows.table->size(), left.size());
    std::size_t after = 0;
    while (++from) ++after;
    EXPECT_EQ(after, left.size());
  }
  EXPECT_TRUE(left.empty());
}

TYPED_TEST(RowsOf, Iterators_CompareByValidityAloneAndKeepTheirTableAlive) {
  auto& rows = this->rowTable;
  for (const std::uint32_t n : {1u, 2u}) rows.table->rowIs(rows.row(n));
  auto first = rows.table->begin();
  auto second = rows.table->end();
  second = first;
  ++second;
  EXPECT_EQ(first, second);
  const auto owners = rows.wrapper.use_count();
  const auto copy = first;
  EXPECT_EQ(rows.wrapper.use_count(), owners + 1);
  ++first;
  EXPECT_EQ(rows.entryOf(*first), rows.entryOf(*second));
  EXPECT_FALSE(++first);
  EXPECT_EQ(first, rows.table->end());
  EXPECT_NE(first, second);
  EXPECT_THAT([&] { *first; }, ThrowsMessage<Cairn::AssertionException>("iterator is at the end"));

  const auto change = rows.table->nextChange(0);
  rows.wrapper.reset();
  rows.db->tableImplementationDel(rows.table->name());
  rows.config = nullptr;
  rows.manager->unmount("test/sampleTable/config");
  EXPECT_EQ(rows.entryOf((*change)->row), typename TypeParam::Entry{});
  EXPECT_EQ(rows.entryOf(*copy), rows.entry(1)) << "the row it stands on is its own";
  EXPECT_FALSE(++second);
  second = std::move(first);
  EXPECT_FALSE(second);
}

TYPED_TEST(RowsOf, BadRows_AreRefusedInOrderAfterTheHookAndChangeNothing) {
  std::vector<bool> hookSawNull;
  const Lumen::LmTableOps ops{[&](const BaseRow& row, const BaseRow& previous) {
    EXPECT_TRUE(previous.isNull());
    hookSawNull.push_back(row.isNull());
    if (hookSawNull.size() == 3) throw std::runtime_error("unlucky");
  }};
  typename TypeParam::Wrapper wrapper(this->rowTable.config, this->rowTable.db, &ops, true, true, false);
  const BaseRow null;
  const std::function<void()> otherIndices[] = {[&] { wrapper.row(null, 1); }, [&] { wrapper.find(null, 1); },
                                                [&] { wrapper.begin(1); }, [&] { wrapper.end(1); }};
  for (const auto& call : otherIndices) {
    EXPECT_THAT(call, ThrowsMessage<Cairn::AssertionException>("Multiple indices not supported"));
  }
  const std::function<void()> outOfRange[] = {[&] { wrapper.isUnique(3); }, [&] { wrapper.isOrdered(3); },
                                              [&] { wrapper.activateIndex(3); },
                                              [&] { wrapper.deactivateIndex(3); }};
  for (const auto& call : outOfRange) {
    EXPECT_THAT(call, ThrowsMessage<Lumen::LmOutOfRange>("Multiple indices not supported. idx:3"));
  }
  BaseRow other = this->rowTable.row(2);
  other.rowTypeIs(999);
  const auto badCast = testing::StartsWith("row type 999 does not match row type ");
  const std::function<void(const BaseRow&)> calls[] = {[&](const BaseRow& row) { wrapper.row(row, 0); },
                                                       [&](const BaseRow& row) { wrapper.find(row, 0); },
                                                       [&](const BaseRow& row) { wrapper.rowIs(row, false); },
                                                       [&](const BaseRow& row) { wrapper.rowDel(row); }};
  for (const auto& call : calls) {
    EXPECT_THAT([&] { call(null); }, ThrowsMessage<Lumen::LmNullRow>("null row"));
    EXPECT_THAT([&] { call(other); }, ThrowsMessage<Lumen::LmBadCast>(badCast));
  }
  EXPECT_THROW(wrapper.rowIs(this->rowTable.row(1), false), std::runtime_error);
  EXPECT_THAT(hookSawNull, ElementsAre(true, false, false));
  EXPECT_EQ(wrapper.latestChangeIdx(), 1u);
}

/// The table reads as empty and refuses deletions with `Refusal`.
template <class Refusal, class Kind>
void expectEmpty(RowTable<Kind>& rows, Lumen::LmTable& table, const char* refusal) {
  EXPECT_EQ(table.size(), 0u);
  EXPECT_EQ(table.begin(), table.end());
  EXPECT_EQ(table.find(rows.row(1)), table.end());
  EXPECT_EQ(rows.entryOf(table.row(rows.row(1))), typename Kind::Entry{});
  EXPECT_THAT([&] { table.rowDel(rows.row(1)); }, ThrowsMessage<Refusal>(refusal));
  EXPECT_THAT([&] { table.rowDelAll(); }, ThrowsMessage<Refusal>(refusal));
}

TYPED_TEST(RowsOf, NullConfig_ReadsAsEmptyAndRefusesWrites) {
  auto& rows = this->rowTable;
  const auto table = rows.registered(nullptr, "absent");
  EXPECT_EQ(table->name(), "LumenAbsentConfigTable");
  expectEmpty<Cairn::AssertionException>(rows, *table, "no config table");
  EXPECT_THAT([&] { table->rowIs(rows.row(1)); },
              ThrowsMessage<Cairn::AssertionException>("no config table"));
}

// Whichever read detects it, and whether or not a report of it can be written.
TYPED_TEST(RowsOf, Corruption_DetachesTheTable) {
  auto& rows = this->rowTable;
  auto at = rows.table->end();
  const std::function<void()> reads[] = {
      [&] { EXPECT_EQ(rows.entryOf(rows.table->row(rows.row(1))), typename TypeParam::Entry{}); },
      [&] { EXPECT_FALSE(rows.table->find(rows.row(1))); },
      [&] { EXPECT_FALSE(rows.table->begin()); },
      [&] { EXPECT_FALSE(++at); },
      [&] { EXPECT_EQ(rows.entryOf((*rows.table->nextChange(0))->row), typename TypeParam::Entry{}); },
      [&] { EXPECT_THROW(rows.table->rowDelAll(), Cairn::CorruptionDetectedException); },
      [&] {  // the reactor records what it cannot read as deleted
        const auto latest = rows.table->latestChangeIdx();
        rows.notifyReactor(1);
        EXPECT_THAT(rows.changes(latest), ElementsAre(std::tuple(latest + 3, 2, rows.keyOnly(1))));
      },
  };
  const std::string text = "VestaMap::corruptionDetected() " + rows.config->rootPath().text();
  for (const bool reported : {true, false}) {
    for (const auto& read : reads) {
      EXPECT_EQ(rows.mounted(), rows.config);
      for (const std::uint32_t n : {1u, 2u}) rows.table->rowIs(rows.row(n));
      at = rows.table->begin();
      for (const std::uint32_t n : {1u, 2u}) damageRow(*rows.config->table().writer(), rows.key(n));
      if (!reported) std::filesystem::remove_all(rows.config->rootPath().folder());
      rows.errors.clear();
      read();
      EXPECT_THAT(rows.errors.front(), testing::StartsWith(text + " slot "));
      EXPECT_THAT(rows.errors.back(), testing::HasSubstr(reported ? "written: " : "No such file"));
      EXPECT_FALSE(rows.config->attached());
      expectEmpty<Cairn::NoPermissionException>(rows, *rows.table, "remove to read-only Vesta table");
    }
  }
  rows.config->detach();
  EXPECT_THROW(rows.table->rowDelAll(), Cairn::AssertionException) << "detached in order";
  ScriptedEntity<typename TypeParam::Config> config(rows.folder.path());
  const typename TypeParam::Wrapper wrapper(config.entity, rows.db, nullptr, true, true, false);
  config.table->damageIs(1);
  EXPECT_EQ(wrapper.size(), 0u);
  EXPECT_THAT(config.logged, testing::HasSubstr("/table row 3: bad checksum"));
}

TYPED_TEST(RowsOf, ReadOnly_AreThoseOfAWrapperWithoutModifiersOrOfACorruptTable) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1));
  for (const int state : {0, 1, 2, 3}) {
    const bool corrupt = (state & 1) != 0;
    const bool modifiers = (state & 2) != 0;
    typename TypeParam::Wrapper wrapper(rows.config, rows.db, nullptr, modifiers, true, false);
    wrapper.quillTableModified(rows.row(1), false, rows.key(1));
    wrapper.quillTableModified(rows.row(2), true, rows.key(2));
    const auto first = wrapper.begin(0);
    const auto found = wrapper.find(rows.row(1), 0);
    const auto written = wrapper.nextChange(0);
    const auto deleted = wrapper.nextChange(2);
    if (corrupt) rows.config->corruptionDetected("x");
    BaseRow handedOut[] = {
        wrapper.row(rows.row(1), 0), **first, **first->clone(), **found, (**written)->row, (**deleted)->row};
    for (BaseRow& row : handedOut) {
      EXPECT_EQ(row.readOnly(), corrupt || !modifiers);
      EXPECT_FALSE(row.clone().readOnly());
    }
    rows.mounted();
  }
}

using Registration = RowTableTest<MyStation>;

const std::string kStation = "TolmarHwLib::MyStationTcamTH3ConfigEntryRow";
const std::string kIif = "TolmarHwLib::L3IifTH3ConfigEntryRow";

void registerTable(Lumen::LumenDB& db, const std::string& name, const std::string& rowTypeName) {
  db.registerTable(name, rowTypeName, Lumen::TableType::external, 256, 256, "", {});
}

TEST_F(Registration, Wrapper_IsHandedOverWithItsFlags) {
  const MyStation::Wrapper& wrapper = *rowTable.wrapper;
  rowTable.wrapper.reset();
  const auto& table = rowTable.table;
  EXPECT_EQ(table->implementation().use_count(), 1) << "the row database is the only owner left";
  EXPECT_EQ(table->descriptor(), MyStation::EntryRow::lmTypeSignature());
  registerTable(*rowTable.db, table->name(), kStation);
  EXPECT_THAT(rowTable.db->tables(), ElementsAre(table)) << "registered again without effect";
  EXPECT_EQ(rowTable.db->table("lumenSampleConfigTable"), nullptr);
  EXPECT_EQ(rowTable.helper.tableConfig<L3IifTH3Config>("sample"), nullptr) << "of another type";
  EXPECT_EQ(rowTable.helper.tableStatus<MyStationTcamTH3Status>("Sample"), nullptr);
  EXPECT_TRUE(wrapper.readerSupported() && wrapper.modifierSupported() && wrapper.isUnique(0));
  EXPECT_FALSE(wrapper.observerSupported() || wrapper.isOrdered(0) || wrapper.bounded());
  EXPECT_EQ(wrapper.tableTypeName(), "TableLumenWrapper");
  EXPECT_EQ(wrapper.rowTypeName(), kStation);
  EXPECT_EQ(wrapper.rowTypeId(), MyStationTcamTH3ConfigEntryRow::protRowType());
}

TEST_F(Registration, Errors_SayWhatWasExpectedAndWhatCame) {
  auto& db = *rowTable.db;
  registerTable(db, "Iifs", kIif);
  registerTable(db, "Stations", kStation);
  const struct {
    std::function<void()> act;
    std::string text;
  } cases[] = {
      {[&] { registerTable(db, "Stations", kIif); },
       "table Stations is already registered differently, with rows of type " + kStation +
           "; requested: " + kIif},
      {[&] { db.tableImplementationIs("Pears", rowTable.wrapper); },
       "no table named Pears among 3 registered"},
      {[&] { db.tableImplementationDel("Pears"); }, "no table named Pears among 3 registered"},
      {[&] { db.tableImplementationIs("Iifs", nullptr); }, "null implementation for table Iifs"},
      {[&] { db.tableImplementationIs("Iifs", rowTable.wrapper); },
       "table Iifs has rows of type " + kIif + ", its implementation of type " + kStation},
      {[&] { db.tableImplementationIs("Stations", rowTable.wrapper); },
       "the implementation for table Stations serves another table"},
      {[&] { db.table("Stations")->rowIs(rowTable.row(1)); }, "table Stations has no implementation"},
  };
  for (const auto& [act, text] : cases) EXPECT_THAT(act, ThrowsMessage<Lumen::LmTableError>(text));
  EXPECT_EQ(rowTable.table->implementation(), rowTable.wrapper) << "failures leave the table as it was";
  db.tableImplementationDel(rowTable.table->name());
  db.tableImplementationIs("Stations", rowTable.wrapper);  // free again
  EXPECT_THROW(registerTable(db, "X", "TolmarHwLib::Unknown"), Lumen::LmMetadataError);
  EXPECT_EQ(db.table("X"), nullptr);
}

}  // namespace
}  // namespace WrapperTest

// Thousands of random operations on a row table, against a plain map. TOLMAR_SEED repeats a run.
#include <cstdlib>
#include <map>
#include <random>

#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

template <class Kind>
using Model = std::map<typename Kind::Key, typename Kind::Entry>;

/// Follows at its own pace, now and then throwing, or writing rows itself.
template <class Kind>
struct Follower : Lumen::LmTableObserver {
  explicit Follower(unsigned own) : random(own), throws(own % 3 == 0), writes(own % 3 == 1) {}

  void onReset() override { copy.clear(); }
  void onChange(const Lumen::BasicLmTableChange& change) override {
    if (throws && random() % 8 == 0) throw std::runtime_error("at random");
    const auto entry = RowTable<Kind>::entryOf(change.row);
    copy.erase(entry.key());
    if (change.kind == Lumen::ChangeKind::written) copy.emplace(entry.key(), entry);
    if (writes && random() % 16 == 0) write();
  }
  void onChangesWaiting() override {
    if (random() % 4 != 0) consume(random() % 4 == 0 ? 1 : 1000);
  }
  void onException(const std::exception&) override {}

  std::mt19937 random;
  bool throws, writes;
  std::function<void()> write;
  Model<Kind> copy;
};

template <class Kind>
struct RandomOperations : RowTableTest<Kind> {
  void change(bool written, bool foreign) {
    const auto entry = rows.entry(static_cast<std::uint32_t>(random() % 60), ++stamp);
    const auto row = Kind::EntryRow::fromEntry(entry);
    // The model first: an observer may write the key from within.
    model.erase(entry.key());
    if (written) model.emplace(entry.key(), entry);
    if (foreign) return written ? rows.config->tableIs(entry) : rows.config->tableDel(entry.key());
    return written ? rows.table->rowIs(row) : rows.table->rowDel(row);
  }
  void delAll() {
    // Observers that write would fill the table up again while it is emptied.
    for (const auto& observer : observers) observer->writes = false;
    model.clear();
    rows.table->rowDelAll();
  }
  void attach() {
    observers.push_back(std::make_shared<Follower<Kind>>(static_cast<unsigned>(random())));
    observers.back()->write = [this] { change(true, random() % 2 == 0); };
    rows.table->observerIs(observers.back());
    if (observers.size() <= 6) return;
    rows.table->observerDel(*observers.front());
    observers.erase(observers.begin());
  }
  void step() {
    const auto dice = random() % 100;
    if (dice == 0) {
      delAll();
    } else if (dice < 3) {
      attach();
    } else if (dice == 3) {
      rows.wrapper->cleanChangeMap(std::max(oldest, rows.table->latestChangeIdx() / 2));
    } else {
      change(dice < 70, dice % 3 == 0);
    }
    EXPECT_LE(std::exchange(oldest, rows.table->oldestChangeIdx()), rows.table->oldestChangeIdx());
    EXPECT_LE(std::exchange(latest, rows.table->latestChangeIdx()), rows.table->latestChangeIdx());
  }
  void check() {
    EXPECT_EQ(rows.table->size(), model.size());
    for (std::uint32_t n = 0; n < 60; ++n) {
      const bool found = static_cast<bool>(rows.table->find(rows.row(n)));
      EXPECT_EQ(found, model.contains(rows.key(n)));
      EXPECT_EQ(rows.entryOf(rows.table->row(rows.row(n))),
                found ? model[rows.key(n)] : typename Kind::Entry{});
    }
    std::set<typename Kind::Key> seen;
    for (const auto& [index, kind, key] : rows.changes()) {
      EXPECT_GT(index, oldest);
      EXPECT_TRUE(seen.insert(key).second) << "two changes of one key";
      EXPECT_EQ(kind, model.contains(key) ? 1u : 2u);
    }
  }

  RowTable<Kind>& rows = this->rowTable;
  const char* const given = std::getenv("TOLMAR_SEED");
  const unsigned seed = given == nullptr ? std::random_device()() : static_cast<unsigned>(std::stoul(given));
  std::mt19937 random{seed};
  std::uint64_t stamp = 0, oldest = 0, latest = 0;
  Model<Kind> model;
  std::vector<std::shared_ptr<Follower<Kind>>> observers;
};
TYPED_TEST_SUITE(RandomOperations, AllKinds);

TYPED_TEST(RandomOperations, EveryObserverEndsWithTheTablesContent) {
  std::printf("TOLMAR_SEED=%u\n", this->seed);
  for (int i = 0; i < 6000; ++i) {
    this->step();
    if (i % 50 == 0) this->check();
    ASSERT_FALSE(this->HasFailure()) << "TOLMAR_SEED=" << this->seed << " at operation " << i;
  }
  this->attach();
  for (const auto& observer : this->observers) {
    observer->throws = observer->writes = false;
    observer->consume();
  }
  for (const auto& observer : this->observers) EXPECT_EQ(observer->copy, this->model);
  Model<TypeParam> walked;
  for (auto at = this->rows.table->begin(); at != this->rows.table->end(); ++at) {
    const auto entry = this->rows.entryOf(*at);
    EXPECT_TRUE(walked.emplace(entry.key(), entry).second);
    auto from = this->rows.table->find(*at);
    this->rows.table->rowDel(from);  // both walks go on after it
    std::size_t after = 0;
    while (++from) ++after;
    EXPECT_EQ(after, this->model.size() - walked.size());
  }
  EXPECT_EQ(walked, this->model);
}

}  // namespace
}  // namespace WrapperTest

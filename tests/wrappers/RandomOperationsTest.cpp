// Thousands of random operations on a row table, against a plain map. TOLMAR_SEED repeats a run.
#include <cstdlib>
#include <map>
#include <random>
#include <stdexcept>

#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

constexpr std::uint32_t kKeys = 60;

unsigned seed() {
  const char* const given = std::getenv("TOLMAR_SEED");
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}

/// Follows at its own pace, now and then throwing, or writing rows itself.
template <class Sample>
struct Follower : Lumen::LmTableObserver {
  using Rows = RowTable<Sample>;
  explicit Follower(unsigned own) : random(own) {}

  void onReset() override {
    copy.clear();
    const auto implementation = this->table()->implementation();
    walked = latest = implementation->latestChangeIdx();
  }
  void onChange(const Lumen::BasicLmTableChange& change) override {
    if (throws && random() % 8 == 0) throw std::runtime_error("at random");
    // The rows of a walk carry the index as of which they are read; changes come once, in ascending order.
    if (change.index != walked || latest != walked) {
      EXPECT_GT(change.index, latest);
    }
    latest = change.index;
    const auto entry = Rows::entryOf(change.row);
    if (change.kind == Lumen::ChangeKind::written) {
      copy.insert_or_assign(entry.entryHandle - 1000, entry);
    } else {
      std::erase_if(copy, [&](const auto& known) { return known.second.key() == entry.key(); });
    }
    if (writes && random() % 16 == 0) write();
  }
  void onChangesWaiting() override {
    if (random() % 4 != 0) consume(random() % 4 == 0 ? 1 : 1000);
  }
  void onException(const std::exception&) override {}

  std::mt19937 random;
  bool throws = false;
  bool writes = false;
  std::function<void()> write;
  std::map<std::uint64_t, typename Sample::Kind::Entry> copy;
  std::uint64_t walked = 0;
  std::uint64_t latest = 0;
};

template <class Sample>
struct RandomOperations : RowTableTest<Sample> {
  using Entry = typename Sample::Kind::Entry;
  using Observer = Follower<Sample>;

  std::uint32_t anyKey() { return static_cast<std::uint32_t>(random() % kKeys); }

  void write(bool foreign) {
    const std::uint32_t n = anyKey();
    const Entry entry = this->rowTable.entry(n, ++stamp);
    model.insert_or_assign(n, entry);  // before: an observer may write the same key from within
    if (foreign) {
      this->rowTable.config->tableIs(entry);
    } else {
      this->rowTable.table->rowIs(Sample::Kind::EntryRow::fromEntry(entry));
    }
  }
  void del(bool foreign) {
    const std::uint32_t n = anyKey();
    model.erase(n);
    if (foreign) {
      this->rowTable.config->tableDel(this->rowTable.key(n));
    } else {
      this->rowTable.table->rowDel(this->rowTable.row(n));
    }
  }
  void attach() {
    if (observers.size() >= 6) return;
    auto observer = std::make_shared<Observer>(static_cast<unsigned>(random()));
    observer->throws = random() % 3 == 0;
    observer->writes = random() % 3 == 0;
    observer->write = [this] { write(random() % 2 == 0); };
    this->rowTable.table->observerIs(observer);
    observers.push_back(std::move(observer));
  }
  void drop() {
    if (observers.empty()) return;
    const auto at = observers.begin() + static_cast<std::ptrdiff_t>(random() % observers.size());
    this->rowTable.table->observerDel(**at);
    observers.erase(at);
  }
  void delAll() {
    // Observers that write would fill the table up again while it is emptied.
    for (const auto& observer : observers) observer->writes = false;
    model.clear();
    this->rowTable.table->rowDelAll();
  }
  /// A fresh wrapper over the same config table; its indices start anew.
  void replace() {
    auto& rows = this->rowTable;
    rows.wrapper =
        std::make_shared<typename Sample::Wrapper>(rows.config, rows.db, nullptr, true, true, false);
    rows.db->tableImplementationIs(rows.table->name(), rows.wrapper);
    oldest = latest = 0;
  }
  void step() {
    switch (const auto dice = random() % 100; dice) {
      case 0:
        return delAll();
      case 1:
      case 2:
      case 3:
        return attach();
      case 4:
      case 5:
        return drop();
      case 6:
        return this->rowTable.wrapper->cleanChangeMap(std::max<std::uint64_t>(
            this->rowTable.table->oldestChangeIdx(), this->rowTable.table->latestChangeIdx() / 2));
      case 7:
        return replace();
      default:
        return dice < 70 ? write(dice % 3 == 0) : del(dice % 3 == 0);
    }
  }
  void check() {
    const auto changes = this->rowTable.changes();
    EXPECT_EQ(this->rowTable.table->size(), model.size());
    EXPECT_LE(oldest, this->rowTable.table->oldestChangeIdx());
    EXPECT_LE(latest, this->rowTable.table->latestChangeIdx());
    oldest = this->rowTable.table->oldestChangeIdx();
    latest = this->rowTable.table->latestChangeIdx();
    std::vector<bool> seen(65);
    std::uint64_t before = oldest;
    for (const auto& change : changes) {
      EXPECT_GT(change.index, before);
      before = change.index;
      EXPECT_FALSE(seen[change.n]) << "two changes of one key";
      seen[change.n] = true;
      EXPECT_EQ(model.contains(change.n), change.kind == Lumen::ChangeKind::written);
    }
  }

  unsigned started = seed();
  std::mt19937 random{started};
  std::uint64_t stamp = 0;
  std::uint64_t oldest = 0;
  std::uint64_t latest = 0;
  std::map<std::uint64_t, Entry> model;
  std::vector<std::shared_ptr<Observer>> observers;
};
TYPED_TEST_SUITE(RandomOperations, AllKinds);

TYPED_TEST(RandomOperations, EveryObserverEndsWithTheTablesContent) {
  std::printf("TOLMAR_SEED=%u\n", this->started);
  SCOPED_TRACE("TOLMAR_SEED=" + std::to_string(this->started));
  for (int i = 0; i < 6000; ++i) {
    this->step();
    if (i % 50 == 0) this->check();
    if (this->HasFailure()) FAIL() << "at operation " << i;
  }
  this->attach();
  for (const auto& observer : this->observers) observer->throws = observer->writes = false;
  for (const auto& observer : this->observers) {
    observer->consume();
    EXPECT_EQ(observer->copy, this->model);
  }
  std::map<std::uint64_t, typename TypeParam::Kind::Entry> walked;
  for (auto at = this->rowTable.table->begin(); at; ++at) {
    const auto entry = this->rowTable.entryOf(*at);
    EXPECT_TRUE(walked.emplace(entry.entryHandle - 1000, entry).second);
  }
  EXPECT_EQ(walked, this->model);
  for (const auto& observer : this->observers) this->rowTable.table->observerDel(*observer);
}

}  // namespace
}  // namespace WrapperTest

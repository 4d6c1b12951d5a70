// What the operations of a table cost at 64 to 1,000,000 rows, beside the same work on the heap: a lookup in
// a hash map that copies and verifies; for all that writes, the steps of a write by hand; for attaching,
// mapping the same file and checksumming its rows. Keys come in any order, so that large tables show the
// caches of the processor as they do in use.
//
//   growth_bench [--rounds N] [--rows N] [--tsv]
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "TableBench.h"
#include "benchmarks/rounds/Rounds.h"

namespace {

using namespace TableBench;

constexpr std::size_t kOperations = 8192;  // of each kind in a round

/// A full table and its yardsticks, all with the same rows at first.
class Size {
 public:
  Size(std::size_t rows, Rounds::Report& report)
      : rows_(rows),
        report_(report),
        keys_(shuffled(rows)),
        next_(rows),
        map_(makeMap(keys_)),
        byHand_(keys_),
        numbersByHand_(keys_),
        writer_(std::in_place, options()),
        reader_(options()) {
    for (const Key& key : keys_) writer_->write({key, makeEntry(key, 1)}, false);
    reader_.onChangeIs([this](const Key&) { ++changed_; });
    catchUp();
  }

  void round() {
    lookUp();
    rewrite();
    follow();
    replaceRows();
    attach();
  }
  void addBytesPerRow() {
    const Vesta::Layout layout(Vesta::shapeOf<Key, Entry>(static_cast<std::uint32_t>(rows_)));
    report_.add(0, name("bytes per row"), "B", byHand_.bytesPerRow());
    report_.add(1, name("bytes per row"), "B",
                static_cast<double>(layout.bytes()) / static_cast<double>(rows_));
  }

 private:
  static std::vector<Key> shuffled(std::size_t rows) {
    std::vector<Key> keys = makeKeys(rows, Keys::consecutive);
    std::shuffle(keys.begin(), keys.end(), std::mt19937_64(11));
    return keys;
  }
  Vesta::AttachOptions options() const {
    Vesta::AttachOptions options = folder_.options(static_cast<std::int64_t>(rows_));
    options.initialRows = Vesta::InitialRows::skip;
    return options;
  }
  std::string name(const char* operation) const {
    return std::string(operation) + ", " + std::to_string(rows_) + " rows";
  }
  /// Nanoseconds for each call of `operation`, which gets the places of `count` keys.
  template <class Operation>
  double each(std::size_t count, const Operation& operation) const {
    return 1e9 / static_cast<double>(count) * Rounds::secondsOf([&] {
             for (std::size_t i = 0; i < count; ++i) operation((at_ + i) % rows_);
           });
  }
  /// Each measure has keys that none before it has brought into the caches; at the largest size, that is.
  void advance() { at_ += kOperations; }
  void catchUp() {
    while (reader_.poll(256) != 0) {
    }
  }

  void lookUp() {
    std::uint64_t sum = 0;
    report_.add(0, name("lookup"), "ns", each(kOperations, [&](std::size_t place) {
                  const Stored copy = map_.find(numbersByHand_[place])->second;
                  if (Cairn::checksum(&copy.entry, sizeof copy.entry) != copy.check) std::abort();
                  sum += copy.entry.genId;
                }));
    report_.add(1, name("lookup"), "ns", each(kOperations, [&](std::size_t place) {
                  bool found = false;
                  sum += reader_.directLookup(keys_[place], found, nullptr).genId;
                  if (!found) std::abort();
                }));
    benchmark::DoNotOptimize(sum);
    advance();
  }
  /// Of the yardstick that stands for all that writes.
  double writeByHand() {
    return each(kOperations, [this](std::size_t place) {
      byHand_.write(numbersByHand_[place], makeEntry(numbersByHand_[place], 2));
    });
  }
  void rewrite() {
    report_.add(0, name("rewrite"), "ns", writeByHand());
    report_.add(1, name("rewrite"), "ns", each(kOperations, [this](std::size_t place) {
                  writer_->write({keys_[place], makeEntry(keys_[place], 2)}, false);
                }));
    catchUp();
    advance();
  }
  /// As many changes at a time as the change log holds for certain.
  void follow() {
    const std::size_t count = std::min(kOperations, rows_ / 2);
    const std::uint64_t before = changed_;
    double seconds = 0;
    for (std::size_t done = 0; done < kOperations; done += count) {
      each(count, [this](std::size_t place) {
        writer_->write({keys_[place], makeEntry(keys_[place], 3)}, false);
      });
      seconds += Rounds::secondsOf([this] { catchUp(); });
    }
    report_.add(0, name("follow a change"), "ns", writeByHand());
    report_.add(1, name("follow a change"), "ns", 1e9 * seconds / static_cast<double>(kOperations));
    if (changed_ - before != kOperations) std::abort();
    advance();
  }
  /// Half of the rows at most make room for as many new ones, as often as it takes.
  void replaceRows() {
    const std::size_t count = std::min(kOperations, rows_ / 2);
    double removing = 0;
    double inserting = 0;
    for (std::size_t done = 0; done < kOperations; done += count) {
      removing += each(count, [this](std::size_t place) {
        if (!writer_->remove(keys_[place], nullptr)) std::abort();
      });
      for (std::size_t i = 0; i < count; ++i) keys_[(at_ + i) % rows_] = makeKey(next_++);
      inserting += each(count, [this](std::size_t place) {
        writer_->write({keys_[place], makeEntry(keys_[place], 1)}, false);
      });
      catchUp();
    }
    const double times = static_cast<double>(kOperations / count);
    report_.add(0, name("insert"), "ns", writeByHand());
    report_.add(1, name("insert"), "ns", inserting / times);
    advance();
    report_.add(0, name("remove"), "ns", writeByHand());
    report_.add(1, name("remove"), "ns", removing / times);
    advance();
  }
  void attach() {
    const double perRow = 1e9 / static_cast<double>(rows_);
    report_.add(0, name("attach, each row"), "ns",
                perRow * Rounds::secondsOf([this] { mapAndVerify(options().path.text(), rows_); }));
    report_.add(1, name("attach, each row"), "ns",
                perRow * Rounds::secondsOf([this] { const Reader reader(options()); }));
  }

  std::size_t rows_;
  Rounds::Report& report_;  // not owned
  Folder folder_;
  std::vector<Key> keys_;  // of the table, in any order
  std::uint64_t next_;
  Map map_;
  ByHand byHand_;
  std::vector<Key> numbersByHand_;  // of the yardsticks
  std::optional<Writer> writer_;
  Reader reader_;
  std::uint64_t changed_ = 0;
  std::size_t at_ = 0;
};

}  // namespace

int main(int count, char** arguments) {
  try {
    Rounds::Plan usual;
    usual.batches = {64, 8192, 65'536, 1'000'000};
    const Rounds::Plan plan = Rounds::planOf({arguments + 1, arguments + count}, {}, usual);
    Rounds::Report report({"by hand", "table"}, plan);
    std::vector<std::unique_ptr<Size>> sizes;
    for (const std::size_t rows : plan.batches) sizes.push_back(std::make_unique<Size>(rows, report));
    Rounds::each(plan, [&](std::size_t) {
      for (const auto& size : sizes) size->round();
    });
    for (const auto& size : sizes) size->addBytesPerRow();
    report.print();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "growth_bench: %s\n", error.what());
    return 1;
  }
}

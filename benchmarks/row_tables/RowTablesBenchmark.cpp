// Row tables over shared memory beside the bare chain of the steps that a write cannot do without: row to
// entry, segment write, the reactor's lookup, entry to row, hash find, ordered-map erase and insert. All in
// one run, the repetitions interleaved; the end names the ratios of the medians.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <numeric>
#include <random>
#include <unordered_map>

#include "P4RuntimePlugin/P4RuntimePluginHelper.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypesLumenWrappers.h"
#include "tests/RuntimeFolder.h"

namespace {

using namespace TolmarHwLib;
using Row = L3IifTH3ConfigEntryRow;
using Wrapper = L3IifTH3ConfigLumenWrappers::TableLumenWrapper;

constexpr unsigned kCapacity = 8192;

L3IifTH3ConfigEntry entryOf(std::uint64_t n) {
  L3IifTH3ConfigEntry entry;
  entry.genId = 1;
  entry.entryHandle = n + 1;
  entry.valid = true;
  entry.l3Iif = n;
  entry.classId = 7;
  entry.vrf = 9;
  return entry;
}

/// A registered L3 IIF table and `count` rows for it in random order.
struct Table {
  explicit Table(std::size_t count) {
    helper.mountVestaTables("TolmarHwLib::L3IifTH3", "l3IifTH3", "Table", kCapacity);
    config = helper.tableConfig<L3IifTH3Config>("l3IifTH3");
    helper.registerConfigTable<L3IifTH3Config, Row, Wrapper>(config, "l3IifTH3");
    table = db->table("LumenL3IifTH3ConfigTable");
    wrapper = std::dynamic_pointer_cast<Wrapper>(table->implementation());
    std::vector<std::uint64_t> keys(count);
    std::iota(keys.begin(), keys.end(), 0);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    for (const std::uint64_t key : keys) rows.push_back(Row::fromEntry(entryOf(key)));
  }
  ~Table() { db->tableImplementationDel(table->name()); }
  void fill() {
    for (const auto& row : rows) table->rowIs(row);
  }
  void empty() {
    config->tableDelAll();
    wrapper->cleanChangeMap(wrapper->latestChangeIdx());
  }

  RuntimeFolder folder;
  Quill::EventLoop loop;
  Quill::Ptr<Orrery::EntityManager> manager = Quill::allocate<Orrery::EntityManager>(folder.path(), loop);
  std::shared_ptr<Lumen::LumenDB> db = std::make_shared<Lumen::LumenDB>();
  P4Runtime::P4RuntimePluginHelper helper{db, manager, "bench/"};
  L3IifTH3Config::Ptr config;
  std::shared_ptr<Lumen::LmTable> table;
  std::shared_ptr<Wrapper> wrapper;
  std::vector<Lumen::BaseRow> rows;
};

/// The obligatory steps and nothing else, on a segment of its own.
struct Chain {
  explicit Chain(Table& of) : map(of.config->table()) { keyToChange.reserve(200); }

  void write(const Lumen::BaseRow& row) {
    const L3IifTH3ConfigEntry entry = Row(row).entry();
    const L3IifTH3Key key = entry.key();
    map.write(key, entry);
    bool found = false;
    const auto& stored = map.directLookup(key, found);
    scratch.fill(stored);
    index += 2;
    const auto known = keyToChange.find(key);
    if (known == keyToChange.end()) {
      keyToChange.emplace(key, index);
    } else {
      changes.erase(known->second);
      known->second = index;
    }
    changes.emplace(index, key);
  }

  struct Hash {
    std::size_t operator()(const L3IifTH3Key& key) const { return key.hash(); }
  };
  L3IifTH3Config::Map& map;
  Row scratch;
  std::uint64_t index = 0;
  std::map<std::uint64_t, L3IifTH3Key> changes;
  std::unordered_map<L3IifTH3Key, std::uint64_t, Hash> keyToChange;
};

void rowsPerSecond(benchmark::State& state, std::size_t each = 1) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(each));
}

template <class Write>
void overwrite(benchmark::State& state, const std::vector<Lumen::BaseRow>& rows, const Write& write) {
  for (const auto& row : rows) write(row);
  std::size_t at = 0;
  for (auto _ : state) {
    write(rows[at]);
    if (++at == rows.size()) at = 0;
  }
  rowsPerSecond(state);
}

void existingChain(benchmark::State& state) {
  Table own(static_cast<std::size_t>(state.range(0)));
  own.db->tableImplementationDel(own.table->name());  // nobody hears of these writes
  Chain chain(own);
  overwrite(state, own.rows, [&](const auto& row) { chain.write(row); });
}

void existingRowIs(benchmark::State& state) {
  Table own(static_cast<std::size_t>(state.range(0)));
  overwrite(state, own.rows, [&](const auto& row) { own.table->rowIs(row); });
}

void fillChain(benchmark::State& state) {
  Table own(kCapacity);
  Chain chain(own);  // kept, as the row table is: the hash map has its buckets from the first round on
  for (auto _ : state) {
    state.PauseTiming();
    own.empty();
    chain.changes.clear();
    chain.keyToChange.clear();
    state.ResumeTiming();
    for (const auto& row : own.rows) chain.write(row);
  }
  rowsPerSecond(state, kCapacity);
}

void fillRowIs(benchmark::State& state) {
  Table own(kCapacity);
  for (auto _ : state) {
    state.PauseTiming();
    own.empty();
    state.ResumeTiming();
    own.fill();
  }
  rowsPerSecond(state, kCapacity);
}

void walkEntries(benchmark::State& state) {
  Table own(static_cast<std::size_t>(state.range(0)));
  own.fill();
  auto& map = own.config->table();
  for (auto _ : state) {
    L3IifTH3Config::Map::Row value;
    Vesta::IterHint hint;
    for (bool more = map.first(value, hint); more; more = map.next(value.key, value, hint)) {
      benchmark::DoNotOptimize(value);
    }
  }
  rowsPerSecond(state, own.rows.size());
}

void walkRows(benchmark::State& state) {
  Table own(static_cast<std::size_t>(state.range(0)));
  own.fill();
  for (auto _ : state) {
    for (auto at = own.table->begin(); at; ++at) {
      const Lumen::BaseRow row = *at;
      benchmark::DoNotOptimize(&row);
    }
  }
  rowsPerSecond(state, own.rows.size());
}

void nextChange(benchmark::State& state) {
  Table own(static_cast<std::size_t>(state.range(0)));
  own.fill();
  const std::uint64_t middle = own.table->latestChangeIdx() / 2;
  for (auto _ : state) benchmark::DoNotOptimize(own.table->nextChange(middle));
}

void stepChange(benchmark::State& state) {
  Table own(static_cast<std::size_t>(state.range(0)));
  own.fill();
  constexpr std::size_t kIterators = 1024;
  constexpr std::size_t kSteps = 15;  // that the smallest table has
  std::vector<Lumen::LmChangeIterator> iterators;
  while (state.KeepRunningBatch(kIterators * kSteps)) {
    state.PauseTiming();
    iterators.assign(kIterators, own.table->nextChange(0));
    state.ResumeTiming();
    for (auto& at : iterators) {
      for (std::size_t i = 0; i < kSteps; ++i) ++at;
    }
  }
}

BENCHMARK(existingChain)->Arg(1)->Arg(kCapacity);
BENCHMARK(existingRowIs)->Arg(1)->Arg(kCapacity);
BENCHMARK(fillChain)->Unit(benchmark::kMicrosecond);
BENCHMARK(fillRowIs)->Unit(benchmark::kMicrosecond);
BENCHMARK(walkEntries)->Arg(kCapacity)->Unit(benchmark::kMicrosecond);
BENCHMARK(walkRows)->Arg(kCapacity)->Unit(benchmark::kMicrosecond);
BENCHMARK(nextChange)->Arg(16)->Arg(kCapacity);
BENCHMARK(stepChange)->Arg(16)->Arg(kCapacity);

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(isatty(STDOUT_FILENO) != 0 ? OO_Defaults : OO_None) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.aggregate_name == "median") medians_[run.run_name.str()] = run.GetAdjustedCPUTime();
    }
  }
  /// Prints time of `a` by time of `b`, and what is asked of it.
  void ratio(const char* a, const char* b, const char* asked) const {
    if (!medians_.contains(a) || !medians_.contains(b)) return;
    std::printf("%-22s / %-22s %6.2f   %s\n", a, b, medians_.at(a) / medians_.at(b), asked);
  }

 private:
  std::map<std::string, double> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<char*> arguments(argv, argv + argc);
  std::string defaults[] = {"--benchmark_repetitions=11", "--benchmark_enable_random_interleaving=true",
                            "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.05"};
  for (std::string& one : defaults) arguments.insert(arguments.begin() + 1, one.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.ratio("existingChain/1", "existingRowIs/1", "at least 0.7");
  reporter.ratio("existingChain/8192", "existingRowIs/8192", "at least 0.7");
  reporter.ratio("fillChain", "fillRowIs", "at least 0.7");
  reporter.ratio("walkRows/8192", "walkEntries/8192", "below 3");
  reporter.ratio("nextChange/8192", "nextChange/16", "near 1");
  reporter.ratio("stepChange/8192", "stepChange/16", "near 1");
  return 0;
}

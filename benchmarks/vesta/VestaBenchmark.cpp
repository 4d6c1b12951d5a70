// Tables in shared memory against the same work on the heap. Each benchmark runs its yardstick in turn with
// the measured work, block by block, and reports the median of the blocks' ratios: the only figure that means
// something on a busy machine.
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <random>

#include "TableBench.h"

namespace {

using namespace TableBench;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kBlock = 8192;

// Keys as they are asked for: in the order in which they were written, or in any order, which shows the
// caches rather than the table. Each block visits every key equally often. A turn goes through it many
// times, so that what it finds in the caches is its own and not the other side's.
constexpr int kPasses = 16;
std::vector<Key> makeBlock(const std::vector<Key>& keys, bool shuffled) {
  std::vector<Key> block;
  while (block.size() < kBlock) block.insert(block.end(), keys.begin(), keys.end());
  if (shuffled) std::shuffle(block.begin(), block.end(), std::mt19937_64(11));
  return block;
}

double nanoseconds(Clock::duration time, std::size_t count) {
  return std::chrono::duration<double, std::nano>(time).count() / static_cast<double>(count);
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

// Runs measured work and yardstick in turn until the benchmark has enough.
template <class Measured, class Yardstick>
void compare(benchmark::State& state, std::size_t count, const Measured& measured,
             const Yardstick& yardstick) {
  std::vector<double> ratios;
  std::vector<double> ours;
  std::vector<double> theirs;
  for (auto _ : state) {
    const auto begin = Clock::now();
    measured();
    const auto middle = Clock::now();
    yardstick();
    const auto end = Clock::now();
    state.SetIterationTime(std::chrono::duration<double>(middle - begin).count());
    ours.push_back(nanoseconds(middle - begin, count));
    theirs.push_back(nanoseconds(end - middle, count));
    ratios.push_back(ours.back() / theirs.back());
  }
  state.counters["ns_each"] = median(ours);
  state.counters["yardstick_ns"] = median(theirs);
  state.counters["ratio"] = median(ratios);
}

// The yardstick of lookups: find, copy out, verify.
std::uint64_t lookUpInMap(const Map& map, const std::vector<Key>& block) {
  std::uint64_t sum = 0;
  for (int pass = 0; pass < kPasses; ++pass) {
    for (const Key& key : block) {
      const auto found = map.find(key);
      const Stored copy = found->second;
      if (Cairn::checksum(&copy.entry, sizeof copy.entry) != copy.check) std::abort();
      sum += copy.entry.genId;
    }
  }
  return sum;
}

std::uint64_t lookUpInTable(Reader& table, const std::vector<Key>& block) {
  std::uint64_t sum = 0;
  for (int pass = 0; pass < kPasses; ++pass) {
    for (const Key& key : block) {
      bool found = false;
      sum += table.directLookup(key, found, nullptr).genId;
      if (!found) std::abort();
    }
  }
  return sum;
}

// Full, so that a small table differs from a large one in nothing but its size.
struct FullTable {
  explicit FullTable(const benchmark::State& state)
      : keys(makeKeys(static_cast<std::size_t>(state.range(0)), static_cast<Keys>(state.range(1)))),
        block(makeBlock(keys, state.range(2) != 0)),
        writer(folder.options(state.range(0))),
        reader(folder.options(state.range(0))) {
    for (const Key& key : keys) writer.write({key, makeEntry(key, 1)}, false);
  }
  Folder folder;
  std::vector<Key> keys;
  std::vector<Key> block;
  Writer writer;
  Reader reader;
};

void lookup(benchmark::State& state) {
  FullTable table(state);
  const Map map = makeMap(table.keys);
  compare(
      state, kPasses * table.block.size(),
      [&] { benchmark::DoNotOptimize(lookUpInTable(table.reader, table.block)); },
      [&] { benchmark::DoNotOptimize(lookUpInMap(map, table.block)); });
}

// Another process rewrites all rows at full speed.
void lookupBesideWriter(benchmark::State& state) {
  const Folder folder;
  const Vesta::AttachOptions options = folder.options(state.range(0));
  const auto keys = makeKeys(static_cast<std::size_t>(state.range(0)), Keys::consecutive);
  const auto block = makeBlock(keys, true);
  { Writer filling(options); }
  const pid_t child = fork();
  if (child == 0) {
    Writer table(options);
    for (std::uint64_t stamp = 1;; ++stamp) {
      for (const Key& key : keys) table.write({key, makeEntry(key, stamp)}, false);
    }
  }
  Reader reader(options);
  while (reader.members() < keys.size()) {
  }
  const Map map = makeMap(keys);
  compare(
      state, kPasses * block.size(), [&] { benchmark::DoNotOptimize(lookUpInTable(reader, block)); },
      [&] { benchmark::DoNotOptimize(lookUpInMap(map, block)); });
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

void writeExisting(benchmark::State& state) {
  FullTable table(state);
  ByHand byHand(table.keys);
  std::uint64_t stamp = 1;
  const auto rewrite = [&](const auto& write) {
    for (int pass = 0; pass < kPasses; ++pass) {
      for (const Key& key : table.block) write(key, makeEntry(key, ++stamp));
    }
  };
  compare(
      state, kPasses * table.block.size(),
      [&] { rewrite([&](const Key& key, const Entry& entry) {
              table.writer.write({key, entry}, false);
            }); },
      [&] { rewrite([&](const Key& key, const Entry& entry) { byHand.write(key, entry); }); });
}

// A full table: each removal makes room for the one insertion after it. The yardstick writes twice.
void churn(benchmark::State& state) {
  const Folder folder;
  const auto keys = makeKeys(kBlock, Keys::consecutive);
  Writer table(folder.options());
  for (const Key& key : keys) table.write({key, makeEntry(key, 1)}, false);
  ByHand byHand(keys);
  std::uint64_t next = kBlock;
  compare(
      state, 2 * kBlock,
      [&] {
        for (std::size_t i = 0; i < kBlock; ++i, ++next) {
          table.remove(makeKey(next - kBlock), nullptr);
          table.write({makeKey(next), makeEntry(makeKey(next), 1)}, false);
        }
      },
      [&] {
        for (int twice = 0; twice < 2; ++twice) {
          for (const Key& key : keys) byHand.write(key, makeEntry(key, 1));
        }
      });
}

// Attaching to a full table, against mapping the same file and checksumming the same bytes.
void attach(benchmark::State& state) {
  const Folder folder;
  {
    Writer table(folder.options());
    for (const Key& key : makeKeys(8192, Keys::consecutive)) table.write({key, makeEntry(key, 1)}, false);
  }
  Vesta::AttachOptions options = folder.options();
  options.initialRows = Vesta::InitialRows::skip;
  const auto yardstick = [&options] { mapAndVerify(options.path.text(), 8192); };
  if (state.range(0) == 0) {
    compare(
        state, 8192, [&] { Reader reader(options); }, yardstick);
  } else {
    compare(
        state, 8192, [&] { Writer writer(options); }, yardstick);
  }
}

// Following: 8192 changes handed out one by one, against writing them.
void follow(benchmark::State& state) {
  const Folder folder;
  const auto keys = makeKeys(kBlock, Keys::consecutive);
  Writer table(folder.options());
  Reader reader(folder.options());
  std::uint64_t sum = 0;
  reader.onChangeIs([&sum](const Key& key) { sum += key.l3Iif; });
  const auto write = [&] {
    for (const Key& key : keys) table.write({key, makeEntry(key, 1)}, false);
  };
  write();
  compare(
      state, kBlock,
      [&] {
        while (reader.poll(256) != 0) {
        }
      },
      write);
  benchmark::DoNotOptimize(sum);
}

void memory(benchmark::State& state) {
  const auto perEntry = [](auto key, auto entry, std::uint32_t capacity) {
    const Vesta::Layout layout(Vesta::shapeOf<decltype(key), decltype(entry)>(capacity));
    return static_cast<double>(layout.bytes()) / capacity;
  };
  using namespace TolmarHwLib;
  for (auto _ : state) {
    state.counters["tunnel_config"] = perEntry(L3TunnelTH3Key(), L3TunnelTH3ConfigEntry(), 8192);
    state.counters["tunnel_config_4096"] = perEntry(L3TunnelTH3Key(), L3TunnelTH3ConfigEntry(), 4096);
    state.counters["tunnel_status"] = perEntry(L3TunnelTH3Key(), L3TunnelTH3StatusEntry(), 8192);
    state.counters["station_config"] = perEntry(MyStationTcamTH3Key(), MyStationTcamTH3ConfigEntry(), 512);
    state.counters["station_status"] = perEntry(MyStationTcamTH3Key(), MyStationTcamTH3StatusEntry(), 512);
    state.counters["iif_config"] = perEntry(L3IifTH3Key(), L3IifTH3ConfigEntry(), 8192);
    state.counters["iif_status"] = perEntry(L3IifTH3Key(), L3IifTH3StatusEntry(), 8192);
  }
}

void kinds(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"rows", "alike", "shuffled"})->UseManualTime();
  for (const bool shuffled : {false, true}) {
    benchmark->Args({64, 0, shuffled})->Args({8192, 0, shuffled})->Args({8192, 1, shuffled});
  }
}

BENCHMARK(lookup)->Apply(kinds);
BENCHMARK(lookupBesideWriter)->Arg(64)->Arg(8192)->UseManualTime();
BENCHMARK(writeExisting)->Apply(kinds);
BENCHMARK(churn)->UseManualTime();
BENCHMARK(attach)->ArgName("writer")->Arg(0)->Arg(1)->UseManualTime();
BENCHMARK(follow)->UseManualTime();
BENCHMARK(memory)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();

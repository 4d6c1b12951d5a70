// Tables in shared memory against the same work on the heap. Each benchmark runs its yardstick in turn with
// the measured work, block by block, and reports the median of the blocks' ratios: the only figure that means
// something on a busy machine.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <numeric>
#include <random>
#include <unordered_map>
#include <vector>

#include "P4RuntimeTolmar/OutputTables.h"
#include "P4RuntimeTolmar/RecordCodec.h"
#include "cairn/Hash.h"
#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace {

using Key = TolmarHwLib::L3IifTH3Key;
using Entry = TolmarHwLib::L3IifTH3ConfigEntry;
using Writer = Vesta::VestaWriter<Key, Entry>;
using Reader = Vesta::VestaReader<Key, Entry>;
using Clock = std::chrono::steady_clock;
using Vesta::Word;

constexpr std::size_t kBlock = 8192;

struct Folder {
  std::string path = "/dev/shm/tolmar-bench-XXXXXX";
  Folder() {
    if (mkdtemp(path.data()) == nullptr) std::abort();
  }
  ~Folder() { std::filesystem::remove_all(path); }
  Vesta::AttachOptions options(std::int64_t capacity = 8192) const {
    return {.path = Vesta::RootPath(path, "bench/place", "table"),
            .capacity = static_cast<std::uint32_t>(capacity)};
  }
};

Key makeKey(std::uint64_t id) {
  Key key;
  key.l3Iif = id;
  return key;
}

Entry makeEntry(const Key& key, std::uint64_t stamp) {
  Entry entry{};
  static_cast<Key&>(entry) = key;
  entry.genId = stamp;
  entry.vrf = static_cast<std::uint16_t>(stamp);
  return entry;
}

// Key i of a table: consecutive numbers, or numbers alike in their low 32 bits.
enum class Keys { consecutive, alikeInLowHalf };

std::vector<Key> makeKeys(std::size_t count, Keys kind) {
  std::vector<Key> keys;
  for (std::size_t i = 0; i < count; ++i) keys.push_back(makeKey(kind == Keys::consecutive ? i : i << 32));
  return keys;
}

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

struct Stored {
  Entry entry;
  std::uint32_t check;
};

struct HashKey {
  std::size_t operator()(const Key& key) const { return key.l3Iif; }
};

using Map = std::unordered_map<Key, Stored, HashKey>;

Map makeMap(const std::vector<Key>& keys) {
  Map map;
  for (const Key& key : keys) {
    Stored stored{makeEntry(key, 1), 0};
    stored.check = Cairn::checksum(&stored.entry, sizeof stored.entry);
    map.emplace(key, stored);
  }
  return map;
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

// The steps of a write by hand, on the heap: hash, probe, copy, checksum, log record, publish.
class ByHand {
 public:
  static constexpr std::size_t kKeyWords = 1;
  static constexpr std::size_t kWords = 6;

  // `keys`: a power of two of them, which fill it.
  explicit ByHand(const std::vector<Key>& keys)
      : mask_(2 * keys.size() - 1), index_(mask_ + 1), slots_(keys.size()), log_(mask_ + 1) {
    for (const Key& key : keys) {
      const auto slot = static_cast<std::uint32_t>(used_++);
      std::size_t at = Vesta::hashOf(&key.l3Iif, kKeyWords) & mask_;
      while (index_[at] != 0) at = (at + 1) & mask_;
      index_[at] = slot + 1;
      slots_[slot].row[0] = key.l3Iif;
    }
  }
  void write(const Key& key, const Entry& entry) {
    Word row[kWords] = {};
    Vesta::Codec<Key>::encode(key, reinterpret_cast<std::uint8_t*>(row));
    Vesta::Codec<Entry>::encode(entry, reinterpret_cast<std::uint8_t*>(row + kKeyWords));
    std::size_t at = Vesta::hashOf(row, kKeyWords) & mask_;
    while (slots_[index_[at] - 1].row[0] != row[0]) at = (at + 1) & mask_;
    Slot& slot = slots_[index_[at] - 1];
    ++sequence_;
    Record& record = log_[sequence_ & mask_];
    record.sequence = sequence_;
    record.key = row[0];
    record.check = Cairn::checksum(&record, 16);
    std::memcpy(slot.row, row, sizeof row);
    slot.check = Cairn::checksum(row, sizeof row);
    published_.store(sequence_, std::memory_order_seq_cst);
  }

 private:
  struct Slot {
    Word check;
    Word row[kWords];
  };
  struct Record {
    Word sequence;
    Word key;
    Word check;
  };
  std::size_t mask_;
  std::vector<std::uint32_t> index_;
  std::vector<Slot> slots_;
  std::vector<Record> log_;
  std::size_t used_ = 0;
  Word sequence_ = 0;
  alignas(64) std::atomic<Word> published_{0};
};

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
  const std::string file = folder.options().path.text();
  const Vesta::Layout layout(Vesta::shapeOf<Key, Entry>(8192));
  Vesta::AttachOptions options = folder.options();
  options.initialRows = Vesta::InitialRows::skip;
  const auto yardstick = [&] {
    const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
    auto* words = static_cast<Word*>(mmap(nullptr, layout.bytes(), PROT_READ, MAP_SHARED, descriptor, 0));
    std::uint32_t sum = 0;
    for (std::uint32_t slot = 0; slot < 8192; ++slot) {
      sum ^= Cairn::checksum(words + layout.slotAt(slot), (1 + layout.rowWords) * sizeof(Word), slot);
    }
    benchmark::DoNotOptimize(sum);
    munmap(words, layout.bytes());
    close(descriptor);
  };
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

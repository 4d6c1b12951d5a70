// Tables in shared memory and the same work on the heap, for the benchmarks of the table service.
#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "P4RuntimeTolmar/OutputTables.h"
#include "P4RuntimeTolmar/RecordCodec.h"
#include "cairn/Hash.h"
#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace TableBench {

using Key = TolmarHwLib::L3IifTH3Key;
using Entry = TolmarHwLib::L3IifTH3ConfigEntry;
using Writer = Vesta::VestaWriter<Key, Entry>;
using Reader = Vesta::VestaReader<Key, Entry>;
using Vesta::Word;

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

inline Key makeKey(std::uint64_t id) {
  Key key;
  key.l3Iif = id;
  return key;
}

inline Entry makeEntry(const Key& key, std::uint64_t stamp) {
  Entry entry{};
  static_cast<Key&>(entry) = key;
  entry.genId = stamp;
  entry.vrf = static_cast<std::uint16_t>(stamp);
  return entry;
}

// Key i of a table: consecutive numbers, or numbers alike in their low 32 bits.
enum class Keys { consecutive, alikeInLowHalf };

inline std::vector<Key> makeKeys(std::size_t count, Keys kind) {
  std::vector<Key> keys;
  for (std::size_t i = 0; i < count; ++i) keys.push_back(makeKey(kind == Keys::consecutive ? i : i << 32));
  return keys;
}

struct Stored {
  Entry entry;
  std::uint32_t check;
};

struct HashKey {
  std::size_t operator()(const Key& key) const { return key.l3Iif; }
};

using Map = std::unordered_map<Key, Stored, HashKey>;

inline Map makeMap(const std::vector<Key>& keys) {
  Map map;
  for (const Key& key : keys) {
    Stored stored{makeEntry(key, 1), 0};
    stored.check = Cairn::checksum(&stored.entry, sizeof stored.entry);
    map.emplace(key, stored);
  }
  return map;
}

// The steps of a write by hand, on the heap: hash, probe, copy, checksum, log record, publish.
class ByHand {
 public:
  static constexpr std::size_t kKeyWords = 1;
  static constexpr std::size_t kWords = 6;

  explicit ByHand(const std::vector<Key>& keys)
      : mask_(2 * std::bit_ceil(keys.size()) - 1), index_(mask_ + 1), slots_(keys.size()), log_(mask_ + 1) {
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
  double bytesPerRow() const {
    const std::size_t bytes =
        index_.size() * sizeof index_[0] + slots_.size() * sizeof(Slot) + log_.size() * sizeof(Record);
    return static_cast<double>(bytes) / static_cast<double>(slots_.size());
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

/// The yardstick of attaching: maps the table's file and checksums its rows.
inline void mapAndVerify(const std::string& file, std::size_t rows) {
  const Vesta::Layout layout(Vesta::shapeOf<Key, Entry>(static_cast<std::uint32_t>(rows)));
  const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
  auto* words = static_cast<Word*>(mmap(nullptr, layout.bytes(), PROT_READ, MAP_SHARED, descriptor, 0));
  std::uint32_t sum = 0;
  for (std::uint32_t slot = 0; slot < rows; ++slot) {
    sum ^= Cairn::checksum(words + layout.slotAt(slot), (1 + layout.rowWords) * sizeof(Word), slot);
  }
  benchmark::DoNotOptimize(sum);
  munmap(words, layout.bytes());
  close(descriptor);
}

}  // namespace TableBench

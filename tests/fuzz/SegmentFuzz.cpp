// Whole segments as hostile input. The input damages a sound segment, or replaces all that is in its tables;
// then everything that takes a segment from outside runs over it: a follower with changes pending in the log,
// an observer's walk, lookups and changes, a writer's take-over with repair. Only exceptions may come out,
// and what is read must be a row that was written.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace {

struct FuzzKey {
  std::uint64_t id = 0;
};
struct FuzzEntry {
  std::uint64_t id = 0;
  std::uint64_t proof = 0;
};
constexpr std::uint64_t proofOf(std::uint64_t id) { return id * 0x9e3779b97f4a7c15u + 1; }

template <class T>
struct PlainCodec {
  static constexpr std::size_t size = sizeof(T);
  static constexpr std::string_view text = sizeof(T) == 8 ? "id" : "id,proof";
  static void encode(const T& value, std::uint8_t* bytes) { std::memcpy(bytes, &value, size); }
  static void decode(const std::uint8_t* bytes, T& value) { std::memcpy(&value, bytes, size); }
};

}  // namespace

template <>
struct Vesta::Codec<FuzzKey> : PlainCodec<FuzzKey> {};
template <>
struct Vesta::Codec<FuzzEntry> : PlainCodec<FuzzEntry> {};

namespace {

using Writer = Vesta::VestaWriter<FuzzKey, FuzzEntry>;
using Reader = Vesta::VestaReader<FuzzKey, FuzzEntry>;
using Row = Vesta::Value<FuzzKey, FuzzEntry>;

constexpr std::uint32_t kCapacity = 8;
constexpr std::uint64_t kIds = 12;

struct Fixture {
  std::string folder = "/dev/shm/tolmar-fuzz-XXXXXX";
  std::string earlier;  // the same segment some changes before
  std::string sound;

  Fixture() {
    if (mkdtemp(folder.data()) == nullptr) std::abort();
    Writer table(options());
    const auto change = [&](std::uint64_t i) {
      if (i % 5 == 4) {
        table.remove(FuzzKey{(i - 2) % kIds}, nullptr);
      } else if (table.members() < kCapacity) {
        table.write(Row{{i % kIds}, {i % kIds, proofOf(i % kIds)}}, false);
      }
    };
    for (std::uint64_t i = 0; i < 30; ++i) change(i);
    earlier = bytes(table);
    for (std::uint64_t i = 30; i < 42; ++i) change(i);
    sound = bytes(table);
  }
  ~Fixture() { std::filesystem::remove_all(folder); }

  static std::string bytes(Writer& table) {
    const Vesta::Segment& segment = *table.segment().mapping();
    return {reinterpret_cast<const char*>(&segment.at(0)), segment.layout().bytes()};
  }
  Vesta::AttachOptions options() const {
    Vesta::AttachOptions options{.path = Vesta::RootPath(folder, "fuzz", "table"), .capacity = kCapacity};
    options.debugHandler = std::make_shared<Cairn::DebugHandler>(0);
    return options;
  }
  std::string file() const { return folder + "/fuzz/table"; }
  /// A new file with these bytes.
  void put(const std::string& bytes) const {
    for (const auto& old : std::filesystem::directory_iterator(folder + "/fuzz")) {
      if (old.path().filename() != "table.lock") std::filesystem::remove(old.path());
    }
    over(bytes);
  }
  /// The bytes of the file that is there, under whoever maps it.
  void over(const std::string& bytes) const {
    const int to = open(file().c_str(), O_WRONLY | O_CREAT, 0600);
    if (write(to, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    close(to);
  }
};

const Fixture& fixture() {
  static const Fixture one;
  return one;
}

// Everything behind the header page but the rest of the other pages: the words that mean something.
constexpr std::size_t kControl[] = {Vesta::kSequenceAt, Vesta::kMembersAt, Vesta::kIndexAt};
constexpr std::size_t kListBytes = 60;

std::string tablesOf(const std::string& segment) {
  std::string tables;
  for (const std::size_t at : kControl) tables += segment.substr(at * 8, 8);
  return tables + segment.substr(Vesta::kTablesAt * 8);
}

// A list of damages to a sound segment: place, kind, value.
std::string damaged(const std::string& sound, const std::uint8_t* data, std::size_t size) {
  std::string bytes = sound;
  for (; size >= 5; data += 5, size -= 5) {
    const std::size_t at = (data[0] | std::size_t{data[1]} << 8 | std::size_t{data[2]} << 16) % bytes.size();
    switch (data[3] % 5) {
      case 0:
        bytes[at] = static_cast<char>(bytes[at] ^ 1 << data[4] % 8);
        break;
      case 1:
        bytes[at] = static_cast<char>(data[4]);
        break;
      case 2:
        std::memset(&bytes[at], data[4] & 1 ? 0xff : 0, std::min<std::size_t>(8, bytes.size() - at));
        break;
      case 3: {  // a sealed word with any value: what checks alone do not stop
        const std::size_t word = at / 8;
        const Vesta::Word sealed = Vesta::sealed(std::uint32_t{data[4]} * 0x01010101u ^ 0x80000000u, word);
        std::memcpy(&bytes[word * 8], &sealed, std::min(sizeof sealed, bytes.size() - word * 8));
        break;
      }
      default:
        bytes.resize(at + 1);
        bytes.resize(sound.size() - data[4] % 2);
    }
  }
  return bytes;
}

// The tables of a whole segment, under a sound header. The first byte says whether all checks are made right,
// as by a writer that means harm.
std::string forged(const std::string& sound, const std::uint8_t* data, std::size_t size) {
  const bool checksRight = (*data & 1) != 0;
  std::string tables = tablesOf(sound);
  std::memcpy(tables.data(), data + 1, std::min(size - 1, tables.size()));
  const Vesta::Layout layout(Vesta::shapeOf<FuzzKey, FuzzEntry>(kCapacity));
  std::vector<Vesta::Word> words(layout.words);
  std::memcpy(words.data(), sound.data(), sound.size());
  std::size_t from = 0;
  for (const std::size_t at : kControl) std::memcpy(&words[at], &tables[8 * from++], 8);
  std::memcpy(&words[Vesta::kTablesAt], &tables[8 * from], tables.size() - 8 * from);
  const auto seal = [&](std::size_t at) {
    words[at] = Vesta::sealed(static_cast<std::uint32_t>(words[at]), at);
  };
  if (checksRight) {
    seal(Vesta::kMembersAt);
    seal(Vesta::kIndexAt);
    for (std::size_t cell = layout.indexAt(0); cell < layout.slotsAt; ++cell) seal(cell);
    for (std::uint32_t slot = 0; slot < kCapacity; ++slot) {
      Vesta::Word row[8] = {words[layout.slotAt(slot)]};
      const std::size_t stored = Vesta::isStaged(row[0]) ? layout.stagingAt : layout.slotAt(slot) + 1;
      row[0] &= ~Vesta::kStaged;
      std::copy_n(&words[stored + 1], layout.rowWords, row + 1);
      words[stored] = Vesta::checksumOf(row, layout.rowWords, slot);
    }
    for (std::uint32_t i = 0; i < layout.records; ++i) {
      Vesta::Word* record = &words[layout.recordAt(i)];
      const Vesta::Word row[2] = {record[0], record[2]};
      const auto slot = static_cast<std::uint32_t>(record[1] >> 32);
      record[1] = Vesta::Word{slot} << 32 | Vesta::checksumOf(row, layout.keyWords, slot);
    }
  }
  return {reinterpret_cast<const char*>(words.data()), sound.size()};
}

// A damage list cannot forge a row's checksum; a whole segment as input can hold any rows.
void readEverything(Vesta::VestaBase<FuzzKey, FuzzEntry>& table, bool rowsAreOurs) {
  const auto guarded = [](const auto& call) {
    try {
      call();
    } catch (const Cairn::Exception&) {
    }
  };
  for (std::uint64_t id = 0; id < kIds; ++id) {
    guarded([&] {
      bool found = false;
      const FuzzEntry& entry = table.directLookup(FuzzKey{id}, found, nullptr);
      if (found && rowsAreOurs && (entry.id != id || entry.proof != proofOf(id))) std::abort();
    });
  }
  guarded([&] {
    Row row;
    Vesta::IterHint hint;
    std::size_t steps = 0;
    for (bool more = table.first(row, hint); more; more = table.next(row.key, row, hint)) {
      if (++steps > kCapacity) std::abort();
    }
  });
  guarded([&] { table.members(); });
}

void followToTheEnd(Reader& reader) {
  std::size_t polls = 0;
  while (reader.poll(4) != 0) {
    if (++polls > 100) std::abort();
  }
}

}  // namespace

// A whole segment to begin with: no chain of small mutations leads to one.
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
  static const std::string seed = fixture().folder + "/seed";
  std::ofstream(seed) << '\1' << tablesOf(fixture().sound);
  static std::string argument = "-seed_inputs=" + seed;
  static std::vector<char*> all(*arguments, *arguments + *count);
  all.push_back(argument.data());
  *count = static_cast<int>(all.size());
  all.push_back(nullptr);
  *arguments = all.data();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Fixture& files = fixture();
  const bool rowsAreOurs = size <= kListBytes;
  const std::string bytes = rowsAreOurs ? damaged(files.sound, data, size) : forged(files.sound, data, size);
  Vesta::AttachOptions looking = files.options();
  looking.observer = true;
  files.put(bytes.size() == files.sound.size() ? files.earlier : bytes);
  try {
    Reader follower(looking);
    followToTheEnd(follower);
    files.over(bytes);
    followToTheEnd(follower);
    readEverything(follower, rowsAreOurs);
  } catch (const Cairn::Exception&) {
  }
  try {
    Reader reader(looking);
    readEverything(reader, rowsAreOurs);
    followToTheEnd(reader);
  } catch (const Cairn::Exception&) {
  }
  Writer writer(files.options());  // whatever is there: a writer always gets a sound table
  readEverything(writer, rowsAreOurs);
  for (std::uint64_t id = 0; id < kIds; ++id) writer.remove(FuzzKey{id}, nullptr);
  if (rowsAreOurs && writer.members() != 0) std::abort();
  if (!writer.validate()) std::abort();
  return 0;
}

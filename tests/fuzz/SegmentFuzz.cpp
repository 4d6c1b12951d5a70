// Whole segments as hostile input. The input damages a sound segment, or replaces it; then everything that
// takes a segment from outside runs over it: an observer's walk, lookups and changes, a writer's take-over
// with repair. Only exceptions may come out, and what is read must be a row that was written.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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
  std::string sound;

  Fixture() {
    if (mkdtemp(folder.data()) == nullptr) std::abort();
    Writer table(options());
    for (std::uint64_t i = 0; i < 40; ++i) {
      if (i % 5 == 4) {
        table.remove(FuzzKey{(i - 2) % kIds}, nullptr);
      } else if (table.members() < kCapacity) {
        table.write(Row{{i % kIds}, {i % kIds, proofOf(i % kIds)}}, false);
      }
    }
    table.detach();
    sound.resize(std::filesystem::file_size(file()));
    const int from = open(file().c_str(), O_RDONLY);
    if (read(from, sound.data(), sound.size()) != static_cast<ssize_t>(sound.size())) std::abort();
    close(from);
  }
  ~Fixture() { std::filesystem::remove_all(folder); }

  Vesta::AttachOptions options() const {
    Vesta::AttachOptions options{.path = Vesta::RootPath(folder, "fuzz", "table"), .capacity = kCapacity};
    options.debugHandler = std::make_shared<Cairn::DebugHandler>(0);
    return options;
  }
  std::string file() const { return folder + "/fuzz/table"; }
  void put(const std::string& bytes) const {
    for (const auto& old : std::filesystem::directory_iterator(folder + "/fuzz")) {
      if (old.path().filename() != "table.lock") std::filesystem::remove(old.path());
    }
    const int to = open(file().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (write(to, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) std::abort();
    close(to);
  }
};

// An input of whole size is the segment itself; any other is a list of damages: place, kind, value.
std::string damaged(const std::string& sound, const std::uint8_t* data, std::size_t size) {
  if (size >= sound.size()) return std::string(reinterpret_cast<const char*>(data), size);
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
        std::memcpy(&bytes[word * 8], &sealed, sizeof sealed);
        break;
      }
      default:
        bytes.resize(at + 1);
        bytes.resize(sound.size() - data[4] % 2);
    }
  }
  return bytes;
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Fixture fixture;
  const bool rowsAreOurs = size < fixture.sound.size();
  fixture.put(damaged(fixture.sound, data, size));
  try {
    Vesta::AttachOptions looking = fixture.options();
    looking.observer = true;
    Reader reader(looking);
    readEverything(reader, rowsAreOurs);
    std::size_t told = 0;
    while (reader.poll(4) != 0) {
      if (++told > 100) std::abort();
    }
  } catch (const Cairn::Exception&) {
  }
  Writer writer(fixture.options());  // whatever is there: a writer always gets a sound table
  readEverything(writer, rowsAreOurs);
  for (std::uint64_t id = 0; id < kIds; ++id) writer.remove(FuzzKey{id}, nullptr);
  if (rowsAreOurs && writer.members() != 0) std::abort();
  if (!writer.validate()) std::abort();
  return 0;
}

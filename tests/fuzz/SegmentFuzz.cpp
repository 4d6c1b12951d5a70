// Whole segments as hostile input: a list of damages to an intact segment, after which all checks may be made
// right. A follower with changes pending in the log, an observer's walk and lookups, and a writer that
// attaches and repairs run over it. Only exceptions may come out, and rows that are read must have been
// written.
#include <filesystem>
#include <fstream>
#include <vector>

#include "Fuzz.h"
#include "P4RuntimeTolmar/kinds/L3IifTH3.h"
#include "tests/RuntimeFolder.h"
#include "vesta/VestaReader.h"
#include "vesta/VestaWriter.h"

namespace {

using namespace Vesta;
using Key = TolmarHwLib::L3IifTH3Key;
using Entry = TolmarHwLib::L3IifTH3StatusEntry;
using Writer = VestaWriter<Key, Entry>;
using Reader = VestaReader<Key, Entry>;
using Row = Value<Key, Entry>;
using Words = std::vector<Word>;

constexpr std::uint32_t kCapacity = 8;
constexpr std::uint64_t kIds = 12;
const Layout kLayout(shapeOf<Key, Entry>(kCapacity));

constexpr std::uint64_t proofOf(std::uint64_t id) { return id * 0x9e3779b97f4a7c15u + 1; }

struct Fixture {
  RuntimeFolder folder{"/dev/shm"};
  AttachOptions options{.path = RootPath(folder.path(), "fuzz", "table"),
                        .capacity = kCapacity,
                        .debugHandler = std::make_shared<Cairn::DebugHandler>(0)};
  Words earlier;  // the same segment some changes before
  Words intact;

  Fixture() {
    Writer table(options);
    const Word* const words = &table.bytes().sharedSegment()->at(0);
    for (std::uint64_t i = 0; i < 42; ++i) {
      if (i == 30) earlier.assign(words, words + kLayout.words);
      if (i % 5 == 4) {
        table.remove({(i - 2) % kIds}, nullptr);
      } else if (table.members() < kCapacity) {
        table.write({{i % kIds}, {{.entryHandle = proofOf(i % kIds)}, {i % kIds}}}, false);
      }
    }
    intact.assign(words, words + kLayout.words);
  }
  /// A new file with these words.
  void put(const Words& words) const {
    std::filesystem::remove_all(folder.path() + "/fuzz");
    Writer{options};
    over(words);
  }
  /// Under every mapping.
  void over(const Words& words) const {
    std::fstream file(options.path.text(), std::ios::in | std::ios::out | std::ios::binary);
    file.write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(kLayout.bytes()));
  }
};

/// Of the pages before the tables, the words in use are the first.
std::size_t placeOf(std::size_t number) {
  constexpr std::size_t kUsed = 72;
  const std::size_t at = number % (3 * kUsed + kLayout.words - kTablesAt);
  if (at >= 3 * kUsed) return kTablesAt + at - 3 * kUsed;
  return at / kUsed * kPageWords + at % kUsed;
}

/// Four bytes for each damage: the place in two, which byte of the word there, its value.
void damage(Words& words, const std::uint8_t* data, std::size_t size) {
  for (; size >= 4; data += 4, size -= 4) {
    Word& word = words[placeOf(data[0] | std::size_t{data[1]} << 8)];
    const unsigned shift = data[2] % 8 * 8;
    word = (word & ~(Word{0xff} << shift)) | Word{data[3]} << shift;
  }
}

void makeChecksRight(Words& words) {
  const auto seal = [&](std::size_t at) { words[at] = sealed(static_cast<std::uint32_t>(words[at]), at); };
  for (const std::size_t at : {kMembersAt, kIndexAt, kWriterProcessAt}) seal(at);
  for (std::size_t cell = kLayout.indexAt(0); cell < kLayout.shortcutsAt; ++cell) seal(cell);
  for (std::uint32_t slot = 0; slot < kCapacity; ++slot) {
    const Word version = words[kLayout.slotAt(slot)];
    const std::size_t stored = isStaged(version) ? kLayout.stagingAt : kLayout.slotAt(slot) + 1;
    Words row = {version & ~kStaged};
    row.insert(row.end(), &words[stored + 1], &words[stored + 1 + kLayout.rowWords]);
    words[stored] = checksumOf(row.data(), kLayout.rowWords, slot);
  }
  for (std::uint32_t i = 0; i < kLayout.records; ++i) {
    Word* const record = &words[kLayout.recordAt(i)];
    const Word row[] = {record[0], record[2]};
    const auto slot = static_cast<std::uint32_t>(record[1] >> 32);
    record[1] = Word{slot} << 32 | checksumOf(row, kLayout.keyWords, slot);
  }
}

void readEverything(VestaBase<Key, Entry>& table, bool rowsAreOurs) {
  for (std::uint64_t id = 0; id < kIds; ++id) {
    attempt([&] {
      bool found = false;
      const Entry& entry = table.directLookup({id}, found, nullptr);
      mustHold(!found || !rowsAreOurs || (entry.l3Iif == id && entry.entryHandle == proofOf(id)));
    });
  }
  attempt([&] {
    Row row;
    IterHint hint;
    bool more = table.first(row, hint);
    for (std::size_t steps = 0; more; more = table.next(row.key, row, hint)) mustHold(++steps <= kCapacity);
  });
  attempt([&] { table.members(); });
}

void followToTheEnd(Reader& reader) {
  for (std::size_t polls = 0; reader.poll(4) != 0; ++polls) mustHold(polls < 100);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Fixture files;
  if (size == 0) return 0;
  const bool rowsAreOurs = data[0] % 2 == 0;  // damage alone cannot forge a row's checksum
  Words words = files.intact;
  damage(words, data + 1, size - 1);
  if (!rowsAreOurs) makeChecksRight(words);
  AttachOptions looking = files.options;
  looking.passive = true;
  files.put(files.earlier);
  attempt([&] {
    Reader follower(looking);
    followToTheEnd(follower);
    files.over(words);
    followToTheEnd(follower);
    readEverything(follower, rowsAreOurs);
  });
  attempt([&] {
    Reader reader(looking);
    readEverything(reader, rowsAreOurs);
    followToTheEnd(reader);
  });
  Writer writer(files.options);  // whatever is there: a writer always gets an intact table
  readEverything(writer, rowsAreOurs);
  for (std::uint64_t id = 0; id < kIds; ++id) writer.remove({id}, nullptr);
  mustHold(!rowsAreOurs || writer.members() == 0);
  // Damaged records of the log are left to readers, or until they are overwritten.
  Row row;
  IterHint hint;
  writer.first(row, hint);
  for (std::uint32_t i = 0; i < kLayout.records; ++i) writer.write(row, false);
  mustHold(writer.validate());
  return 0;
}

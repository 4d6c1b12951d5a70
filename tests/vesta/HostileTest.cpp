// Segments as hostile input: nothing read from one is used without a check.
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <filesystem>
#include <set>

#include "Support.h"

namespace VestaTest {

struct RenamedEntry : TestEntry {
  static constexpr std::string_view kText = "id:u64,stamp:u64,other:u64*3";
};

}  // namespace VestaTest

template <>
struct Vesta::Codec<VestaTest::RenamedEntry> : VestaTest::PlainCodec<VestaTest::RenamedEntry> {};

namespace VestaTest {
namespace {

constexpr std::uint32_t kCapacity = 16;

/// A full table with some history: replaced rows, re-used slots, a used log.
Model build(Writer& table) {
  Model model;
  const auto both = [&](std::uint64_t id, std::uint64_t stamp) {
    put(table, id, stamp);
    put(model, id, stamp);
  };
  for (std::uint64_t id = 1; id <= kCapacity; ++id) both(id, 1);
  for (std::uint64_t id = 1; id <= 12; id += 3) both(id, 0);
  for (std::uint64_t id = 101; model.size() < kCapacity; ++id) both(id, 2);
  for (std::uint64_t id = 2; id <= 12; id += 3) both(id, 3);
  return model;
}

using namespace Vesta;

/// A full table with some history.
class Hostile : public TableTest {
 protected:
  std::size_t index() { return segment_.layout().indexAt(segment_.load(kIndexAt) & 1); }
  std::size_t cells() { return segment_.layout().cells; }
  /// The shortcuts of the segment, two in a word.
  std::vector<Word> shortcuts() {
    return {&segment_.at(segment_.layout().shortcutsAt), &segment_.at(segment_.layout().stagingAt)};
  }

  std::unique_ptr<Writer> table_ = writer(kCapacity);
  Model model_ = build(*table_);
  Segment& segment_ = segmentOf(*table_);  // until it is replaced
  std::unique_ptr<Reader> looking_ = reader(kCapacity);
};

/// Expects that every lookup and a walk give what `model` says, or an error. Returns the number of errors.
std::size_t expectRightOrAnError(Table& table, const Model& model) {
  std::size_t errors = 0;
  const auto expect = [&](const auto& found, const auto& expected) {
    try {
      EXPECT_EQ(found(), expected);
    } catch (const Cairn::CorruptionDetectedException&) {
      ++errors;
    }
  };
  for (const auto& row : model) {
    expect([&] { return stampOf(table, row.first); }, row.second);
  }
  for (const std::uint64_t id : {0u, 1u, 4u, 50u, 1000u}) {
    expect([&] { return stampOf(table, id); }, 0u);
  }
  expect([&] { return contents(table); }, model);
  expect([&] { return table.members(); }, model.size());
  return errors;
}

// Each bit of each word flipped, each word zeroed and set to its maximum, under a reader; some of it also
// under a follower with ten changes pending and before an attach. The words before the shortcuts are damaged
// while the shortcuts are zero, since lookups would not read them otherwise.
TEST_F(Hostile, EveryWordDamagedIsRightOrAnError) {
  std::size_t seenInRows = 0;
  std::size_t seenInLog = 0;
  const auto before = shortcuts();
  forgetShortcuts(segment_);
  for (std::size_t at = 0; at < segment_.layout().words * 66 && !HasFailure(); ++at) {
    const std::size_t word = at / 66;
    const std::size_t bit = at % 66;
    SCOPED_TRACE("word " + std::to_string(word) + " bit " + std::to_string(bit));
    if (word == segment_.layout().shortcutsAt && bit == 0) std::ranges::copy(before, &segment_.at(word));
    const bool follows = bit >= 64 || bit == word % 64;
    auto following = follows ? std::make_unique<Reader>(passive(kCapacity)) : nullptr;
    Ids pending;
    Ids ids;
    if (follows) {
      notified(*following);
      following->onChangeIs([&](const TestKey& key) { ids.push_back(key.id); });
      for (auto row = model_.begin(); pending.size() < 10; ++row) {
        put(*table_, row->first, row->second);
        pending.push_back(row->first);
      }
    }
    const Word intact = segment_.at(word);
    segment_.at(word) = bit < 64 ? intact ^ std::uint64_t{1} << bit : bit == 64 ? 0 : ~0ull;
    seenInRows += expectRightOrAnError(*looking_, model_) != 0 ? 1 : 0;
    if (follows) {
      try {
        following->poll(100);
        expectRightOrAnError(*following, model_);
      } catch (const Cairn::CorruptionDetectedException&) {
        seenInLog += word >= segment_.layout().logAt ? 1 : 0;
      }
      pending.resize(std::min(ids.size(), pending.size()));
      EXPECT_EQ(ids, pending) << "each change in order, none invented";
      try {
        Reader attaching(passive(kCapacity));
        EXPECT_EQ(notified(attaching).size(), model_.size());
        expectRightOrAnError(attaching, model_);
      } catch (const Cairn::Exception&) {
      }
    }
    if (word >= kSleepersAt && word < kTablesAt) {  // what readers write harms no writer
      put(*table_, 2, 3);
      table_->quiesced(table_->sequence());
      EXPECT_LE(table_->readers().size(), 1u) << "there is one";
    }
    segment_.at(word) = intact;
  }
  EXPECT_THAT(files(), ::testing::Not(::testing::Contains("table.retired.1")));
  EXPECT_GT(seenInRows, 64u * (kCapacity * 7 + 2)) << "every bit of a current row at the least";
  EXPECT_GT(seenInLog, 10u * 3) << "each of the pending records was read";
}

// Each cell of the index in turn: a removal or insertion that detects the damage is made all the same.
TEST_F(Hostile, WriterThatDetectsDamageFinishesItsChange) {
  const std::size_t cells = segment_.layout().cells;
  looking_.reset();
  for (std::size_t cell = 0; cell < cells; ++cell) {
    SCOPED_TRACE(cell);
    Segment& segment = segmentOf(*table_);
    segment.at(segment.layout().indexAt(segment.load(kIndexAt) & 1) + cell) ^= std::uint64_t{1} << 40;
    const std::uint64_t id =
        std::next(model_.begin(), static_cast<std::ptrdiff_t>(cell % model_.size()))->first;
    EXPECT_TRUE(table_->remove(TestKey{id}, nullptr));
    EXPECT_FALSE(table_->remove(TestKey{id}, nullptr));
    put(*table_, id, model_[id]);
    EXPECT_EQ(contents(*table_), model_);
    try {
      reader(kCapacity);
    } catch (const Cairn::CorruptionDetectedException&) {
      // in a cell that the writer has not read: it replaces the segment at its next write
    }
    put(*table_, id, ++model_[id]);
    EXPECT_EQ(contents(*reader(kCapacity)), model_);
  }
}

// Between two changes they hold the values of the index. Any other values lead to a row with another key; the
// index then decides.
TEST_F(Hostile, ShortcutsCostNothingButTime) {
  for (std::uint64_t id = 200; id < 300; ++id) {
    put(*table_, model_.begin()->first, 0);
    model_.erase(model_.begin());
    put(*table_, id, 1);
    put(model_, id, 1);
  }
  EXPECT_GT(table_->writerCounters().indexRebuilds, 0u);
  auto* const shortcuts = reinterpret_cast<std::uint32_t*>(&segment_.at(segment_.layout().shortcutsAt));
  for (std::size_t cell = 0; cell < cells(); ++cell) {
    EXPECT_EQ(shortcuts[cell], segment_.unsealed(index() + cell, "index cell")) << cell;
  }
  const std::function<void()> damages[] = {
      [&] { std::fill_n(shortcuts, cells(), 0); }, [&] { std::fill_n(shortcuts, cells(), 0xffffffff); },
      [&] { std::rotate(shortcuts, shortcuts + 1, shortcuts + cells()); },
      [&] {
        std::transform(shortcuts, shortcuts + cells(), shortcuts, [](auto value) { return value ^ 1; });
      },
      [&] {
        std::transform(shortcuts, shortcuts + cells(), shortcuts, [](auto value) { return value | 0xfffff; });
      }};
  for (const auto& damage : damages) {
    SCOPED_TRACE(&damage - damages);
    const Model before = model_;
    damage();
    EXPECT_EQ(expectRightOrAnError(*looking_, model_), 0u);
    EXPECT_EQ(expectRightOrAnError(*table_, model_), 0u);
    for (const auto& [id, stamp] : before) {
      put(*table_, id, ++model_[id]);
      put(*table_, id, 0);
      EXPECT_EQ(stampOf(*looking_, id), 0u);
      put(*table_, id, model_[id]);
    }
    EXPECT_EQ(expectRightOrAnError(*looking_, model_), 0u);
    EXPECT_EQ(contents(*reader(kCapacity)), model_);
  }
}

// Cells that are intact in another position, or that all continue the chain.
TEST_F(Hostile, IndexOfSealedCells) {
  forgetShortcuts(segment_);
  for (std::size_t cell = 0; cell < cells(); ++cell) {
    const Word intact = segment_.at(index() + cell);
    segment_.at(index() + cell) = segment_.at(index() + (cell + 1) % cells());
    expectRightOrAnError(*looking_, model_);
    segment_.at(index() + cell) = intact;
  }
  for (std::size_t at = index(); at < index() + cells(); ++at) segment_.at(at) = sealed(kMarkCell, at);
  EXPECT_THAT(failure([&] { stampOf(*looking_, 1); }), ::testing::HasSubstr("no empty cell"));
}

// Damaged words may look like a row, or like another key's. The writer remembers what it has written.
TEST_F(TableTest, Hostile_WriterMistakesNoSlotForAKeysRow) {
  {
    SCOPED_TRACE("a vacated slot, named by a shortcut");
    const auto table = writer(kCapacity);
    Segment& segment = segmentOf(*table);
    put(*table, 1, 1);
    const std::vector<Word> shortcuts{&segment.at(segment.layout().shortcutsAt),
                                      &segment.at(segment.layout().stagingAt)};
    put(*table, 1, 0);
    segment.at(segment.layout().slotAt(0)) |= 1;
    std::ranges::copy(shortcuts, &segment.at(segment.layout().shortcutsAt));
    put(*table, 1, 2);
    EXPECT_EQ(table->members(), 1u);
    put(*table, 2, 3);
    EXPECT_EQ(contents(*table), (Model{{1, 2}, {2, 3}}));
  }
  for (const bool writes : {true, false}) {
    SCOPED_TRACE(writes ? "one key turned into another, which is written" : "... which is removed");
    startOver();
    const auto table = writer(kCapacity);
    Segment& segment = segmentOf(*table);
    const std::uint64_t mask = segment.layout().cells - 1;
    std::uint64_t id = 0;
    std::uint64_t twin = 0;  // one bit away, with the same tag, and at home in the same cell
    const auto alike = [mask](std::uint64_t a, std::uint64_t b) {
      const Word difference = hashOf(&a, 1u) ^ hashOf(&b, 1u);
      return (difference & mask) == 0 && difference >> 54 == 0;
    };
    for (unsigned bit = 0; twin == 0; bit = (bit + 1) % 64) {
      if (bit == 0) ++id;
      if (alike(id, id ^ std::uint64_t{1} << bit)) twin = id ^ std::uint64_t{1} << bit;
    }
    put(*table, id, 1);
    segment.at(segment.layout().slotAt(0) + 2) = twin;
    put(*table, twin, writes ? 1 : 0);
    EXPECT_EQ(contents(*table), writes ? (Model{{twin, 1}}) : Model{});
    EXPECT_THAT(files(), ::testing::Contains("table.retired.1")) << "that the other is lost is seen";
  }
}

// Words that no read checks: while one is wrong, a reader that lags never counts as caught up.
// Writer and reader restore theirs without a new segment.
TEST_F(TableTest, Hostile_WordsThatNoReadChecksAreRestored) {
  const auto table = writer(kCapacity);
  const auto follower = reader(kCapacity);
  Segment& segment = segmentOf(*table);
  const std::size_t line = readerLineAt(0);
  std::set<std::size_t> words = {kSequenceAt, kMembersAt, kIndexAt, kStateAt, kWriterProcessAt};
  for (std::size_t word = 0; word < kHeaderWords; ++word) words.insert(word);
  for (std::size_t word = line; word < line + kReaderWords; ++word) words.insert(word);
  for (const std::size_t word : words) {
    for (unsigned bit = 0; bit < 64 && !HasFailure(); ++bit) {
      SCOPED_TRACE("word " + std::to_string(word) + " bit " + std::to_string(bit));
      put(*table, 1, 1 + bit);
      const Word intact = segment.at(word);
      segment.at(word) ^= std::uint64_t{1} << bit;
      EXPECT_FALSE(table->quiesced(table->sequence()));
      EXPECT_FALSE(table->clientQuiesced(program_invocation_short_name));
      table->monitor();
      follower->monitor();
      EXPECT_EQ(segment.at(word), intact);
      EXPECT_EQ(notified(*follower), Ids{1});
      EXPECT_TRUE(table->quiesced(table->sequence()));
    }
  }
  do {
    notified(*follower);
    put(*table, 1, 1);
  } while ((table->sequence() & 1) == 0);
  segment.at(kSequenceAt) ^= 1;  // back to what the follower has handled
  ASSERT_TRUE(follower->maySleep());
  table->monitor();
  EXPECT_TRUE(readable(follower->wakeDescriptor())) << "a change was pending";
  EXPECT_THAT(files(), ::testing::Not(::testing::Contains("table.retired.1")));
}

struct Damage {
  const char* name;
  std::function<void(Segment&)> inflict;
  const char* message;   // part of the text that a reader beside a living writer gets
  std::size_t rowsKept;  // by a writer that attaches, or by the living one
  bool retired;          // by a writer that attaches
  bool keeps = false;    // a living one keeps the segment, whose next write overwrites the damage
  bool found = true;     // by a reader that attaches
};

std::size_t recordAt(Segment& segment, Word back) {
  return segment.layout().recordAt(segment.load(kSequenceAt) - back);
}

/// A flipped bit of a header word.
template <HeaderWord at>
void flip(Segment& segment) {
  segment.at(at) ^= 1;
}
constexpr const char* kHeader = "header: checksum found";

const std::vector<Damage> kDamages = {
    {"magic", [](auto& s) { s.at(kMagicAt) = 0; }, "header: expected magic", 16, true},
    {"segment id bit", flip<kSegmentIdAt>, kHeader, 16, true},
    {"version bit", flip<kVersionAt>, kHeader, 16, true},
    {"fingerprint bit", flip<kFingerprintAt>, kHeader, 16, true},
    {"sizes bit", flip<kSizesAt>, kHeader, 16, true},
    {"capacity bit", flip<kCapacityAt>, kHeader, 16, true},
    {"size bit", flip<kFileSizeAt>, kHeader, 16, true},
    {"state", [](auto& s) { s.at(kStateAt) = 0; }, "state: found 0x0", 16, true},
    {"sequence forward", [](auto& s) { s.at(kSequenceAt) += 1 << 20; }, "log record", 16, true, true},
    {"sequence back", [](auto& s) { s.at(kSequenceAt) -= 4; }, "published sequence", 16, true, true},
    {"member count", [](auto& s) { s.at(kMembersAt) ^= 1; }, "member count", 16, false},
    {"too many members", [](auto& s) { s.at(kMembersAt) = sealed(17, kMembersAt); },
     "member count: found 17 of a capacity of 16", 16, false},
    {"index word", [](auto& s) { s.at(kIndexAt) ^= 1; }, "index word", 16, false},
    {"cell out of range",
     [](auto& s) {
       const std::size_t at = s.layout().indexAt(s.load(kIndexAt) & 1);
       s.at(at) = sealed(0x800fffff, at);
     },
     "of a capacity of 16", 16, false},
    {"version: staged", [](auto& s) { s.at(s.layout().slotAt(3)) ^= 2; }, "slot 3 version", 15, true},
    {"version zeroed", [](auto& s) { s.at(s.layout().slotAt(3)) = 0; }, "slot 3 version 0x0", 15, true},
    {"row", [](auto& s) { s.at(s.layout().slotAt(5) + 5) = 0; }, "slot 5 version", 15, true},
    {"copied slot", [](auto& s) { std::copy_n(&s.at(s.layout().slotAt(1)), 8, &s.at(s.layout().slotAt(2))); },
     "slot 2 version", 15, true},
    {"newest record", [](auto& s) { s.at(recordAt(s, 0) + 2) ^= 1; }, "log record", 16, true},
    {"record of no slot",
     [](auto& s) {
       const std::size_t at = recordAt(s, 0);
       const Word words[] = {s.at(at), s.at(at + 2)};
       s.at(at + 1) = Word{1u << 20} << 32 | Cairn::checksum(words, sizeof words, 1u << 20);
     },
     "log record", 16, true},
    {"oldest record", [](auto& s) { s.at(recordAt(s, 19) + 2) ^= 1; }, "log record", 16, false, false, false},
};

TEST_F(TableTest, Hostile_DamagesAreNamedToReadersAndRepairedByWriters) {
  for (const Damage& damage : kDamages) {
    for (const bool living : {true, false}) {
      SCOPED_TRACE(std::string(damage.name) + (living ? " under a living writer" : ""));
      startOver();
      auto table = writer(kCapacity);
      const Model model = build(*table);
      const auto follower = reader(kCapacity);
      Model known;
      notified(*follower, &known);
      const std::uint64_t before = table->sequence();
      damage.inflict(segmentOf(*table));
      std::string text = failure([this] { reader(kCapacity); });
      if (!damage.found) text = failure([&] { follower->validate(); });
      EXPECT_THAT(text, ::testing::HasSubstr(damage.message));
      if (living) {
        put(*table, 16, 1);
        EXPECT_GT(table->sequence(), before) << "sequences continue";
        EXPECT_FALSE(table->quiesced(table->sequence())) << "the follower has not come over yet";
      } else {
        table.reset();
        table = writer(kCapacity);
      }
      const Model kept = contents(*table);
      EXPECT_EQ(kept.size(), damage.rowsKept);
      for (const auto& [id, stamp] : kept) EXPECT_EQ(model.at(id), stamp) << id;
      EXPECT_EQ(std::filesystem::exists(file() + ".retired.1"), living ? !damage.keeps : damage.retired);
      EXPECT_EQ(contents(*reader(kCapacity)), kept);
      if (living && !damage.keeps) {
        follower->onChangeIs([&](const TestKey& key) { put(known, key.id, stampOf(*follower, key.id)); });
        EXPECT_EQ(follower->poll(1), 1u);
        EXPECT_FALSE(table->quiesced(before)) << "it has come over, but handled one row only";
      }
      notified(*follower, &known);
      EXPECT_EQ(known, kept);
      EXPECT_TRUE(table->quiesced(table->sequence()));
    }
  }
}

/// For good: this process gets an error from the system call.
void refuse(unsigned systemCall) {
  sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, systemCall, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program{4, filter};
  EXPECT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
  EXPECT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

// Without space, or without the means to exchange the files, the segment stays in its place, and no write is
// undone.
TEST_F(TableTest, Hostile_ReplacementThatFails) {
  Child child([this] {
    const auto table = writer(kCapacity);
    build(*table);
    segmentOf(*table).at(kMembersAt) ^= 1;
    const auto expectDamaged = [this] {
      EXPECT_THAT(failure([this] { reader(kCapacity); }), ::testing::HasSubstr("member count"));
      EXPECT_EQ(files(), (Names{"table", "table.lock"}));
    };
    expectDamaged();
    signal(SIGXFSZ, SIG_IGN);
    const rlim_t before = limit(RLIMIT_FSIZE, 4096);
    put(*table, 2, 4);
    expectDamaged();
    limit(RLIMIT_FSIZE, before);
    refuse(SYS_renameat2);
    put(*table, 2, 5);
    expectDamaged();
    return stampOf(*table, 2) == 5 ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
}

// A reader may be stopped while it holds the lock under which segments are replaced.
TEST_F(Hostile, ReplacementThatWouldHaveToWaitIsLeftToALaterWrite) {
  segment_.at(kMembersAt) ^= 1;
  segment_.at(kSleepersAt) |= kDamageReported;
  const Cairn::Descriptor folder(open(path().folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  LockFile lock(folder.get(), "table.lock", "");
  ASSERT_TRUE(lock.tryLock(LockFile::kCreation));
  const auto before = std::chrono::steady_clock::now();
  put(*table_, 2, 4);
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
  lock.unlock(LockFile::kCreation);
  put(*table_, 2, 5);
  EXPECT_EQ(reader(kCapacity)->members(), kCapacity);
}

// If the replacement is damaged as well, no key of the old segment counts as gone.
TEST_F(Hostile, ReplacementThatIsDamaged) {
  const auto& follower = looking_;
  Model known;
  notified(*follower, &known);
  replaceSegment(*table_);
  for (const auto& [at, says] :
       {std::pair(std::size_t{kSegmentIdAt}, "header: checksum"), std::pair(kStateAt, "state: found")}) {
    Word& word = segmentOf(*table_).at(at);
    word ^= 1;
    for (const bool polls : {false, true}) {
      const auto look = [&] { polls ? void(notified(*follower, &known)) : follower->descriptorReadable(); };
      EXPECT_THAT(failure(look), ::testing::HasSubstr(says));
      EXPECT_EQ(known.size(), kCapacity);
      EXPECT_TRUE(readable(follower->wakeDescriptor())) << "for another try";
    }
    word ^= 1;
  }
  notified(*follower, &known);
  EXPECT_EQ(known, contents(*table_));
}

// A file of the wrong size is refused, reported and replaced like other damage; its remaining rows stay.
TEST_F(TableTest, Hostile_FilesTruncatedOrGrown) {
  writer(kCapacity).reset();
  const std::size_t whole = std::filesystem::file_size(file());
  const Layout layout(shapeOf<TestKey, TestEntry>(kCapacity));
  const std::size_t sizes[] = {0, 71, 12287, 8 * layout.slotAt(3) + 8, whole - 1, whole + 1};
  for (const std::size_t size : sizes) {
    for (const bool living : {false, true}) {
      if (living && size < whole - 1) continue;  // it would lose memory under its mapping
      SCOPED_TRACE(std::to_string(size) + (living ? " under a living writer" : ""));
      startOver();
      auto table = writer(kCapacity);
      for (std::uint64_t id = 1; id <= kCapacity; ++id) put(*table, id, 1);
      if (!living) table.reset();
      std::filesystem::resize_file(file(), size);
      const std::string fault =
          file() + ": size: expected " + std::to_string(whole) + ", found " + std::to_string(size);
      EXPECT_EQ(failure([this] { Reader(passive(kCapacity)); }), fault);
      if (living) {
        EXPECT_EQ(failure([this] { reader(kCapacity); }), fault);
        put(*table, 1, 1);
      }
      const Model kept = contents(*reader(kCapacity));  // without a writer, it makes a new segment
      EXPECT_EQ(kept.size(), size >= whole - 1 ? kCapacity : size > 12288 ? 3 : 0);
      EXPECT_EQ(std::filesystem::file_size(file()), whole);
    }
  }
}

TEST_F(TableTest, Hostile_ReplacementsKeepRowsAndAFewOldSegments) {
  auto with = options(kCapacity);
  with.onDamage = OnDamage::startEmpty;  // for damage at attach only
  auto table = std::make_unique<Writer>(with);
  put(*table, 1, 1);
  for (int i = 0; i < 12; ++i) replaceSegment(*table);
  EXPECT_EQ(contents(*table), (Model{{1, 1}, {2, 1}}));
  EXPECT_EQ(files().size(), 2u + 8) << "the segment, the lock, eight retired";
  segmentOf(*table).at(kStateAt) = kRetired;
  table.reset();
  EXPECT_EQ(contents(*reader(kCapacity)).size(), 2u) << "without a writer, readers repair";
}

TEST_F(TableTest, Hostile_OtherShapeIsRetiredByWritersAndRefusedByReadersOfALivingWriter) {
  auto small = writer(kCapacity);
  put(*small, 1, 1);
  EXPECT_EQ(failure([this] { reader(32); }),
            file() + ": capacity: expected 32, found 16; its writer is process " + std::to_string(getpid()));
  EXPECT_THAT(failure([this] { VestaReader<TestKey, RenamedEntry>(options(kCapacity)); }),
              ::testing::HasSubstr(": fingerprint: expected "));
  Word* header = &segmentOf(*small).at(0);
  const auto versionIs = [header](Word version) {
    header[kVersionAt] = version;
    const std::uint32_t check = Cairn::checksum(header, kHeaderCheckAt * sizeof *header);
    header[kHeaderCheckAt] = sealed(check, kHeaderCheckAt);
  };
  versionIs(kLayoutVersion + 1);
  EXPECT_THAT(failure([this] { reader(kCapacity); }), ::testing::HasSubstr(": layout version: expected "));
  versionIs(kLayoutVersion);
  const auto follower = reader(kCapacity);
  notified(*follower);
  small.reset();
  auto large = writer(32);
  EXPECT_EQ(large->members(), 0u) << "never reinterpreted";
  EXPECT_FALSE(large->quiesced(large->sequence())) << "the follower may be about to come over";
  EXPECT_EQ(notified(*follower), Ids{1}) << "what it knew is gone";
  EXPECT_FALSE(follower->bytes().attached());
  EXPECT_TRUE(large->quiesced(large->sequence())) << "it is no reader of this table";
  large.reset();
  small = writer(kCapacity);
  EXPECT_THAT(files(), ::testing::Contains("table.retired.2"));
  put(*small, 2, 1);
  follower->descriptorReadable();
  EXPECT_FALSE(small->quiesced(small->sequence())) << "it is back";
  EXPECT_EQ(notified(*follower), Ids{2});
  EXPECT_TRUE(small->quiesced(small->sequence()));
}

}  // namespace
}  // namespace VestaTest

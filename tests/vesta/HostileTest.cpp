// Segments as hostile input: nothing read from one is used without a check.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include "Support.h"

namespace VestaTest {
namespace {

using namespace Vesta;

constexpr std::uint32_t kCapacity = 16;

/// A full table with some history: replaced rows, re-used slots, a used log.
Model build(Writer& table) {
  Model model;
  for (std::uint64_t id = 1; id <= kCapacity; ++id) put(table, model, id, 1);
  for (std::uint64_t id = 1; id <= 12; id += 3) put(table, model, id, 0);
  for (std::uint64_t id = 101; model.size() < kCapacity; ++id) put(table, model, id, 2);
  for (std::uint64_t id = 2; id <= 12; id += 3) put(table, model, id, 3);
  return model;
}

Word* slot(Segment& s, std::uint32_t number) { return &s.at(s.layout().slotAt(number)); }
Word* record(Segment& s, Word back) { return &s.at(s.layout().recordAt(s.load(kSequenceAt) - back)); }

template <std::size_t at>
void flip(Segment& segment) {
  segment.at(at) ^= 1;
}
/// Where the index begins.
std::size_t indexOf(const Segment& segment) { return segment.layout().indexAt(segment.load(kIndexAt) & 1); }

/// The shortcuts, two in a word.
std::vector<Word> shortcutsOf(Segment& segment) {
  return {&segment.at(segment.layout().shortcutsAt), &segment.at(segment.layout().stagingAt)};
}

class Hostile : public TableTest {
 protected:
  std::unique_ptr<Writer> table_ = writer(kCapacity);
  Model model_ = build(*table_);
  Segment& segment_ = segmentOf(*table_);  // until it is replaced
  const std::size_t cells_ = segment_.layout().cells;
  std::unique_ptr<Reader> looking_ = reader(kCapacity);
};

std::string trace(std::size_t word, std::size_t bit) {
  return "word " + std::to_string(word) + " bit " + std::to_string(bit);
}

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
  for (const auto& row : model) expect([&] { return stampOf(table, row.first); }, row.second);
  for (const std::uint64_t id : {0u, 1u, 4u, 50u, 1000u}) expect([&] { return stampOf(table, id); }, 0u);
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
  const auto before = shortcutsOf(segment_);
  forgetShortcuts(segment_);
  for (std::size_t at = 0; at < segment_.layout().words * 66 && !HasFailure(); ++at) {
    const std::size_t word = at / 66;
    const std::size_t bit = at % 66;
    SCOPED_TRACE(trace(word, bit));
    if (word == segment_.layout().shortcutsAt && bit == 0) std::ranges::copy(before, &segment_.at(word));
    const bool follows = bit >= 64 || bit == word % 64;
    auto following = follows ? std::make_unique<Reader>(passive(kCapacity)) : nullptr;
    Ids pending;
    Ids ids;
    if (follows) notified(*following);
    if (follows) following->onChangeIs([&](const TestKey& key) { ids.push_back(key.id); });
    for (auto row = model_.begin(); follows && pending.size() < 10; ++row) {
      put(*table_, row->first, row->second);
      pending.push_back(row->first);
    }
    const Word intact = segment_.at(word);
    segment_.at(word) = bit < 64 ? intact ^ Word { 1 } << bit : bit == 64 ? 0 : ~0ull;
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
      failure([&] {
        Reader attaching(passive(kCapacity));
        EXPECT_EQ(notified(attaching).size(), model_.size());
        expectRightOrAnError(attaching, model_);
      });
    }
    if (word >= kSleepersAt && word < kTablesAt) {  // what readers write harms no writer
      put(*table_, 2, 3);
      table_->quiesced(table_->sequence());
      EXPECT_LE(table_->readers().size(), 1u) << "there is one";
    }
    segment_.at(word) = intact;
  }
  EXPECT_THAT(files(), Not(Contains("table.retired.1")));
  EXPECT_GT(seenInRows, 64u * (kCapacity * 7 + 2)) << "every bit of a current row at the least";
  EXPECT_GT(seenInLog, 10u * 3) << "each of the pending records was read";
}

// Between two changes they hold the values of the index. Any other values lead to a row with another key; the
// index then decides.
TEST_F(Hostile, ShortcutsCostNothingButTime) {
  for (std::uint64_t id = 200; id < 300; ++id) {
    put(*table_, model_, model_.begin()->first, 0);
    put(*table_, model_, id, 1);
  }
  EXPECT_GT(table_->writerCounters().indexRebuilds, 0u);
  auto* const shortcuts = reinterpret_cast<std::uint32_t*>(&segment_.at(segment_.layout().shortcutsAt));
  for (std::size_t cell = 0; cell < cells_; ++cell) {
    EXPECT_EQ(shortcuts[cell], segment_.unsealed(indexOf(segment_) + cell, "index cell")) << cell;
  }
  const std::function<std::uint32_t(std::size_t)> damages[] = {
      [](std::size_t) { return 0u; }, [](std::size_t) { return 0xffffffffu; },
      [&](std::size_t cell) { return shortcuts[(cell + 1) % cells_]; },
      [&](std::size_t cell) { return shortcuts[cell] ^ 1; },
      [&](std::size_t cell) { return shortcuts[cell] | 0xfffff; }};
  for (const auto& damaged : damages) {
    SCOPED_TRACE(&damaged - damages);
    const Model before = model_;
    for (std::size_t cell = 0; cell < cells_; ++cell) shortcuts[cell] = damaged(cell);
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
  Word* const index = &segment_.at(indexOf(segment_));
  for (std::size_t cell = 0; cell < cells_; ++cell) {
    const Word intact = std::exchange(index[cell], index[(cell + 1) % cells_]);
    expectRightOrAnError(*looking_, model_);
    index[cell] = intact;
  }
  for (std::size_t cell = 0; cell < cells_; ++cell) index[cell] = sealed(kMarkCell, indexOf(segment_) + cell);
  EXPECT_THAT(failure([&] { stampOf(*looking_, 1); }), HasSubstr("no empty cell"));
}

// Damaged words may look like a row, or like another key's. The writer remembers what it has written.
TEST_F(TableTest, Hostile_WriterMistakesNoSlotForAKeysRow) {
  auto table = writer(kCapacity);
  put(*table, 1, 1);
  const auto shortcuts = shortcutsOf(segmentOf(*table));
  put(*table, 1, 0);
  *slot(segmentOf(*table), 0) |= 1;  // vacated, but still named by a shortcut
  std::ranges::copy(shortcuts, &segmentOf(*table).at(segmentOf(*table).layout().shortcutsAt));
  put(*table, 1, 2);
  EXPECT_EQ(table->members(), 1u);
  put(*table, 2, 3);
  EXPECT_EQ(contents(*table), (Model{{1, 2}, {2, 3}}));

  const std::uint64_t mask = segmentOf(*table).layout().cells - 1;
  std::uint64_t id = 0;
  std::uint64_t twin = 0;  // one bit away, with the same tag, and at home in the same cell
  Word difference = mask;
  for (unsigned i = 64; (difference & mask) != 0 || difference >> 54 != 0; ++i) {
    id = i / 64;
    twin = id ^ std::uint64_t{1} << i % 64;
    difference = hashOf(&id, 1u) ^ hashOf(&twin, 1u);
  }
  for (const std::uint64_t stamp : {1u, 0u}) {
    table.reset();
    startOver();
    table = writer(kCapacity);
    put(*table, id, 1);
    slot(segmentOf(*table), 0)[2] = twin;
    put(*table, twin, stamp);
    EXPECT_EQ(contents(*table), stamp == 1 ? (Model{{twin, 1}}) : Model{});
    EXPECT_THAT(files(), Contains("table.retired.1")) << "that the other is lost is seen";
  }
}

// Words that no read checks: while one is wrong, a reader that lags never counts as caught up.
// Writer and reader restore theirs without a new segment.
TEST_F(TableTest, Hostile_WordsThatNoReadChecksAreRestored) {
  const auto table = writer(kCapacity);
  const auto follower = reader(kCapacity);
  Segment& segment = segmentOf(*table);
  std::vector<std::size_t> words = {kSequenceAt, kMembersAt, kIndexAt, kStateAt, kWriterProcessAt};
  for (std::size_t word = 0; word < kHeaderWords; ++word) words.push_back(word);
  for (std::size_t word = 0; word < kReaderWords; ++word) words.push_back(readerLineAt(0) + word);
  for (const std::size_t word : words) {
    for (unsigned bit = 0; bit < 64 && !HasFailure(); ++bit) {
      SCOPED_TRACE(trace(word, bit));
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
  while ((table->sequence() & 1) == 1) put(*table, 1, 1);
  notified(*follower);
  put(*table, 1, 1);
  segment.at(kSequenceAt) ^= 1;  // back to what the follower has handled
  ASSERT_TRUE(follower->maySleep());
  table->monitor();
  EXPECT_TRUE(readable(follower->wakeDescriptor())) << "a change was pending";
  EXPECT_THAT(files(), Not(Contains("table.retired.1")));
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

const std::vector<Damage> kDamages = {
    {"magic", [](auto& s) { s.at(kMagicAt) = 0; }, "header: expected magic", 16, true},
    {"size bit", flip<kFileSizeAt>, "header: checksum found", 16, true},
    {"state", [](auto& s) { s.at(kStateAt) = 0; }, "state: found 0x0", 16, true},
    {"sequence forward", [](auto& s) { s.at(kSequenceAt) += 1 << 20; }, "log record", 16, true, true},
    {"sequence back", [](auto& s) { s.at(kSequenceAt) -= 4; }, "published sequence", 16, true, true},
    {"member count", flip<kMembersAt>, "member count", 16, false},
    {"too many members", [](auto& s) { s.at(kMembersAt) = sealed(17, kMembersAt); },
     "member count: found 17 of a capacity of 16", 16, false},
    {"index word", flip<kIndexAt>, "index word", 16, false},
    {"cell out of range", [](auto& s) { s.at(indexOf(s)) = sealed(0x800fffff, indexOf(s)); },
     "of a capacity of 16", 16, false},
    {"version: staged", [](auto& s) { *slot(s, 3) ^= 2; }, "slot 3 version", 15, true},
    {"version zeroed", [](auto& s) { *slot(s, 3) = 0; }, "slot 3 version 0x0", 15, true},
    {"row", [](auto& s) { slot(s, 5)[5] = 0; }, "slot 5 version", 15, true},
    {"copied slot", [](auto& s) { std::copy_n(slot(s, 1), 8, slot(s, 2)); }, "slot 2 version", 15, true},
    {"newest record", [](auto& s) { record(s, 0)[2] ^= 1; }, "log record", 16, true},
    {"record of no slot",
     [](auto& s) {
       const Word words[] = {record(s, 0)[0], record(s, 0)[2]};
       record(s, 0)[1] = Word{1u << 20} << 32 | Cairn::checksum(words, sizeof words, 1u << 20);
     },
     "log record", 16, true},
    {"oldest record", [](auto& s) { record(s, 19)[2] ^= 1; }, "log record", 16, false, false, false},
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
      EXPECT_THAT(text, HasSubstr(damage.message));
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
        EXPECT_EQ(notified(*follower, &known, 1).size(), 1u);
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

// Without space, while a stopped reader holds the lock, or without the means to exchange the files, the
// segment stays in its place, and no write is undone. A later write tries again.
TEST_F(TableTest, Hostile_ReplacementThatFails) {
  Child child([this] {
    const auto table = writer(kCapacity);
    build(*table);
    flip<kMembersAt>(segmentOf(*table));
    const auto expectDamaged = [this](const Names& left) {
      EXPECT_THAT(failure([this] { reader(kCapacity); }), HasSubstr("member count"));
      EXPECT_EQ(files(), left);
    };
    expectDamaged({"table", "table.lock"});
    signal(SIGXFSZ, SIG_IGN);
    const rlim_t bound = limit(RLIMIT_FSIZE, 4096);
    put(*table, 2, 4);
    limit(RLIMIT_FSIZE, bound);
    expectDamaged({"table", "table.lock"});
    const Cairn::Descriptor folder(open(path().folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    LockFile lock(folder.get(), "table.lock", "");
    EXPECT_TRUE(lock.tryLock(LockFile::kCreation));
    const auto before = std::chrono::steady_clock::now();
    put(*table, 2, 5);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    lock.unlock(LockFile::kCreation);
    put(*table, 2, 6);
    EXPECT_EQ(reader(kCapacity)->members(), kCapacity);
    flip<kMembersAt>(segmentOf(*table));
    refuse(SYS_renameat2);
    for (const std::uint64_t stamp : {7u, 8u}) {
      expectDamaged({"table", "table.lock", "table.retired.1"});
      put(*table, 2, stamp);
    }
    return stampOf(*table, 2) == 8 ? 0 : 1;
  });
  EXPECT_EQ(child.wait(), 0);
}

// If the replacement is damaged as well, no key of the old segment counts as gone.
TEST_F(Hostile, ReplacementThatIsDamaged) {
  const auto& follower = looking_;
  Model known;
  notified(*follower, &known);
  replaceSegment(*table_);
  const std::pair<std::size_t, const char*> damages[] = {{kSegmentIdAt, "header: che"},
                                                         {kStateAt, "state: found"}};
  for (const auto& [at, says] : damages) {
    segmentOf(*table_).at(at) ^= 1;
    for (int tries = 0; tries < 2; ++tries) {
      EXPECT_THAT(failure([&] { follower->descriptorReadable(); }), HasSubstr(says));
      EXPECT_THAT(failure([&] { notified(*follower, &known); }), HasSubstr(says));
      EXPECT_EQ(known.size(), kCapacity);
      EXPECT_TRUE(readable(follower->wakeDescriptor())) << "for another try";
    }
    segmentOf(*table_).at(at) ^= 1;
  }
  notified(*follower, &known);
  EXPECT_EQ(known, contents(*table_));
}

// A file of the wrong size is refused, reported and replaced like other damage; its remaining rows stay.
TEST_F(TableTest, Hostile_FilesTruncatedOrGrown) {
  writer(kCapacity).reset();
  const std::size_t whole = std::filesystem::file_size(file());
  const Layout layout(shapeOf<TestKey, TestEntry>(kCapacity));
  for (const std::size_t size : {std::size_t{0}, std::size_t{71}, std::size_t{12287},
                                 8 * layout.slotAt(3) + 8, whole - 1, whole + 1}) {
    for (const bool living : {false, true}) {
      if (living && size < whole - 1) continue;  // it would lose memory under its mapping
      SCOPED_TRACE(std::to_string(size) + (living ? " under a living writer" : ""));
      startOver();
      auto table = writer(kCapacity);
      for (std::uint64_t id = 1; id <= kCapacity; ++id) put(*table, id, 1);
      if (!living) table.reset();
      std::filesystem::resize_file(file(), size);
      const std::string fault = "expected " + std::to_string(whole) + ", found " + std::to_string(size);
      EXPECT_EQ(failure([this] { Reader(passive(kCapacity)); }), file() + ": size: " + fault);
      EXPECT_THAT(living ? failure([this] { reader(kCapacity); }) : fault, HasSubstr(fault));
      if (living) put(*table, 1, 1);
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
  EXPECT_EQ(table->writerCounters().replacements, 12u);
  EXPECT_EQ(files().size(), 2u + 8) << "the segment, the lock, eight retired";
  segmentOf(*table).at(kStateAt) = kRetired;
  table.reset();
  const auto repairing = reader(kCapacity);
  EXPECT_EQ(contents(*repairing).size(), 2u) << "without a writer, readers repair";
  EXPECT_EQ(repairing->readerCounters().replacements, 1u);
}

TEST_F(TableTest, Hostile_OtherShapeIsRetiredByWritersAndRefusedByReadersOfALivingWriter) {
  auto small = writer(kCapacity);
  put(*small, 1, 1);
  EXPECT_EQ(failure([this] { reader(32); }),
            file() + ": capacity: expected 32, found 16; its writer is process " + std::to_string(getpid()));
  const auto mirrored = shapeOf<TestEntry, TestKey>(kCapacity).fingerprint;
  EXPECT_NE((shapeOf<TestKey, TestEntry>(kCapacity).fingerprint), mirrored) << "that of other texts";
  Word* header = &segmentOf(*small).at(0);
  const auto flip = [header](HeaderWord word) {
    header[word] ^= 1;
    const std::uint32_t check = Cairn::checksum(header, kHeaderCheckAt * sizeof *header);
    header[kHeaderCheckAt] = sealed(check, kHeaderCheckAt);
  };
  for (const auto& [word, name] :
       {std::pair(kFingerprintAt, "fingerprint"), {kVersionAt, "layout version"}}) {
    flip(word);
    EXPECT_THAT(failure([this] { reader(kCapacity); }), HasSubstr(std::string(name) + ": expected "));
    flip(word);
  }
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
  EXPECT_THAT(files(), Contains("table.retired.2"));
  put(*small, 2, 1);
  follower->descriptorReadable();
  EXPECT_FALSE(small->quiesced(small->sequence())) << "it is back";
  EXPECT_EQ(notified(*follower), Ids{2});
  EXPECT_TRUE(small->quiesced(small->sequence()));
}

}  // namespace
}  // namespace VestaTest

// Segments as hostile input: nothing read from one is believed without a check.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>

#include "Support.h"
#include "vesta/Patience.h"

namespace VestaTest {
namespace {

using Model = std::map<std::uint64_t, std::uint64_t>;

constexpr std::uint32_t kCapacity = 16;

class Hostile : public TableTest {
 protected:
  /// A full table with some history: replaced rows, re-used slots, a used log.
  Model build(Writer& table) {
    Model model;
    for (std::uint64_t id = 1; id <= kCapacity; ++id) put(table, id, model[id] = 1);
    for (std::uint64_t id = 1; id <= 12; id += 3) {
      table.remove(TestKey{id}, nullptr);
      model.erase(id);
    }
    for (std::uint64_t id = 101; model.size() < kCapacity; ++id) put(table, id, model[id] = 2);
    for (std::uint64_t id = 2; id <= 12; id += 3) put(table, id, model[id] = 3);
    return model;
  }
  Vesta::AttachOptions observer() const {
    Vesta::AttachOptions with = options(kCapacity);
    with.observer = true;
    return with;
  }
  std::string file() const { return path().text(); }
};

enum class Answer { right, damage, wrong };

/// What one attached reader makes of the segment: every present key, some absent ones, a walk.
Answer answers(Vesta::VestaBase<TestKey, TestEntry>& table, const Model& model) {
  bool damaged = false;
  const auto guarded = [&](const std::function<bool()>& right) {
    try {
      return right();
    } catch (const Cairn::CorruptionDetectedException&) {
      damaged = true;
      return true;
    }
  };
  bool right = true;
  for (const auto& [id, stamp] : model) {
    right = right && guarded([&, id = id, stamp = stamp] {
              bool found = false;
              const TestEntry& entry = table.directLookup(TestKey{id}, found, nullptr);
              return found && entry.id == id && entry.stamp == stamp && entry.whole();
            });
  }
  for (std::uint64_t id : {0u, 1u, 4u, 50u, 1000u}) {
    right = right && guarded([&] {
              bool found = true;
              table.directLookup(TestKey{id}, found, nullptr);
              return found == model.contains(id);
            });
  }
  right = right && guarded([&] {
            Row row;
            Vesta::IterHint hint;
            Model walked;
            for (bool more = table.first(row, hint); more; more = table.next(row.key, row, hint)) {
              walked[row.key.id] = row.entry.stamp;
            }
            return walked == model;
          });
  right = right && guarded([&] { return table.members() == model.size(); });
  return !right ? Answer::wrong : damaged ? Answer::damage : Answer::right;
}

TEST_F(Hostile, EveryBit_FlippedUnderAReader_GivesTheRightRowOrAnError) {
  const auto table = writer(kCapacity);
  const Model model = build(*table);
  Reader looking(observer());
  Vesta::Segment& segment = *table->segment().mapping();
  std::size_t damaged = 0;
  for (std::size_t word = 0; word < segment.layout().words; ++word) {
    for (unsigned bit = 0; bit < 64; ++bit) {
      segment.at(word) ^= std::uint64_t{1} << bit;
      const Answer answer = answers(looking, model);
      segment.at(word) ^= std::uint64_t{1} << bit;
      ASSERT_NE(answer, Answer::wrong) << "word " << word << " bit " << bit;
      damaged += answer == Answer::damage ? 1 : 0;
    }
  }
  EXPECT_GT(damaged, 64u * (kCapacity * 7 + 2)) << "every bit of a current row at the least";
  EXPECT_EQ(answers(looking, model), Answer::right);
}

// Each word flipped in one place, zeroed and set to its maximum, before someone attaches and under a
// follower.
TEST_F(Hostile, EveryWord_BeforeAttachAndUnderAFollower_IsRightOrAnError) {
  const auto table = writer(kCapacity);
  const Model model = build(*table);
  Vesta::Segment& segment = *table->segment().mapping();
  for (std::size_t word = 0; word < segment.layout().words; ++word) {
    const Vesta::Word sound = segment.at(word);
    for (const Vesta::Word wrong :
         {sound ^ std::uint64_t{1} << word % 64, std::uint64_t{0}, ~std::uint64_t{0}}) {
      Reader following(observer());
      told(following);
      segment.at(word) = wrong;
      try {
        for (const std::uint64_t id : told(following)) {
          ADD_FAILURE() << "invented a change of " << id << " at word " << word;
        }
        if (word == Vesta::kStateAt && wrong == Vesta::kRetired) continue;
        ASSERT_NE(answers(following, model), Answer::wrong) << "word " << word;
      } catch (const Cairn::CorruptionDetectedException&) {
      }
      try {
        Reader attaching(observer());
        const std::vector<std::uint64_t> ids = told(attaching);
        ASSERT_EQ(std::set<std::uint64_t>(ids.begin(), ids.end()).size(), model.size()) << "word " << word;
        ASSERT_NE(answers(attaching, model), Answer::wrong) << "word " << word;
      } catch (const Cairn::Exception&) {
      }
      segment.at(word) = sound;
    }
  }
}

struct Damage {
  const char* name;
  std::function<void(Vesta::Segment&)> inflict;
  const char* message;   // part of what a reader beside a living writer is told; "" when it notices nothing
  std::size_t rowsKept;  // by a writer that attaches
  bool setAside;
};

void flipVersion(Vesta::Segment& segment, Vesta::Word bits) {
  segment.at(segment.layout().slotAt(3)) ^= bits;
}

std::size_t currentCopy(Vesta::Segment& segment, std::uint32_t slot) {
  return segment.layout().copyAt(slot, Vesta::copyOf(segment.load(segment.layout().slotAt(slot))));
}

std::size_t usedCellAt(Vesta::Segment& segment) {
  std::size_t at = segment.layout().indexAt(segment.load(Vesta::kIndexAt) & 1);
  while (Vesta::cellState(static_cast<std::uint32_t>(segment.load(at))) != Vesta::CellState::used) ++at;
  return at;
}

Vesta::Word newestSequence(Vesta::Segment& segment) { return segment.load(Vesta::kSequenceAt); }

const std::vector<Damage> kDamages = {
    {"none", [](auto&) {}, "", 16, false},
    {"magic", [](auto& s) { s.at(Vesta::kMagicAt) = 0; }, "header: expected magic", 0, true},
    {"header bit", [](auto& s) { s.at(Vesta::kGenerationAt) ^= 1; }, "header: checksum found", 0, true},
    {"header check", [](auto& s) { s.at(Vesta::kHeaderCheckAt) = ~0ull; }, "header: checksum found", 0, true},
    {"state", [](auto& s) { s.at(Vesta::kStateAt) = 0; }, "state: found 0x0", 16, true},
    {"sequence forward", [](auto& s) { s.at(Vesta::kSequenceAt) += 1 << 20; }, "log record", 16, true},
    {"sequence back", [](auto& s) { s.at(Vesta::kSequenceAt) -= 4; }, "published sequence", 16, true},
    {"member count", [](auto& s) { s.at(Vesta::kMembersAt) ^= 1; }, "member count", 16, false},
    {"member count too high", [](auto& s) { s.at(Vesta::kMembersAt) = Vesta::sealed(17, Vesta::kMembersAt); },
     "member count: found 17 of a capacity of 16", 16, false},
    {"index word", [](auto& s) { s.at(Vesta::kIndexAt) ^= 1; }, "index word", 16, false},
    {"cell zeroed", [](auto& s) { s.at(usedCellAt(s)) = 0; }, "index cell", 16, false},
    {"cell out of range",
     [](auto& s) {
       const std::size_t at = usedCellAt(s);
       s.at(at) = Vesta::sealed(static_cast<std::uint32_t>(s.at(at)) | 0xfffff, at);
     },
     "of a capacity of 16", 16, false},
    {"version: other copy", [](auto& s) { flipVersion(s, 2); }, "slot 3 version", 15, true},
    {"version: vacant", [](auto& s) { flipVersion(s, 1); }, "slot 3 version", 15, true},
    {"version zeroed", [](auto& s) { s.at(s.layout().slotAt(3)) = 0; }, "slot 3 version 0x0", 15, true},
    {"key", [](auto& s) { s.at(currentCopy(s, 3) + 1) ^= 8; }, "slot 3 version", 15, true},
    {"row", [](auto& s) { s.at(currentCopy(s, 5) + 4) = 0; }, "slot 5 version", 15, true},
    {"row checksum", [](auto& s) { s.at(currentCopy(s, 5)) ^= 1; }, "slot 5 version", 15, true},
    {"two rows", [](auto& s) { s.at(currentCopy(s, 5) + 4) = s.at(currentCopy(s, 6) + 2) = ~0ull; }, "slot ",
     14, true},
    {"copied slot",
     [](auto& s) {
       for (std::size_t i = 0; i < 8; ++i) s.at(s.layout().slotAt(2) + i) = s.at(s.layout().slotAt(1) + i);
     },
     "slot 2 version", 15, true},
    {"newest record", [](auto& s) { s.at(s.layout().recordAt(newestSequence(s)) + 2) ^= 1; }, "log record",
     16, true},
    {"record of a slot beyond",
     [](auto& s) { s.at(s.layout().recordAt(newestSequence(s)) + 1) |= 1ull << 40; }, "log record", 16, true},
};

TEST_F(Hostile, Damages_AreNamedToReadersAndRepairedByWriters) {
  for (const Damage& damage : kDamages) {
    SCOPED_TRACE(damage.name);
    std::filesystem::remove_all(folder_ + "/some");
    auto table = writer(kCapacity);
    const Model model = build(*table);
    damage.inflict(*table->segment().mapping());
    std::string message;
    try {
      reader(kCapacity);
    } catch (const Cairn::CorruptionDetectedException& found) {
      message = found.message();
    }
    EXPECT_THAT(message, ::testing::HasSubstr(damage.message));
    EXPECT_EQ(message.empty(), *damage.message == '\0');
    table.reset();
    const auto next = writer(kCapacity);
    const Model kept = contents(*next);
    EXPECT_EQ(kept.size(), damage.rowsKept);
    for (const auto& [id, stamp] : kept) EXPECT_EQ(model.at(id), stamp) << id;
    EXPECT_EQ(std::filesystem::exists(file() + ".retired.1"), damage.setAside);
    EXPECT_EQ(contents(*reader(kCapacity)), kept);
  }
}

TEST_F(Hostile, Files_TruncatedOrGrownBeforeAttach) {
  writer(kCapacity).reset();
  const std::uintmax_t whole = std::filesystem::file_size(file());
  for (const std::uintmax_t size :
       {std::uintmax_t{0}, std::uintmax_t{7}, std::uintmax_t{71}, std::uintmax_t{72}, std::uintmax_t{4096},
        whole / 2, whole - 1, whole + 1, 2 * whole}) {
    SCOPED_TRACE(size);
    put(*writer(kCapacity), 1, 1);
    std::filesystem::resize_file(file(), size);
    try {
      Reader looking(observer());
      FAIL();
    } catch (const Cairn::CorruptionDetectedException& found) {
      EXPECT_EQ(found.message(),
                file() + ": size: expected " + std::to_string(whole) + ", found " + std::to_string(size));
    }
    EXPECT_EQ(contents(*reader(kCapacity)).size(), 0u) << "a reader without a writer makes a new one";
    EXPECT_EQ(std::filesystem::file_size(file()), whole);
  }
}

TEST_F(Hostile, OtherShape_IsSetAsideByWritersAndRefusedByReadersOfALivingWriter) {
  auto small = writer(kCapacity);
  put(*small, 1, 1);
  const auto message = [this] {
    try {
      reader(2 * kCapacity);
    } catch (const Cairn::CorruptionDetectedException&) {
      ADD_FAILURE() << "that is no damage";
    } catch (const Cairn::Exception& other) {
      return other.message();
    }
    return std::string();
  };
  EXPECT_EQ(message(),
            file() + ": capacity: expected 32, found 16; its writer is process " + std::to_string(getpid()));
  const auto follower = reader(kCapacity);
  told(*follower);
  small.reset();
  const auto large = writer(2 * kCapacity);
  EXPECT_EQ(large->members(), 0u) << "never reinterpreted";
  EXPECT_EQ(told(*follower), std::vector<std::uint64_t>{1})
      << "what it knew is gone, until it is mounted anew";
  EXPECT_FALSE(follower->segment().attached());
  EXPECT_THAT(files(), ::testing::Contains("table.retired.1"));
}

// The third verdict of a read. That a row under rewriting is never called damaged, nor this one reached, is
// for TornRows to show.
TEST(Verdicts, MovingEndsUnsettledAfterItsBoundAndNotBefore) {
  const auto begin = std::chrono::steady_clock::now();
  try {
    for (Vesta::Patience patience(std::chrono::milliseconds(20));;) patience.again("row");
  } catch (const Vesta::UnsettledException& unsettled) {
    EXPECT_STREQ(unsettled.what(), "row kept changing for 20 ms");
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
}

}  // namespace
}  // namespace VestaTest

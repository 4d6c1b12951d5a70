// Segment files that are truncated under those who have them mapped, in processes that installed the guard.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Support.h"
#include "vesta/SegmentGuard.h"

namespace VestaTest {
namespace {

constexpr std::uint32_t kCapacity = 256;
constexpr std::uint64_t kRows = 200;  // ids 1 to 200, stamp 1

class Truncation : public TableTest {
 protected:
  void fill(Writer& table) const {
    for (std::uint64_t id = 1; id <= kRows; ++id) put(table, id, 1);
  }
  /// Runs `body` in a process that has installed the guard; fails the test unless it ends as expected.
  static void guarded(const std::function<void()>& body, int end = 0) {
    Child child([&] {
      signal(SIGBUS, SIG_DFL);  // a sanitizer would end the child in its own way
      Vesta::installSegmentGuard();
      body();
      return 0;
    });
    EXPECT_EQ(child.wait(), end);
  }
  const Vesta::Layout layout_{Vesta::shapeOf<TestKey, TestEntry>(kCapacity)};
  /// Nothing, headers, some of the index, a part of the slots, all but the end of the log.
  const std::size_t sizes_[7] = {
      0, 4096, 8192, 12288, 16384, 8 * layout_.slotAt(100), layout_.bytes() - 4096};
};

// Before it is used and at each step of a change; two times, so that the second hits a segment that has
// replaced one.
TEST_F(Truncation, WriterReplacesItsSegmentAndMakesTheChangeThatMetIt) {
  constexpr int kBefore = -1;
  const struct {
    const char* name;
    std::function<void(Writer&)> use;
    std::uint64_t id, stamp;  // of the row that it changes, afterwards; 0, 0 when it changes none
  } uses[] = {
      {"rewrite", [](Writer& table) { put(table, 150, 7); }, 150, 7},
      {"insert", [](Writer& table) { put(table, 250, 7); }, 250, 7},
      {"remove", [](Writer& table) { put(table, 150, 0); }, 150, 0},
      {"look up", [](Writer& table) { stampOf(table, 150); }, 0, 0},
      {"walk", [](Writer& table) { contents(table); }, 0, 0},
      {"nothing", [](Writer& table) { table.segment().monitor(); }, 0, 0},
  };
  for (const auto& use : uses) {
    const int steps = use.id != 0 ? static_cast<int>(Vesta::WriteStep::published) : kBefore;
    for (int step = kBefore; step <= steps; ++step) {
      for (const std::size_t size : sizes_) {
        SCOPED_TRACE(use.name + (" at step " + std::to_string(step) + ", size " + std::to_string(size)));
        startOver();
        guarded([&] {
          bool armed = false;
          Vesta::AttachOptions stepped = options(kCapacity);
          stepped.stepHook = [&](Vesta::WriteStep now) {
            if (armed && static_cast<int>(now) == step) std::filesystem::resize_file(file(), size);
            armed = armed && static_cast<int>(now) != step;
          };
          Writer table(stepped);
          const auto follower = reader(kCapacity);
          fill(table);
          Model known = contents(table);
          for (int again = 0; again < 2; ++again) {
            armed = true;
            if (step == kBefore) std::filesystem::resize_file(file(), size);
            const auto before = table.segment().mapping();
            use.use(table);
            armed = false;
            if (use.id != 0) put(known, use.id, use.stamp);
            if (use.id != 0 && table.segment().mapping() != before) {  // it has met the loss
              EXPECT_EQ(stampOf(table, use.id), use.stamp);
            }
            table.segment().monitor();
            while (const auto lost = table.takeChangedKey()) put(known, lost->id, stampOf(table, lost->id));
            EXPECT_EQ(contents(table), known);
            EXPECT_EQ(contents(*reader(kCapacity)), known);
            EXPECT_TRUE(table.validate());
            put(table, 300, 1);
            put(known, 300, 1);
            if (use.id == 250) put(table, 250, 0);
          }
        });
      }
    }
  }
}

// A reader gets right rows or an error, and follows to the segment that replaces the truncated one.
TEST_F(Truncation, ReadersMeetDamageOrFollow) {
  const std::function<void(Reader&)> uses[] = {
      [](Reader& table) { stampOf(table, 150); }, [](Reader& table) { contents(table); },
      [](Reader& table) { told(table); },         [](Reader& table) { table.maySleep(); },
      [](Reader& table) { table.validate(); },    [](Reader& table) { table.segment().monitor(); },
      [](Reader& table) { table.detach(); }};
  for (const auto& use : uses) {
    for (const std::size_t size : sizes_) {
      SCOPED_TRACE("use " + std::to_string(&use - uses) + " at size " + std::to_string(size));
      startOver();
      guarded([&] {
        const auto table = writer(kCapacity);
        const auto follower = reader(kCapacity);
        fill(*table);
        Model known;
        told(*follower, &known);
        put(*table, 150, 2);
        std::filesystem::resize_file(file(), size);
        const std::string said = failure([&] { use(*follower); });
        EXPECT_THAT(said, ::testing::Not(::testing::HasSubstr("kept changing")));
        table->segment().monitor();
        if (!follower->segment().attached()) return;
        told(*follower, &known);
        EXPECT_EQ(known, contents(*table));
      });
    }
  }
}

TEST_F(Truncation, OtherBusErrorsEndTheProcess) {
  const auto touch = [this](const std::string& name) {
    const int opened = open((folder_ + name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    auto* const words = static_cast<volatile Vesta::Word*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, opened, 0));
    words[0] = 1;
  };
  guarded([&] { touch("/other"); }, -SIGBUS);
  guarded([] { raise(SIGBUS); }, -SIGBUS);
  guarded(
      [&] {
        writer(kCapacity).reset();  // its memory is no segment any more
        touch("/other");
      },
      -SIGBUS);
  guarded([] { Vesta::installSegmentGuard(); });
}

}  // namespace
}  // namespace VestaTest

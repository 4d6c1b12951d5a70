// Segment files that are truncated while they are mapped, in processes that have installed the guard.
#include "Support.h"
#include "vesta/segment/SegmentGuard.h"

namespace VestaTest {
namespace {

constexpr std::uint32_t kCapacity = 256;
constexpr std::uint64_t kRows = 200;  // ids 1 to 200, stamp 1

class Truncation : public TableTest {
 protected:
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
  /// Runs `body` for each size that the file may be left with: nothing, the header, the first pages, a part
  /// of index, slots and log.
  static void forEachSize(const std::function<void(std::size_t)>& body) {
    const Layout layout(Vesta::shapeOf<TestKey, TestEntry>(kCapacity));
    for (const std::size_t words : {std::size_t{0}, std::size_t{512}, std::size_t{1024}, std::size_t{1536},
                                    std::size_t{2048}, layout.slotAt(100), layout.logAt}) {
      const std::size_t size = words * sizeof(Word);
      SCOPED_TRACE("size " + std::to_string(size));
      guarded([&] { body(size); });
    }
  }
  void truncate(std::size_t size) const { std::filesystem::resize_file(file(), size); }
  static void fill(Writer& table) {
    for (std::uint64_t id = 1; id <= kRows; ++id) put(table, id, 1);
  }
};

// Before it is used and at each step of a change; two times, so that the second hits a segment that has
// replaced one.
TEST_F(Truncation, WriterReplacesItsSegmentAndRepeatsTheChangeThatDetectedIt) {
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
      {"nothing", [](Writer& table) { table.monitor(); }, 0, 0},
  };
  for (const auto& use : uses) {
    SCOPED_TRACE(use.name);
    forEachSize([&](std::size_t size) {
      const int steps = use.id != 0 ? static_cast<int>(WriteStep::published) : kBefore;
      for (int step = kBefore; step <= steps; ++step) {
        SCOPED_TRACE("at step " + std::to_string(step));
        startOver();
        Writer table(options(kCapacity));
        const auto follower = reader(kCapacity);
        fill(table);
        Model known = contents(table);
        for (int again = 0; again < 2; ++again) {
          const auto before = table.bytes().sharedSegment();
          bool armed = step != kBefore;
          if (!armed) truncate(size);
          onStep_ = [&](WriteStep now) {
            if (armed && static_cast<int>(now) == step) armed = false, truncate(size);
          };
          use.use(table);
          onStep_ = {};
          if (use.id != 0) put(known, use.id, use.stamp);
          if (use.id != 0 && table.bytes().sharedSegment() != before) {  // it has detected the loss
            EXPECT_EQ(stampOf(table, use.id), use.stamp);
          }
          table.monitor();
          while (const auto lost = table.takeChangedKey()) put(known, lost->id, stampOf(table, lost->id));
          EXPECT_EQ(contents(table), known);
          EXPECT_EQ(contents(*reader(kCapacity)), known);
          EXPECT_TRUE(table.validate());
          put(table, known, 300, 1);
        }
      }
    });
  }
}

// A reader gets right rows or an error, and follows to the segment that replaces the truncated one.
TEST_F(Truncation, ReadersDetectDamageOrSwitch) {
  const std::function<void(Reader&)> uses[] = {
      [](Reader& table) { stampOf(table, 150); }, [](Reader& table) { contents(table); },
      [](Reader& table) { notified(table); },     [](Reader& table) { table.maySleep(); },
      [](Reader& table) { table.validate(); },    [](Reader& table) { table.monitor(); },
      [](Reader& table) { table.detach(); }};
  forEachSize([&](std::size_t size) {
    for (const auto& use : uses) {
      SCOPED_TRACE("use " + std::to_string(&use - uses));
      startOver();
      const auto table = writer(kCapacity);
      const auto follower = reader(kCapacity);
      fill(*table);
      Model known;
      notified(*follower, &known);
      put(*table, 150, 2);
      truncate(size);
      EXPECT_THAT(failure([&] { use(*follower); }), Not(HasSubstr("kept changing")));
      table->monitor();
      if (!follower->bytes().attached()) continue;
      notified(*follower, &known);
      EXPECT_EQ(known, contents(*table));
    }
  });
}

TEST_F(Truncation, OtherBusErrorsEndTheProcess) {
  const auto touch = [this] {
    const int opened = open((folder_ + "/other").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, opened, 0);
    *static_cast<volatile Word*>(page) = 1;
  };
  guarded(touch, -SIGBUS);
  guarded([&] { writer(kCapacity).reset(), touch(); }, -SIGBUS);  // its memory is no segment any more
  guarded([] { raise(SIGBUS); }, -SIGBUS);
}

}  // namespace
}  // namespace VestaTest

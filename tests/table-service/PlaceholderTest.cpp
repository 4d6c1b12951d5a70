#include "Support.h"
#include "table-service/VestaBaseDummy.h"

namespace VestaTest {
namespace {

using Base = Vesta::VestaBase<TestKey, TestEntry>;
using Dummy = Vesta::VestaBaseDummy<TestKey, TestEntry>;

/// Implements only what has to be, so that everything else shows the base's own behaviour.
class Bare : public Base {
 public:
  bool initialize() override { return true; }
  void detach() override {}
  void cleanup() override { ++cleanups; }
  const Row& lookup(const TestKey&, bool& found, Vesta::IterHint*) override { return found = false, row; }
  bool first(Row&, Vesta::IterHint&) override { return false; }
  bool next(const TestKey&, Row&, Vesta::IterHint&) override { return false; }
  std::size_t members() override { return 0; }
  std::size_t minSize() override { return 0; }
  std::size_t maxSize() override { return 0; }
  std::size_t capacity() override { return 0; }
  Vesta::VestaType type() override { return Vesta::VestaType::reader; }
  Vesta::RootPath rootPath() override { return Vesta::RootPath("/r", "p", "c"); }
  std::string vestaName() override { return ""; }
  Vesta::MountStatus mountStatus() override { return Vesta::MountStatus::mounted; }
  void baseCleanup() { Base::cleanup(); }
  Row row;
  inline static int cleanups = 0;
};

const Vesta::RootPath kPath("/root", "one/two", "table");

Row filled() { return Row{{7}, TestEntry::make(7, 7)}; }
bool isZero(const Row& row) { return row.key.id == 0 && row.entry.id == 0 && row.entry.proof[0] == 0; }

struct Operation {
  const char* line;                  // logged; "" for none
  std::function<bool(Dummy&)> call;  // whether it gave what it must
};

const std::vector<Operation> kOperations = {
    {"5 VestaBaseDummy:0 detach VestaBaseDummy::detach() /root/one/two/table",
     [](Dummy& dummy) { return dummy.detach(), true; }},
    {"5 VestaBaseDummy:0 mountStatus VestaBaseDummy::mountStatus() /root/one/two/table",
     [](Dummy& dummy) { return static_cast<int>(dummy.mountStatus()) == 0; }},
    {"5 VestaBaseDummy:0 type VestaBaseDummy::type() /root/one/two/table",
     [](Dummy& dummy) { return static_cast<int>(dummy.type()) == 2; }},
    {"5 VestaBaseDummy:0 capacity VestaBaseDummy::capacity() /root/one/two/table",
     [](Dummy& dummy) { return dummy.capacity() == 0; }},
    {"5 VestaBaseDummy:0 maxSize VestaBaseDummy::maxSize() /root/one/two/table",
     [](Dummy& dummy) { return dummy.maxSize() == 0; }},
    {"5 VestaBaseDummy:0 minSize VestaBaseDummy::minSize() /root/one/two/table",
     [](Dummy& dummy) { return dummy.minSize() == 0; }},
    {"5 VestaBaseDummy:0 members VestaBaseDummy::members() /root/one/two/table",
     [](Dummy& dummy) { return dummy.members() == 0; }},
    {"5 VestaBaseDummy:0 cleanup VestaBaseDummy::cleanup() /root/one/two/table",
     [](Dummy& dummy) { return Bare::cleanups = 0, dummy.cleanup(), Bare::cleanups == 1; }},
    {"5 VestaBaseDummy:0 validateFiles VestaBaseDummy::validateFiles() /root/one/two/table",
     [](Dummy& dummy) { return dummy.validateFiles(); }},
    {"5 VestaBaseDummy:0 validate VestaBaseDummy::validate() /root/one/two/table",
     [](Dummy& dummy) { return dummy.validate(); }},
    {"5 VestaBaseDummy:0 initialize VestaBaseDummy::initialize() /root/one/two/table",
     [](Dummy& dummy) { return dummy.initialize(); }},
    {"5 VestaBaseDummy:0 first VestaBaseDummy::first() /root/one/two/table",
     [](Dummy& dummy) {
       Row row = filled();
       Vesta::IterHint hint;
       return !dummy.first(row, hint) && isZero(row);
     }},
    {"5 VestaBaseDummy:0 lookup VestaBaseDummy::lookup() /root/one/two/table",
     [](Dummy& dummy) {
       bool found = true;
       return isZero(dummy.lookup(TestKey{7}, found, nullptr)) && !found;
     }},
    {"5 VestaBaseDummy:0 lookup VestaBaseDummy::lookup() /root/one/two/table",
     [](Dummy& dummy) {
       bool found = true;
       return dummy.directLookup(TestKey{7}, found, nullptr).id == 0 && !found;
     }},
    {"5 VestaBaseDummy:0 next VestaBaseDummy::next() /root/one/two/table|"
     "5 VestaBaseDummy:0 first VestaBaseDummy::first() /root/one/two/table",
     [](Dummy& dummy) {
       Row row = filled();
       Vesta::IterHint hint;
       return !dummy.next(TestKey{7}, row, hint) && isZero(row);
     }},
    {"5 VestaBaseDummy:0 readerCounters VestaBaseDummy::readerCounters() /root/one/two/table",
     [](Dummy& dummy) { return dummy.readerCounters().lookups == 0; }},
    {"", [](Dummy& dummy) { return dummy.rootPath() == kPath; }},
    {"", [](Dummy& dummy) { return dummy.vestaName() == "vesta.one.two.table"; }},
    {"",
     [](Dummy& dummy) {
       dummy.yieldTimeIs(std::chrono::milliseconds(5));
       dummy.sampleIs(3);
       return !dummy.notifying() && !dummy.connected() && dummy.quiesced(9) && dummy.sequence() == 0 &&
              dummy.writerProcess() == 0;
     }},
};

TEST(Placeholder, Operations_ResultsAndMessages) {
  Log log;
  Dummy dummy(log.handler, kPath, std::make_unique<Bare>());
  for (const std::uint32_t flags : {0u, ~0x20u, 0x20u}) {
    log.handler->flagsIs(flags);
    for (const Operation& operation : kOperations) {
      log.lines.clear();
      EXPECT_TRUE(operation.call(dummy)) << operation.line;
      std::string lines;
      for (const std::string& line : log.lines) lines += (lines.empty() ? "" : "|") + line;
      EXPECT_EQ(lines, flags == 0x20u ? operation.line : "");
    }
  }
  Dummy withoutOwned(log.handler, kPath, nullptr);
  withoutOwned.cleanup();
}

template <class Exception>
std::string textOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const Exception& exception) {
    return exception.what();
  }
  return "nothing of this kind thrown";
}

void expectReadOnly(Base& table) {
  using Cairn::NoPermissionException;
  using Cairn::UnimplementedException;
  EXPECT_EQ(textOf<UnimplementedException>([&] { table.getCacheVersionAnchor(); }),
            "getCacheVersionAnchor() not implemented");
  EXPECT_EQ(textOf<UnimplementedException>([&] { table.clientQuiesced("x"); }),
            "clientQuiesced() not implemented");
  EXPECT_EQ(textOf<UnimplementedException>([&] { table.writerCounters(); }),
            "writerCounters() not implemented");
  EXPECT_EQ(textOf<NoPermissionException>([&] { table.directCommit(); }), "write to read-only Vesta table");
  EXPECT_EQ(textOf<NoPermissionException>([&] { table.directUpdate(TestKey{1}); }),
            "write to read-only Vesta table");
  EXPECT_EQ(textOf<NoPermissionException>([&] { table.directWrite(TestKey{1}); }),
            "write to read-only Vesta table");
  EXPECT_EQ(textOf<NoPermissionException>([&] { table.write(filled(), false); }),
            "write to read-only Vesta table");
  EXPECT_EQ(textOf<NoPermissionException>([&] { table.remove(TestKey{1}, nullptr); }),
            "remove to read-only Vesta table");
}

TEST(Placeholder, Operations_ThatThrow) {
  Dummy dummy(nullptr, kPath, nullptr);
  expectReadOnly(dummy);
  EXPECT_EQ(
      textOf<Cairn::AssertionException>([&] { dummy.validateVersionAnchor({}); }),
      "VestaBaseDummy::validateVersionAnchor() should never be called since it's impossible for a lookup "
      "to succeed");
  Bare bare;
  expectReadOnly(bare);
  EXPECT_EQ(textOf<Cairn::UnimplementedException>([&] { bare.readerCounters(); }),
            "readerCounters() not implemented");
  EXPECT_EQ(textOf<Cairn::NoPermissionException>([&] { bare.baseCleanup(); }),
            "cleanup to read-only Vesta table");
  EXPECT_EQ(textOf<Cairn::NoPermissionException>([&] { bare.validateFiles(); }),
            "validateFiles to read-only Vesta table");
  EXPECT_EQ(textOf<Cairn::NoPermissionException>([&] { bare.validate(); }),
            "validate to read-only Vesta table");
}

// The table's binary interface: where each operation stands among the virtual ones, the two destructors
// first.
TEST(Placeholder, VirtualOperations_StandInOrder) {
  const auto slot = [](auto operation) {
    std::uintptr_t word = 0;
    static_assert(sizeof operation >= sizeof word);
    std::memcpy(&word, &operation, sizeof word);
    return (word - 1) / sizeof(void*);  // a member pointer to a virtual operation is its place, plus one
  };
#if defined(__x86_64__)
  const std::size_t places[] = {slot(&Base::initialize),
                                slot(&Base::detach),
                                slot(&Base::validate),
                                slot(&Base::validateFiles),
                                slot(&Base::cleanup),
                                slot(&Base::write),
                                slot(&Base::remove),
                                slot(&Base::lookup),
                                slot(&Base::first),
                                slot(&Base::next),
                                slot(&Base::members),
                                slot(&Base::minSize),
                                slot(&Base::maxSize),
                                slot(&Base::capacity),
                                slot(&Base::type),
                                slot(&Base::directWrite),
                                slot(&Base::directUpdate),
                                slot(&Base::directCommit),
                                slot(&Base::directLookup),
                                slot(&Base::writerCounters),
                                slot(&Base::readerCounters),
                                slot(&Base::notifying),
                                slot(&Base::yieldTimeIs),
                                slot(&Base::sampleIs),
                                slot(&Base::sequence),
                                slot(&Base::clientQuiesced),
                                slot(&Base::quiesced),
                                slot(&Base::connected),
                                slot(&Base::rootPath),
                                slot(&Base::vestaName),
                                slot(&Base::mountStatus),
                                slot(&Base::writerProcess),
                                slot(&Base::validateVersionAnchor),
                                slot(&Base::getCacheVersionAnchor)};
  std::size_t expected = 2;
  for (const std::size_t place : places) EXPECT_EQ(place, expected++);
#endif
}

}  // namespace
}  // namespace VestaTest

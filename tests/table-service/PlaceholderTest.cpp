#include "Support.h"
#include "table-service/VestaBaseDummy.h"
#include "tests/SlotOf.h"

namespace VestaTest {
namespace {

using Base = Vesta::VestaBase<TestKey, TestEntry>;
using Dummy = Vesta::VestaBaseDummy<TestKey, TestEntry>;

const Vesta::RootPath kPath("/root", "one/two", "table");

// Calls each operation in turn; each either logs or does not.
void useAll(Dummy& dummy) {
  dummy.detach();
  EXPECT_EQ(int(dummy.mountStatus()), 0);
  EXPECT_EQ(int(dummy.type()), 2);
  EXPECT_TRUE(dummy.capacity() == 0 && dummy.maxSize() == 0 && dummy.minSize() == 0 && dummy.members() == 0);
  dummy.cleanup();
  EXPECT_TRUE(dummy.validateFiles() && dummy.validate() && dummy.initialize());
  EXPECT_EQ(dummy.readerCounters().lookups, 0u);
  Row row;
  Vesta::IterHint hint;
  const auto filled = [&row] { return row = {{7}, TestEntry::make(7, 7)}; };
  const auto isUnset = [](const Row& of) { return of.key.id + of.entry.id + of.entry.proof[0] == 0; };
  filled();
  EXPECT_TRUE(!dummy.first(row, hint) && isUnset(row));
  filled();
  EXPECT_TRUE(!dummy.next(TestKey{7}, row, hint) && isUnset(row));
  bool found = true;
  EXPECT_TRUE(isUnset(dummy.lookup(TestKey{7}, found, nullptr)) && !found);
  found = true;
  EXPECT_TRUE(dummy.directLookup(TestKey{7}, found, nullptr).id == 0 && !found);
  EXPECT_TRUE(dummy.rootPath() == kPath && dummy.vestaName() == "vesta.one.two.table");
  dummy.yieldTimeIs(std::chrono::milliseconds(5));
  dummy.sampleIs(3);
  EXPECT_TRUE(!dummy.notifying() && !dummy.connected() && dummy.quiesced(9));
  EXPECT_TRUE(dummy.sequence() == 0 && dummy.writerProcess() == 0);
}

TEST(Placeholder, Operations_ResultsAndMessages) {
  Log log;
  Dummy dummy(log.handler, kPath, std::make_unique<Dummy>(log.handler, kPath, nullptr));
  std::vector<std::string> expected;
  for (const std::string name :
       {"detach", "mountStatus", "type", "capacity", "maxSize", "minSize", "members", "cleanup",
        "cleanup" /* of the owned one */, "validateFiles", "validate", "initialize", "readerCounters",
        "first", "next", "first", "lookup", "lookup"}) {
    expected.push_back("5 VestaBaseDummy:0 " + name + " VestaBaseDummy::" + name + "() /root/one/two/table");
  }
  for (const std::uint32_t flags : {0u, ~0x20u, 0x20u}) {
    log.handler->flagsIs(flags);
    useAll(dummy);
    EXPECT_EQ(log.lines, flags == 0x20u ? expected : std::vector<std::string>());
  }
}

TEST(Placeholder, Operations_ThatThrow) {
  Dummy table(nullptr, kPath, nullptr);
  table.cleanup();
  const std::pair<std::string, std::function<void()>> unimplemented[] = {
      {"getCacheVersionAnchor", [&] { table.getCacheVersionAnchor(); }},
      {"clientQuiesced", [&] { table.clientQuiesced("x"); }},
      {"writerCounters", [&] { table.writerCounters(); }},
      {"readerCounters", [&] { table.Base::readerCounters(); }}};
  for (const auto& [name, call] : unimplemented) {
    EXPECT_THAT(call, ::testing::ThrowsMessage<Cairn::UnimplementedException>(name + "() not implemented"));
  }
  const std::pair<std::string, std::function<void()>> refused[] = {
      {"write", [&] { table.directCommit(); }},
      {"write", [&] { table.directUpdate(TestKey{1}); }},
      {"write", [&] { table.directWrite(TestKey{1}); }},
      {"write", [&] { table.write(Row(), false); }},
      {"remove", [&] { table.remove(TestKey{1}, nullptr); }},
      {"cleanup", [&] { table.Base::cleanup(); }},
      {"validateFiles", [&] { table.Base::validateFiles(); }},
      {"validate", [&] { table.Base::validate(); }}};
  for (const auto& [name, call] : refused) {
    EXPECT_THAT(call,
                ::testing::ThrowsMessage<Cairn::NoPermissionException>(name + " to read-only Vesta table"));
  }
  EXPECT_THAT(
      [&] { table.validateVersionAnchor({}); },
      ::testing::ThrowsMessage<Cairn::AssertionException>(
          "VestaBaseDummy::validateVersionAnchor() should never be called since it's impossible for a "
          "lookup to succeed"));
}

TEST(Placeholder, VirtualOperations_StandInOrder) {
  expectSlotsInOrder(&Base::initialize, &Base::detach, &Base::validate, &Base::validateFiles, &Base::cleanup,
                     &Base::write, &Base::remove, &Base::lookup, &Base::first, &Base::next, &Base::members,
                     &Base::minSize, &Base::maxSize, &Base::capacity, &Base::type, &Base::directWrite,
                     &Base::directUpdate, &Base::directCommit, &Base::directLookup, &Base::writerCounters,
                     &Base::readerCounters, &Base::notifying, &Base::yieldTimeIs, &Base::sampleIs,
                     &Base::sequence, &Base::clientQuiesced, &Base::quiesced, &Base::connected,
                     &Base::rootPath, &Base::vestaName, &Base::mountStatus, &Base::writerProcess,
                     &Base::validateVersionAnchor, &Base::getCacheVersionAnchor);
}

}  // namespace
}  // namespace VestaTest

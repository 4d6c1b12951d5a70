#include "Log.h"
#include "Support.h"
#include "table-service/VestaBaseDummy.h"
#include "tests/SlotOf.h"

namespace VestaTest {
namespace {

using Base = Vesta::VestaBase<TestKey, TestEntry>;
using Dummy = Vesta::VestaBaseDummy<TestKey, TestEntry>;

const Vesta::RootPath kPath("/root", "one/two", "table");
const Vesta::RootPath kOwnedPath("/root", "owned", "table");

Row filled() { return Row{{7}, TestEntry::make(7, 7)}; }
bool isZero(const Row& row) { return row.key.id == 0 && row.entry.id == 0 && row.entry.proof[0] == 0; }

// Each operation with its messages, "name() table", and a call that tells whether it gave what it must.
const std::pair<std::vector<std::string>, std::function<bool(Dummy&)>> kOperations[] = {
    {{"detach() /root/one/two/table"}, [](Dummy& dummy) { return dummy.detach(), true; }},
    {{"mountStatus() /root/one/two/table"}, [](Dummy& dummy) { return int(dummy.mountStatus()) == 0; }},
    {{"type() /root/one/two/table"}, [](Dummy& dummy) { return int(dummy.type()) == 2; }},
    {{"capacity() /root/one/two/table"}, [](Dummy& dummy) { return dummy.capacity() == 0; }},
    {{"maxSize() /root/one/two/table"}, [](Dummy& dummy) { return dummy.maxSize() == 0; }},
    {{"minSize() /root/one/two/table"}, [](Dummy& dummy) { return dummy.minSize() == 0; }},
    {{"members() /root/one/two/table"}, [](Dummy& dummy) { return dummy.members() == 0; }},
    {{"cleanup() /root/one/two/table", "cleanup() /root/owned/table"},
     [](Dummy& dummy) { return dummy.cleanup(), true; }},
    {{"validateFiles() /root/one/two/table"}, [](Dummy& dummy) { return dummy.validateFiles(); }},
    {{"validate() /root/one/two/table"}, [](Dummy& dummy) { return dummy.validate(); }},
    {{"initialize() /root/one/two/table"}, [](Dummy& dummy) { return dummy.initialize(); }},
    {{"first() /root/one/two/table"},
     [](Dummy& dummy) {
       Row row = filled();
       Vesta::IterHint hint;
       return !dummy.first(row, hint) && isZero(row);
     }},
    {{"next() /root/one/two/table", "first() /root/one/two/table"},
     [](Dummy& dummy) {
       Row row = filled();
       Vesta::IterHint hint;
       return !dummy.next(TestKey{7}, row, hint) && isZero(row);
     }},
    {{"lookup() /root/one/two/table"},
     [](Dummy& dummy) {
       bool found = true;
       return isZero(dummy.lookup(TestKey{7}, found, nullptr)) && !found;
     }},
    {{"lookup() /root/one/two/table"},
     [](Dummy& dummy) {
       bool found = true;
       return dummy.directLookup(TestKey{7}, found, nullptr).id == 0 && !found;
     }},
    {{"readerCounters() /root/one/two/table"},
     [](Dummy& dummy) { return dummy.readerCounters().lookups == 0; }},
    {{},
     [](Dummy& dummy) { return dummy.rootPath() == kPath && dummy.vestaName() == "vesta.one.two.table"; }},
    {{},
     [](Dummy& dummy) {
       dummy.yieldTimeIs(std::chrono::milliseconds(5));
       dummy.sampleIs(3);
       return !dummy.notifying() && !dummy.connected() && dummy.quiesced(9) && dummy.sequence() == 0 &&
              dummy.writerProcess() == 0;
     }},
};

TEST(Placeholder, Operations_ResultsAndMessages) {
  Log log;
  Dummy dummy(log.handler, kPath, std::make_unique<Dummy>(log.handler, kOwnedPath, nullptr));
  for (const std::uint32_t flags : {0u, ~0x20u, 0x20u}) {
    log.handler->flagsIs(flags);
    for (const auto& [messages, call] : kOperations) {
      log.lines.clear();
      EXPECT_TRUE(call(dummy)) << ::testing::PrintToString(messages);
      std::vector<std::string> expected;
      for (const std::string& text : messages) {
        const std::string name = text.substr(0, text.find('('));
        expected.push_back("5 VestaBaseDummy:0 " + name + " VestaBaseDummy::" + text);
      }
      if (flags != 0x20u) expected.clear();
      EXPECT_EQ(log.lines, expected);
    }
  }
}

TEST(Placeholder, Operations_ThatThrow) {
  using ::testing::ThrowsMessage;
  Dummy table(nullptr, kPath, nullptr);
  table.cleanup();
  const auto unimplemented = [](const std::string& operation) {
    return ThrowsMessage<Cairn::UnimplementedException>(operation + "() not implemented");
  };
  EXPECT_THAT([&] { table.getCacheVersionAnchor(); }, unimplemented("getCacheVersionAnchor"));
  EXPECT_THAT([&] { table.clientQuiesced("x"); }, unimplemented("clientQuiesced"));
  EXPECT_THAT([&] { table.writerCounters(); }, unimplemented("writerCounters"));
  EXPECT_THAT([&] { table.Base::readerCounters(); }, unimplemented("readerCounters"));
  const auto readOnly = [](const std::string& operation) {
    return ThrowsMessage<Cairn::NoPermissionException>(operation + " to read-only Vesta table");
  };
  EXPECT_THAT([&] { table.directCommit(); }, readOnly("write"));
  EXPECT_THAT([&] { table.directUpdate(TestKey{1}); }, readOnly("write"));
  EXPECT_THAT([&] { table.directWrite(TestKey{1}); }, readOnly("write"));
  EXPECT_THAT([&] { table.write(filled(), false); }, readOnly("write"));
  EXPECT_THAT([&] { table.remove(TestKey{1}, nullptr); }, readOnly("remove"));
  EXPECT_THAT([&] { table.Base::cleanup(); }, readOnly("cleanup"));
  EXPECT_THAT([&] { table.Base::validateFiles(); }, readOnly("validateFiles"));
  EXPECT_THAT([&] { table.Base::validate(); }, readOnly("validate"));
  EXPECT_THAT(
      [&] { table.validateVersionAnchor({}); },
      ThrowsMessage<Cairn::AssertionException>(
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

// The pending-programming trackers.
#include "P4RuntimePlugin/PendingHwProgrammingSms.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>

#include <new>
#include <optional>

#include "PluginFixture.h"
#include "ScriptedTable.h"
#include "tests/AllocationCount.h"

namespace {

using namespace TolmarHwLib;
using P4Runtime::BatchStatusEntry;
using L3IifTracker = L3IifTH3PendingHwProgrammingSm;

class Tracker : public PluginFixture {
 protected:
  using Table = ScriptedEntity<L3IifTH3Status>;

  /// What is completed by a row with this handle, written now.
  Log write(const Table& table, std::uint64_t handle, std::uint16_t errorCode = 0, std::uint64_t key = 1) {
    taken();
    table.entity->tableIs({{.entryHandle = handle, .errorCode = errorCode}, {key}});
    return taken();
  }
  template <class Kind>
  void expectReport(const std::string& line, const typename Kind::Key& key, const std::string& keyText);

  Table status_{folder_.path()};
  Table other_{folder_.path(), "other"};
  Quill::Ptr<L3IifTracker> tracker_ = L3IifTracker::L3IifTH3PendingHwProgrammingSmIs(batch_, status_.entity);
};

TEST_F(Tracker, Completion_MergesWithWhatTheAgentHasNotTakenAndThenWakesIt) {
  const struct {
    std::optional<BatchStatusEntry> earlier;  // in the batch status before the row comes
    std::uint16_t errorCode;                  // of the row
    BatchStatusEntry expected;
  } cases[] = {
      {{}, 0, {7, 0, ""}},
      {{}, 4, {7, 4, "hardware error 4"}},
      {{{7, 0, "left over"}}, 65535, {7, 65535, "hardware error 65535"}},
      {{{7, 3, "spoilt"}}, 0, {7, 3, "hardware error 3"}},
      {{{7, 3, "older"}}, 4, {7, 4, "hardware error 4 older"}},
      {{{7, 3, ""}}, 4, {7, 4, "hardware error 4 "}},
      {{{8, 3, "of another handle"}}, 0, {7, 0, ""}},
  };
  batch_->onCompleted = [this] { EXPECT_FALSE(batch_->notificationTake()); };
  for (const auto& c : cases) {
    batch_->completedTransactionStatusDelAll();
    batch_->notificationTake();
    if (c.earlier) batch_->completedTransactionStatusIs(*c.earlier);
    write(status_, 7, c.errorCode);
    const BatchStatusEntry completed = *batch_->completedTransactionStatus(7);
    EXPECT_EQ(completed, c.expected) << completed.errorCode << " " << completed.errorMessage;
    EXPECT_TRUE(batch_->notificationTake());
  }
}

TEST_F(Tracker, Completion_OneForEachNotificationOfARowThatIsThere) {
  write(other_, 7);
  tracker_->statusIs(other_.entity);  // rows from before are not reported
  tracker_->onStatusRow({2});
  other_.entity->tableDel({1});
  EXPECT_EQ(taken(), Log{});
  EXPECT_FALSE(batch_->notificationTake());
  // Each is merged into the last, and a full counter is no hindrance.
  ASSERT_EQ(::eventfd_write(batch_->notificationDescriptor(), 0xfffffffffffffffeu), 0);
  EXPECT_EQ(write(other_, 7, 2), Log{"completed 7 2"});
  EXPECT_EQ(write(other_, 7, 0), Log{"completed 7 2"});
  EXPECT_EQ(write(other_, 7, 9), Log{"completed 7 9"});
  EXPECT_EQ(batch_->completedTransactionStatusDelAll(),
            (std::vector<BatchStatusEntry>{{7, 9, "hardware error 9 hardware error 2"}}));
}

TEST_F(Tracker, Damage_DetachesTheTableAndCompletesNothing) {
  for (const std::size_t read : {1u, 2u}) {
    Table damaged(folder_.path(), "damaged");
    const auto tracker = l3IifTH3PendingHwProgrammingSmFactory(batch_, damaged.entity);
    damaged.table->damageIs(read);
    EXPECT_EQ(write(damaged, 7), Log{});
    tracker->onStatusRow({1});  // reads as empty from now on
    EXPECT_EQ(taken(), Log{});
    EXPECT_FALSE(batch_->notificationTake());
    EXPECT_FALSE(damaged.entity->attached());
    EXPECT_THAT(damaged.logged, testing::HasSubstr("/damaged row 3: bad checksum"));
  }
  status_.table->onReadIs(1, [this] {
    status_.entity->corruptionDetected("detected by another reader");
    throw Cairn::CorruptionDetectedException("detected here");
  });
  EXPECT_THROW(tracker_->onStatusRow({1}), Cairn::CorruptionDetectedException);
}

// The first lookup gives the answer, unless it found damage and the table was mounted again at once.
TEST_F(Tracker, Answer_IsThatOfTheSecondLookupAfterARemountAlone) {
  const auto store = [this](std::uint64_t handle, std::uint16_t errorCode) {
    status_.table->write({{1}, {{.entryHandle = handle, .errorCode = errorCode}, {1}}}, false);
  };
  store(7, 3);
  status_.table->onReadIs(2, [&] { store(8, 4); });
  tracker_->onStatusRow({1});
  status_.table->damageIs(1);
  status_.entity->table().readyFunctionIs([&] {
    status_.mount();
    store(9, 5);
  });
  tracker_->onStatusRow({1});
  EXPECT_EQ(taken(), (Log{"completed 7 3", "completed 9 5"}));
}

TEST_F(Tracker, Binding_MovesOneReactorThatKeepsToTheTrackersFlagAndMark) {
  const auto reactor = [this] { return status_.entity->notifieeList().front(); };
  const Quill::NotifieeConst* const first = reactor();
  tracker_->statusIs(status_.entity);
  EXPECT_EQ(status_.entity->notifieeList().size(), 1u);
  allocationFailureIs(1);
  EXPECT_THROW(tracker_->statusIs(other_.entity), std::bad_alloc);
  EXPECT_EQ(tracker_->status(), status_.entity);
  EXPECT_EQ(write(status_, 1), Log{"completed 1 0"});
  tracker_->statusIs(other_.entity);
  EXPECT_EQ(other_.entity->notifieeList().front(), first);
  EXPECT_EQ(write(status_, 1), Log{});
  EXPECT_EQ(write(other_, 2), Log{"completed 2 0"});
  tracker_->statusIs(nullptr);
  EXPECT_FALSE(tracker_->status());
  EXPECT_EQ(write(other_, 3), Log{});
  tracker_->onStatusRow({1});  // by name, with no table
  tracker_->hasNotificationActiveIs(false);
  tracker_->statusIs(status_.entity);
  EXPECT_FALSE(reactor()->hasNotificationActive());
  tracker_->hasNotificationActiveIs(true);
  EXPECT_EQ(write(status_, 4), Log{"completed 4 0"});
  tracker_->quillDoZombieReactors(true);
  EXPECT_TRUE(tracker_->quillMarkedForDeletion());
  EXPECT_EQ(write(status_, 5), Log{});
  tracker_->statusDel();
  tracker_->statusIs(status_.entity);
  EXPECT_TRUE(reactor()->quillMarkedForDeletion());
  tracker_->quillDoZombieReactors(false);
  EXPECT_EQ(write(status_, 6), Log{"completed 6 0"});
}

TEST_F(Tracker, Reentry_HandlersMayUnbindRebindAndDropTheTrackerItself) {
  const std::function<void()> meddles[] = {
      [this] { tracker_->statusDel(); }, [this] { tracker_->statusIs(other_.entity); },
      [this] { tracker_->hasNotificationActiveIs(false); }, [this] { tracker_ = nullptr; }};
  for (const auto& meddle : meddles) {
    tracker_ = l3IifTH3PendingHwProgrammingSmFactory(batch_, status_.entity);
    batch_->onCompleted = meddle;
    EXPECT_EQ(write(status_, 7), Log{"completed 7 0"});
    batch_->onCompleted = nullptr;
    EXPECT_TRUE(batch_->notificationTake());
    EXPECT_EQ(write(status_, 8), Log{});
  }
  EXPECT_TRUE(status_.entity->notifieeList().empty());
  tracker_ = l3IifTH3PendingHwProgrammingSmFactory(batch_, other_.entity);
  other_.table->onReadIs(1, [this] {
    tracker_->statusDel();
    EXPECT_EQ(other_.entity->references(), 2u) << "the table is held while its row is handled";
  });
  tracker_->onStatusRow({1});
}

/// Made by name, the tracker of `Kind` reports and traces a row with its own line and the key's text.
template <class Kind>
void Tracker::expectReport(const std::string& line, const typename Kind::Key& key,
                           const std::string& keyText) {
  using Type = typename TrackerOf<Kind>::type;
  using Status = typename Kind::Status;
  ScriptedEntity<Status> status(folder_.path(), "kind");
  const std::vector<Quill::GenericValue> arguments = {genericValue(batch_), genericValue(status.entity)};
  const auto tracker = Type::_quillType.genericIfFromCtorArgs(arguments);
  EXPECT_EQ(tracker.object()->fwkType(), &Type::_quillType);
  EXPECT_EQ(Type::_quillType.member("status")->type, Status::_quillType.name);
  EXPECT_EQ(pointer(tracker.get("batchStatus")), batch_);
  EXPECT_EQ(constPointer(tracker.get("status")), status.entity);
  traceIs("PendingHwPogrammingSm", 9);
  status.entity->tableIs({{.entryHandle = 5, .errorCode = 6}, key});
  tracker.call("onStatusRow", std::vector<Quill::GenericValue>{key});
  tracker.call("onStatusRows");
  const std::string text = "PendingHwProgrammingSms:" + line + " onStatusRow: onStatusRow" + keyText;
  EXPECT_EQ(taken(), (Log{text + " at 9", "completed 5 6", text + " at 9", "completed 5 6"}));
  EXPECT_EQ(fastTrace(), Log(2, text + "|" + keyText));
}

TEST_F(Tracker, Kinds_EachHasItsTableAndItsTraceLine) {
  expectReport<L3IifTH3>("16", {1234567}, "1234567");
  expectReport<MyStationTcamTH3>("73", {{{0, 0, 0x5e, 0, 0x53, 1}}, 5, 0, false, {}, 0, 0, true, 0},
                                 "00:00:5e:00:53:01 5 0 false 00:00:00:00:00:00 0 0 true 0");
  const IpGenAddr sip = IpGenAddr::ipv4({192, 0, 2, 1});
  const IpGenAddr dip = IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8});
  expectReport<L3TunnelTH3>("130", {sip, dip, 47, 5, 0}, "192.0.2.1 2001:db8:: 47 5 0");
}

}  // namespace

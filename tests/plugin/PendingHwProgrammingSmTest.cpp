// The trackers, each kind of them: what a status row becomes, bindings, damage, traces, reactors that change
// what is being called.
#include "P4RuntimePlugin/PendingHwProgrammingSms.h"

#include <sys/eventfd.h>

#include <functional>
#include <optional>

#include "PluginFixture.h"
#include "ScriptedTable.h"

namespace {

using P4Runtime::BatchStatus;
using P4Runtime::BatchStatusEntry;
using TolmarHwLib::L3IifTH3Key;
using TolmarHwLib::L3TunnelTH3Key;
using TolmarHwLib::MyStationTcamTH3Key;

struct L3Iif {
  using Tracker = TolmarHwLib::L3IifTH3PendingHwProgrammingSm;
  using Status = TolmarHwLib::L3IifTH3Status;
  static constexpr int kLine = 16;
  static constexpr const char* kKeyText = "5";
  static constexpr auto kIs = &Tracker::L3IifTH3PendingHwProgrammingSmIs;
  static constexpr auto kFactory = &TolmarHwLib::l3IifTH3PendingHwProgrammingSmFactory;
  static L3IifTH3Key key(std::uint16_t i) { return {.l3Iif = i}; }
};

struct MyStationTcam {
  using Tracker = TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm;
  using Status = TolmarHwLib::MyStationTcamTH3Status;
  static constexpr int kLine = 73;
  static constexpr const char* kKeyText = "00:00:5e:00:53:01 5 0 false 00:00:00:00:00:00 0 0 true 0";
  static constexpr auto kIs = &Tracker::MyStationTcamTH3PendingHwProgrammingSmIs;
  static constexpr auto kFactory = &TolmarHwLib::myStationTcamTH3PendingHwProgrammingSmFactory;
  static MyStationTcamTH3Key key(std::uint16_t i) {
    MyStationTcamTH3Key key;
    key.macAddr = EthAddr{{0x00, 0x00, 0x5e, 0x00, 0x53, 0x01}};
    key.vlanId = i;
    key.tMask = true;
    return key;
  }
};

struct L3Tunnel {
  using Tracker = TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm;
  using Status = TolmarHwLib::L3TunnelTH3Status;
  static constexpr int kLine = 130;
  static constexpr const char* kKeyText = "192.0.2.1 2001:db8:: 47 5 0";
  static constexpr auto kIs = &Tracker::L3TunnelTH3PendingHwProgrammingSmIs;
  static constexpr auto kFactory = &TolmarHwLib::l3TunnelTH3PendingHwProgrammingSmFactory;
  static L3TunnelTH3Key key(std::uint16_t i) {
    return {IpGenAddr::ipv4({192, 0, 2, 1}), IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8}), 47, i, 0};
  }
};

/// Runs `onCompleted` in the middle of a tracker's work.
class MeddlingBatchStatus final : public BatchStatus {
 public:
  std::function<void()> onCompleted;
  void completedTransactionStatusIs(const BatchStatusEntry& entry) override {
    BatchStatus::completedTransactionStatusIs(entry);
    if (onCompleted) onCompleted();
  }
};

template <class Kind>
class Tracker : public PluginFixture {
 protected:
  using Status = typename Kind::Status;
  using Entry = typename Status::Entry;

  static Entry row(std::uint16_t key, std::uint64_t handle, std::uint16_t errorCode = 0) {
    Entry entry;
    static_cast<typename Status::Key&>(entry) = Kind::key(key);
    entry.entryHandle = handle;
    entry.errorCode = errorCode;
    return entry;
  }
  std::vector<BatchStatusEntry> completions() { return batch_->completedTransactionStatusDelAll(); }
  std::size_t handlesCompleted() { return completions().size(); }

  ScriptedEntity<Status> status_{folder_.path()};
  ScriptedEntity<Status> other_{folder_.path(), "other"};
  Quill::Ptr<MeddlingBatchStatus> batch_ = Quill::allocate<MeddlingBatchStatus>();
  Quill::Ptr<typename Kind::Tracker> tracker_ = Kind::kIs(batch_, status_.entity);

  void TearDown() override {
    tracker_ = nullptr;
    status_.entity = nullptr;
    other_.entity = nullptr;
    batch_ = nullptr;
    PluginFixture::TearDown();
  }
};

using Kinds = testing::Types<L3Iif, MyStationTcam, L3Tunnel>;
TYPED_TEST_SUITE(Tracker, Kinds);

struct MergeCase {
  const char* name;
  std::optional<BatchStatusEntry> earlier;  // in the batch status before the row comes
  std::uint16_t errorCode;                  // of the row
  BatchStatusEntry expected;
};

TYPED_TEST(Tracker, Completion_MergesWithWhatTheAgentHasNotTaken) {
  static const MergeCase kCases[] = {
      {"success alone", {}, 0, {7, 0, ""}},
      {"failure alone", {}, 4, {7, 4, "hardware error 4"}},
      {"success after success", {{7, 0, ""}}, 0, {7, 0, ""}},
      {"failure after success", {{7, 0, "left over"}}, 65535, {7, 65535, "hardware error 65535"}},
      {"success after failure", {{7, 3, "spoilt"}}, 0, {7, 3, "hardware error 3"}},
      {"failure after failure", {{7, 3, "hardware error 3"}}, 4, {7, 4, "hardware error 4 hardware error 3"}},
      {"same failure again", {{7, 4, "hardware error 4"}}, 4, {7, 4, "hardware error 4 hardware error 4"}},
      {"failure after failure without text", {{7, 3, ""}}, 4, {7, 4, "hardware error 4 "}},
      {"failure of another handle", {{8, 3, "hardware error 3"}}, 0, {7, 0, ""}},
  };
  for (const MergeCase& c : kCases) {
    SCOPED_TRACE(c.name);
    this->completions();
    if (c.earlier) this->batch_->completedTransactionStatusIs(*c.earlier);
    this->status_.entity->tableIs(this->row(1, 7, c.errorCode));
    const BatchStatusEntry* const completed = this->batch_->completedTransactionStatus(7);
    ASSERT_NE(completed, nullptr);
    EXPECT_EQ(completed->entryHandle, c.expected.entryHandle);
    EXPECT_EQ(completed->errorCode, c.expected.errorCode);
    EXPECT_EQ(completed->errorMessage, c.expected.errorMessage);
  }
}

TYPED_TEST(Tracker, Completion_OneForEachNotificationEachMergedIntoTheLast) {
  auto& table = *this->status_.entity;
  for (const std::uint16_t code : std::initializer_list<std::uint16_t>{2, 0, 9})
    table.tableIs(this->row(1, 7, code));
  EXPECT_EQ(this->completions(),
            (std::vector<BatchStatusEntry>{{7, 9, "hardware error 9 hardware error 2"}}));
  table.tableIs(this->row(1, 7));
  EXPECT_EQ(this->completions(), (std::vector<BatchStatusEntry>{{7, 0, ""}}));
}

TYPED_TEST(Tracker, Completion_NotForRowsFromBeforeNorForRowsThatAreGone) {
  this->other_.entity->tableIs(this->row(1, 7));
  this->tracker_->statusIs(this->other_.entity);
  EXPECT_EQ(this->handlesCompleted(), 0u);
  this->other_.entity->tableDel(this->row(1, 7).key());
  this->tracker_->onStatusRow(TypeParam::key(2));
  EXPECT_EQ(this->handlesCompleted(), 0u);
  EXPECT_FALSE(this->batch_->notificationTake());
  this->other_.entity->tableIs(this->row(2, 8));
  EXPECT_EQ(this->handlesCompleted(), 1u);
}

TYPED_TEST(Tracker, Wake_EightBytesForEachCompletionAndNeverBlocks) {
  std::uint64_t woken = 0;
  for (std::uint16_t i = 0; i < 3; ++i) this->status_.entity->tableIs(this->row(i, i));
  ASSERT_EQ(::eventfd_read(this->batch_->notificationDescriptor(), &woken), 0);
  EXPECT_GE(woken, 3u);
  ASSERT_EQ(::eventfd_write(this->batch_->notificationDescriptor(), 0xfffffffffffffffeu), 0);
  this->status_.entity->tableIs(this->row(9, 9));
  EXPECT_EQ(this->handlesCompleted(), 4u);
}

TYPED_TEST(Tracker, Trace_HandleAndFastTraceSayTheSame) {
  const FastTrace fast(this->folder_);
  HandleLines handle("PendingHwPogrammingSm", 9);
  this->tracker_->onStatusRow(TypeParam::key(5));
  const std::string text = std::string("onStatusRow") + TypeParam::kKeyText;
  const TraceLine expected{"PendingHwPogrammingSm", 9,   "PendingHwProgrammingSms", TypeParam::kLine,
                           "onStatusRow",           text};
  EXPECT_EQ(handle.lines, std::vector{expected});
  const auto records = fast.records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text(), text);
  EXPECT_EQ(records[0].site->source, "PendingHwProgrammingSms");
  EXPECT_EQ(records[0].site->function, "onStatusRow");
  EXPECT_EQ(records[0].site->line, static_cast<std::uint32_t>(TypeParam::kLine));
}

TYPED_TEST(Tracker, Damage_DetachesTheTableAndCompletesNothing) {
  for (const std::size_t read : {1u, 2u}) {
    SCOPED_TRACE(read);
    ScriptedEntity<typename TypeParam::Status> damaged(this->folder_.path(), "damaged");
    const auto tracker = TypeParam::kFactory(this->batch_, damaged.entity);
    damaged.table->damagedAtRead = read;
    damaged.entity->tableIs(this->row(1, 7, 3));
    EXPECT_EQ(this->handlesCompleted(), 0u);
    EXPECT_FALSE(this->batch_->notificationTake());
    EXPECT_FALSE(damaged.entity->attached());
    const std::string path = this->folder_.path() + "/tables/damaged";
    ASSERT_FALSE(damaged.messages.empty());
    EXPECT_EQ(damaged.messages[0], "VestaMap::corruptionDetected() " + path + " row 3: bad checksum");
    tracker->onStatusRow(TypeParam::key(1));  // reads as empty from now on
    EXPECT_EQ(this->handlesCompleted(), 0u);
  }
}

TYPED_TEST(Tracker, Damage_OfATableDetachedMeanwhilePassesOn) {
  auto& entity = *this->status_.entity;
  this->status_.table->damagedAtRead = 1;
  this->status_.table->justBeforehand = [&entity] { entity.corruptionDetected("met by another reader"); };
  try {
    this->tracker_->onStatusRow(TypeParam::key(1));
    ADD_FAILURE() << "kept to itself";
  } catch (const Cairn::CorruptionDetectedException& damage) {
    EXPECT_EQ(damage.message(),
              "VestaMap::corruptionDetected() " + this->folder_.path() + "/tables/table row 3: bad checksum");
  }
  EXPECT_EQ(this->handlesCompleted(), 0u);
}

TYPED_TEST(Tracker, Binding_MovesOneReactorAndLosesNothing) {
  auto& first = *this->status_.entity;
  auto& second = *this->other_.entity;
  auto& tracker = *this->tracker_;
  ASSERT_EQ(first.notifieeList().size(), 1u);
  const Quill::NotifieeConst* const reactor = first.notifieeList().front();
  tracker.statusIs(this->status_.entity);
  EXPECT_EQ(first.notifieeList().front(), reactor);
  tracker.statusIs(this->other_.entity);
  EXPECT_TRUE(first.notifieeList().empty());
  EXPECT_EQ(second.notifieeList().front(), reactor);
  EXPECT_TRUE(reactor->hasNotificationActive());
  EXPECT_FALSE(reactor->quillMarkedForDeletion());
  first.tableIs(this->row(1, 1));
  EXPECT_EQ(this->handlesCompleted(), 0u);
  second.tableIs(this->row(1, 2));
  EXPECT_EQ(this->handlesCompleted(), 1u);
  tracker.statusDel();
  EXPECT_FALSE(tracker.status());
  EXPECT_TRUE(second.notifieeList().empty());
  tracker.onStatusRow(TypeParam::key(1));  // by name, with no table
  EXPECT_EQ(this->handlesCompleted(), 0u);
  tracker.statusIs(this->status_.entity);
  first.tableIs(this->row(1, 3));
  EXPECT_EQ(this->handlesCompleted(), 1u);
}

TYPED_TEST(Tracker, Binding_NewReactorTakesOverFlagAndDeletionMark) {
  auto& tracker = *this->tracker_;
  const auto reactor = [this] { return this->status_.entity->notifieeList().front(); };
  tracker.statusDel();
  tracker.hasNotificationActiveIs(false);
  tracker.statusIs(this->status_.entity);
  EXPECT_FALSE(reactor()->hasNotificationActive());
  tracker.hasNotificationActiveIs(true);
  EXPECT_TRUE(reactor()->hasNotificationActive());
  tracker.quillDoZombieReactors(true);
  EXPECT_TRUE(tracker.quillMarkedForDeletion());
  EXPECT_TRUE(reactor()->quillMarkedForDeletion());
  this->status_.entity->tableIs(this->row(1, 7));
  EXPECT_EQ(this->handlesCompleted(), 0u);
  tracker.statusDel();
  tracker.statusIs(this->status_.entity);
  EXPECT_TRUE(reactor()->quillMarkedForDeletion());
  tracker.quillDoZombieReactors(false);
  this->status_.entity->tableIs(this->row(1, 7));
  EXPECT_EQ(this->handlesCompleted(), 1u);
}

TYPED_TEST(Tracker, Reentry_HandlersMayUnbindRebindAndDropTheTrackerItself) {
  const auto meddleWith = [this](const std::function<void()>& meddle) {
    this->tracker_ = TypeParam::kIs(this->batch_, this->status_.entity);
    this->batch_->onCompleted = meddle;
    this->status_.entity->tableIs(this->row(1, 7));
    this->batch_->onCompleted = nullptr;
    EXPECT_EQ(this->handlesCompleted(), 1u);
    EXPECT_TRUE(this->batch_->notificationTake());
    this->status_.entity->tableIs(this->row(1, 8));
    return this->handlesCompleted();
  };
  EXPECT_EQ(meddleWith([this] { this->tracker_->statusDel(); }), 0u);
  EXPECT_EQ(meddleWith([this] { this->tracker_->statusIs(this->other_.entity); }), 0u);
  EXPECT_EQ(meddleWith([this] { this->tracker_ = nullptr; }), 0u);
  EXPECT_EQ(meddleWith([this] { this->tracker_->hasNotificationActiveIs(false); }), 0u);
  EXPECT_TRUE(this->status_.entity->notifieeList().size() <= 1);
}

}  // namespace

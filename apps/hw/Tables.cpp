#include "apps/hw/Tables.h"

#include <array>
#include <string_view>
#include <tuple>
#include <utility>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/hw/EntityFollower.h"
#include "apps/process/Log.h"
#include "quill/Notifiee.h"

namespace HwAgent {

TableFollower::~TableFollower() = default;

namespace {

// Interval of the checks for what no event reports; half a second is the most that noticing may take.
constexpr std::chrono::milliseconds kTick{400};

struct Table {
  std::string_view name;
  unsigned capacity;
  std::unique_ptr<TableFollower> (*follow)(const TablePlace& place, const Settings& settings);
};

template <class Kind>
constexpr Table tableOf(const TolmarHwLib::OutputTable<Kind>& table) {
  return {table.name, table.capacity, followEntities<typename Kind::Config, typename Kind::Status>};
}

constexpr auto kTables = std::apply([](const auto&... table) { return std::array{tableOf(table)...}; },
                                    TolmarHwLib::kOutputTables);

std::string nameOf(std::size_t index) { return std::string(kTables[index].name); }

std::string configPathOf(std::size_t index) {
  return TolmarHwLib::configPath(TolmarHwLib::kOutputTablePrefix, kTables[index].name);
}

std::string statusPathOf(std::size_t index) {
  return TolmarHwLib::statusPath(TolmarHwLib::kOutputTablePrefix, kTables[index].name);
}

}  // namespace

Tables::Tables(Quill::Ptr<const Orrery::EntityManager> entityManager, Settings settings,
               Counters::HardwareCounters* counters)
    : entityManager_(std::move(entityManager)),
      settings_(std::move(settings)),
      counters_(counters),
      followed_(kTables.size()),
      failedNotifications_(Quill::NotifieeConst::failedNotifications()) {
  followAll(false);
  started_ = true;
  timer_ = entityManager_->eventLoop().periodicTimerIs(kTick, [this] { tick(); });
}

Tables::~Tables() { entityManager_->eventLoop().timerDel(timer_); }

std::uint64_t Tables::answers() const {
  std::uint64_t sum = answersBefore_;
  for (const Followed& followed : followed_) sum += followed.follower ? followed.follower->answers() : 0;
  return sum;
}

void Tables::faultsAre(std::vector<Fault> faults) {
  settings_.faults = std::move(faults);
  for (const Followed& followed : followed_) {
    if (followed.follower) followed.follower->faultsAre(settings_.faults);
  }
}

/// A reactor that fails has missed a change of its table, and so may have all of them when the loop itself
/// has run out of memory.
void Tables::tick() {
  const std::uint64_t failed = Quill::NotifieeConst::failedNotifications();
  followAll(changesMissed_ || failed != failedNotifications_);
  changesMissed_ = false;
  failedNotifications_ = failed;
  scale_.correct();
  if (counters_ != nullptr) counters_->heartbeat.set(Counters::monotonicNanoseconds());
}

AnswerCounters Tables::countersOf(std::size_t index) {
  if (counters_ == nullptr) return {};
  counters_->tables[index].capacity.set(kTables[index].capacity);
  return {counters_->tables[index], scale_};
}

void Tables::followAll(bool changesMissed) {
  for (std::size_t i = 0; i < kTables.size(); ++i) {
    if (intact(i)) {
      followed_[i].follower->maintain(changesMissed);
    } else {
      follow(i);
    }
  }
}

/// False when the pair is to be mounted again; its follower is gone then.
bool Tables::intact(std::size_t index) {
  std::unique_ptr<TableFollower>& follower = followed_[index].follower;
  if (!follower) return false;
  const std::string displaced = follower->attached() ? follower->displacedFile() : std::string();
  if (follower->attached() && displaced.empty()) return true;
  answersBefore_ += follower->answers();
  if (follower->configLost()) countDamage(index);
  follower.reset();
  if (displaced.empty()) return false;
  Process::log(Process::LogLevel::error,
               nameOf(index) + ": the file " + displaced + " was removed or replaced",
               {{"table", kTables[index].name}});
  entityManager_->unmount(configPathOf(index));
  entityManager_->unmount(statusPathOf(index));
  return false;
}

void Tables::follow(std::size_t index) {
  const Table& table = kTables[index];
  const TablePlace place{entityManager_,      nameOf(index),  configPathOf(index),
                         statusPathOf(index), table.capacity, countersOf(index)};
  auto& [follower, waitedFor, damaged] = followed_[index];
  try {
    follower = table.follow(place, settings_);
    damaged = false;
    if (std::exchange(waitedFor, false)) {
      Process::log(Process::LogLevel::info, nameOf(index) + ": followed again",
                   {{"table", kTables[index].name}});
    }
  } catch (const Cairn::CorruptionDetectedException& damage) {
    // The table's writer has been notified and replaces it at its next write.
    countDamage(index);
    wait(index, damage.message());
  } catch (const Cairn::Exception& failure) {
    if (!started_) throw;
    wait(index, failure.message());
  }
}

/// Once for each time that the config table is damaged, however often mounting it is tried. Damage of the
/// status table is counted by its writer.
void Tables::countDamage(std::size_t index) {
  if (std::exchange(followed_[index].damaged, true)) return;
  countersOf(index).words().segments.damageReports.add();
}

void Tables::wait(std::size_t index, const std::string& reason) {
  if (std::exchange(followed_[index].waitedFor, true)) return;
  Process::log(Process::LogLevel::warning, nameOf(index) + ": waiting for an intact table: " + reason,
               {{"table", kTables[index].name}});
}

}  // namespace HwAgent

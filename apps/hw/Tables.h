// The four tables of the plugin as this process mounts them: config tables to read, status tables to write.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/hw/AnswerCounters.h"
#include "apps/hw/Options.h"
#include "orrery/Mount.h"

namespace HwAgent {

/// Follows one table pair for as long as it lives.
class TableFollower {
 public:
  virtual ~TableFollower();
  /// Answers given so far.
  virtual std::uint64_t answers() const = 0;
  /// Answers from now on follow these faults.
  virtual void faultsAre(const std::vector<Fault>& faults) = 0;
  /// False once corruption was detected in one of the two tables; nothing is followed any more then.
  virtual bool attached() const = 0;
  /// Whether it was detected in the config table.
  virtual bool configLost() const = 0;
  /// The path of a file of the two tables that somebody removed or replaced; empty when all are in place.
  virtual std::string displacedFile() const = 0;
  /// Does what no event asks for; to be called periodically. Answers what is open if the status table has a
  /// new segment, which may lack rows of the one before, and with `changesMissed` in any case.
  virtual void maintain(bool changesMissed) = 0;
};

/// Mounts all tables in the runtime folder of an entity manager, answers what is open and follows them. A
/// pair with a damaged table, or one whose file is gone, is mounted again, as often as it takes: the config
/// table is replaced by its writer, the status table by this process. Both are logged.
class Tables {
 public:
  /// Throws what mounting throws, save for damage. `counters`, which may be null, is not owned.
  Tables(Quill::Ptr<const Orrery::EntityManager> entityManager, Settings settings,
         Counters::HardwareCounters* counters = nullptr);
  ~Tables();
  Tables(const Tables&) = delete;
  Tables& operator=(const Tables&) = delete;

  /// Answers given so far.
  std::uint64_t answers() const;
  /// Answers from now on follow these faults; every N-th entry fails as before.
  void faultsAre(std::vector<Fault> faults);
  /// A callback of the loop was abandoned for want of memory: changes may have been missed. They are answered
  /// within half a second.
  void recover() noexcept { changesMissed_ = true; }

 private:
  struct Followed {
    std::unique_ptr<TableFollower> follower;  // null while a table of the pair cannot be used
    bool waitedFor = false;
    bool damaged = false;  // its config table is, and was counted
  };

  AnswerCounters countersOf(std::size_t index);
  void tick();
  void followAll(bool changesMissed);
  void follow(std::size_t index);
  bool intact(std::size_t index);
  void wait(std::size_t index, const std::string& reason);
  void countDamage(std::size_t index);

  Quill::Ptr<const Orrery::EntityManager> entityManager_;
  Settings settings_;
  Counters::HardwareCounters* counters_;  // not owned
  Counters::TickScale scale_;
  std::vector<Followed> followed_;   // in mount order
  std::uint64_t answersBefore_ = 0;  // of followers that are gone
  bool started_ = false;
  bool changesMissed_ = false;
  std::uint64_t failedNotifications_;  // when changes were last looked for
  Quill::EventLoop::TimerId timer_ = 0;
};

}  // namespace HwAgent

// The four tables of the plugin as this process mounts them: config tables to read, status tables to write.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "apps/hw/FaultOption.h"
#include "orrery/Mount.h"

namespace HwAgent {

struct Settings {
  std::vector<FailOption> fails;
  FailEveryOption failEvery;
  std::chrono::milliseconds delay{0};
};

/// Follows one table pair for as long as it lives.
class TableFollower {
 public:
  virtual ~TableFollower();
  /// Answers given so far.
  virtual std::uint64_t answers() const = 0;
  /// False once one of the two tables was found damaged; nothing is followed any more then.
  virtual bool attached() const = 0;
  /// Replaces the status table if a reader has met damage in it, and gives the answers again that were lost;
  /// to be called now and then, since an agent that meets it at its start makes no change to be answered.
  virtual void lookForDamage() = 0;
};

/// Mounts all tables in the runtime folder of an entity manager, answers what is open and follows them. A
/// pair with a damaged table is mounted again, as often as it takes: the config table is replaced by its
/// writer, the status table by this process.
class Tables {
 public:
  /// Told, in a line for people, when a table has to be waited for and when it is there again.
  using Report = std::function<void(const std::string&)>;

  /// Throws what mounting throws, save for damage, and Cairn::Exception for faults that name no table or
  /// field.
  Tables(Quill::Ptr<const Orrery::EntityManager> entityManager, Settings settings, Report report);
  ~Tables();
  Tables(const Tables&) = delete;
  Tables& operator=(const Tables&) = delete;

  /// Answers given so far.
  std::uint64_t answers() const;

 private:
  static constexpr std::chrono::milliseconds kPause{500};  // between looks at the tables

  struct Followed {
    std::unique_ptr<TableFollower> follower;  // null while a table of the pair is damaged
    bool waitedFor = false;
  };

  void follow();
  void wait(const std::string& table, bool& waitedFor, const std::string& reason);
  void arm();

  Quill::Ptr<const Orrery::EntityManager> entityManager_;
  Settings settings_;
  Report report_;
  std::vector<Followed> followed_;   // in mount order
  std::uint64_t answersBefore_ = 0;  // of followers that are gone
  bool started_ = false;
  Quill::EventLoop::TimerId timer_ = 0;
};

}  // namespace HwAgent

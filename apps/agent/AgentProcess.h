#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "apps/agent/HardwareWatch.h"
#include "apps/agent/MountedTables.h"
#include "apps/agent/PeriodicCounters.h"
#include "apps/core/AgentCore.h"
#include "orrery/EntityManager.h"
#include "p4runtime/PluginLibrary.h"
#include "quill/EventLoop.h"

namespace Agent {

/// The agent as one process has it: the plugin, the core over the tables that the plugin registers, and the
/// event loop that drives both. One thread.
class AgentProcess {
 public:
  /// Loads and starts the plugin over the tables in `runtimeFolder`. Throws when it cannot be loaded, a table
  /// cannot be mounted or another agent writes the tables. `loop` and `counters`, which may be null, are not
  /// owned.
  AgentProcess(Quill::EventLoop& loop, const std::string& runtimeFolder, const std::string& plugin,
               std::chrono::milliseconds timeout, std::size_t maxMetadata = 1024,
               Counters::AgentCounters* counters = nullptr);
  /// Unloads the plugin; the tables stay.
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  AgentCore& core() noexcept { return *core_; }
  /// Submits a batch and has its results handed out from the event loop. Throws std::bad_alloc; nothing has
  /// been attempted then.
  void submit(std::vector<Update> updates, Atomicity atomicity, AgentCore::Done done);
  /// Removes the tables through the plugin's cleanup helper, and what belongs to their entries. Nothing can
  /// be written any more.
  void cleanup();
  /// A callback of the loop was abandoned for want of memory: completions may have been lost with it. They
  /// are recovered within half a second.
  void recover() noexcept { recovering_ = true; }

 private:
  void work();
  void takeCompletions();
  void tick();
  void checkTables();
  void recoverCompletions();
  void turn();
  void armDeadline();

  Quill::EventLoop& loop_;  // not owned
  Quill::Ptr<Orrery::EntityManager> entityManager_;
  std::shared_ptr<Lumen::LumenDB> lumenDb_;
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_;
  Quill::Ptr<P4Runtime::PluginContext> context_;
  std::unique_ptr<P4Runtime::PluginLibrary> library_;
  MountedTables tables_;
  std::optional<HardwareWatch> hardwareWatch_;
  std::optional<PeriodicCounters> counters_;
  std::unique_ptr<AgentCore> core_;
  std::uint64_t sleepHook_ = 0;
  std::uint64_t wakeHook_ = 0;
  std::optional<Quill::EventLoop::TimerId> deadlineTimer_;
  std::optional<Quill::EventLoop::TimerId> tickTimer_;
  std::uint64_t failedNotifications_ = 0;  // when completions were last recovered
  bool recovering_ = false;
  bool turnWanted_ = false;  // in the loop's next step
};

}  // namespace Agent

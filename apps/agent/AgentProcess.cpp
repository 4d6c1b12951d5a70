#include "apps/agent/AgentProcess.h"

#include <chrono>

#include "apps/process/Log.h"
#include "cairn/Exception.h"
#include "quill/Notifiee.h"

namespace Agent {

namespace {

// Interval of the checks for what no event reports; half a second is the most that noticing may take.
constexpr std::chrono::milliseconds kTick{400};
// A hardware agent checks twice a second whether a reader has reported damage in its tables.
constexpr std::chrono::seconds kDamagePatience{5};

std::uint64_t wallClockNanoseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

}  // namespace

AgentProcess::AgentProcess(Quill::EventLoop& loop, const std::string& runtimeFolder,
                           const std::string& plugin, std::chrono::milliseconds timeout,
                           std::size_t maxMetadata, Counters::AgentCounters* counters)
    : loop_(loop),
      entityManager_(
          Quill::allocate<Orrery::EntityManager>(runtimeFolder, loop, Process::tableLog(), kDamagePatience)),
      lumenDb_(std::make_shared<Lumen::LumenDB>()),
      batchStatus_(Quill::allocate<P4Runtime::BatchStatus>()),
      context_(Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batchStatus_,
                                                         Quill::allocate<P4Runtime::VrfIdCollection>())),
      library_(std::make_unique<P4Runtime::PluginLibrary>(plugin)),
      tables_(entityManager_) {
  library_->init(context_);
  if (library_->plugins().empty()) {
    throw Cairn::Exception("plugin library \"" + plugin + "\": expected a plugin, found none in it");
  }
  AgentCore::Settings settings;
  settings.firstHandle = wallClockNanoseconds();
  settings.timeout = timeout;
  settings.beforeImages = runtimeFolder + "/p4rt-agent.undo";
  settings.metadata = runtimeFolder + "/p4rt-agent.metadata";
  settings.maxMetadata = maxMetadata;
  settings.fault = [this](const std::string& table) { return tables_.fault(table); };
  settings.hardwareRuns = [this](const std::string& table) { return tables_.hardwareRuns(table); };
  settings.counters = counters;
  settings.log = [](const std::string& line) { Process::log(Process::LogLevel::warning, line); };
  core_ = std::make_unique<AgentCore>(lumenDb_, batchStatus_, std::move(settings));
  core_->start(tables_.hardwareAnswers());
  hardwareWatch_.emplace(tables_);
  if (counters != nullptr) counters_.emplace(*counters, tables_, context_->vrfIdCollection());
  failedNotifications_ = Quill::NotifieeConst::failedNotifications();
  loop_.descriptorIs(batchStatus_->notificationDescriptor(), [this] { takeCompletions(); });
  sleepHook_ = loop_.sleepHookIs([this] { return !turnWanted_ && !core_->hasReady(); });
  wakeHook_ = loop_.wakeHookIs([this] { work(); });
  tickTimer_ = loop_.periodicTimerIs(kTick, [this] { tick(); });
}

AgentProcess::~AgentProcess() {
  loop_.descriptorDel(batchStatus_->notificationDescriptor());
  loop_.sleepHookDel(sleepHook_);
  loop_.wakeHookDel(wakeHook_);
  for (const auto& timer : {deadlineTimer_, tickTimer_}) {
    if (timer) loop_.timerDel(*timer);
  }
  core_.reset();  // holds operations that are the library's code
  library_->unload();
}

void AgentProcess::submit(std::vector<Update> updates, Atomicity atomicity, AgentCore::Done done) {
  turnWanted_ = true;
  core_->submit(std::move(updates), atomicity, std::move(done), AgentCore::Clock::now());
}

/// The loop's earlier wake hooks have checked the tables: completions that the trackers have found are taken
/// without waiting for the descriptor to be polled.
void AgentProcess::work() {
  if (batchStatus_->completedTransactionStatusCount() != 0) takeCompletions();
  if (core_->hasReady()) core_->proceed();
  if (turnWanted_) turn();
}

void AgentProcess::takeCompletions() {
  core_->completionsReady();
  turn();
}

void AgentProcess::tick() {
  checkTables();
  if (hardwareWatch_->check(core_->overdue() != 0)) core_->hardwareRestarted();
  recoverCompletions();
  core_->expire(AgentCore::Clock::now());
  turn();
  core_->count();
  if (counters_) counters_->copy();
}

void AgentProcess::checkTables() {
  for (const auto& table : core_->tables()) {
    if (!table->outOfService().empty()) continue;
    const std::string fault = tables_.fault(table->name());
    if (fault.empty()) continue;
    Process::log(Process::LogLevel::error, fault, {{"table", table->name()}});
    core_->outOfService(*table, fault);
  }
}

/// A reactor that fails has missed a change of its table, and so may have all of them when the loop itself
/// has run out of memory.
void AgentProcess::recoverCompletions() {
  const std::uint64_t failed = Quill::NotifieeConst::failedNotifications();
  if (!recovering_ && failed == failedNotifications_) return;
  core_->completionsReady();
  core_->recoverCompletions(tables_.hardwareAnswers());
  recovering_ = false;
  failedNotifications_ = failed;
}

/// Hands out results and what follows from them. Updates that are answered at once get a bounded number of
/// steps before the loop handles other events.
void AgentProcess::turn() {
  constexpr int kSteps = 256;
  bool more = true;
  for (int step = 0; more && step < kSteps; ++step) more = core_->finish() > 0;
  turnWanted_ = more;
  armDeadline();
}

void AgentProcess::armDeadline() {
  const auto deadline = core_->nextDeadline();
  if (deadlineTimer_ || !deadline) return;
  const auto wait = std::max(*deadline - AgentCore::Clock::now(), AgentCore::Clock::duration::zero());
  deadlineTimer_ = loop_.timerIs(wait, [this] {
    deadlineTimer_.reset();
    core_->expire(AgentCore::Clock::now());
    turn();
  });
}

void AgentProcess::cleanup() { P4Runtime::PluginLibrary::requestCleanup(*context_); }

}  // namespace Agent

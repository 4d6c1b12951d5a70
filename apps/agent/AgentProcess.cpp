#include "apps/agent/AgentProcess.h"

#include <chrono>

#include "cairn/Exception.h"

namespace Agent {

namespace {
// A hardware agent looks twice a second whether a reader has met damage in its tables.
constexpr std::chrono::seconds kDamagePatience{5};

std::uint64_t wallClockNanoseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}
}  // namespace

AgentProcess::AgentProcess(Quill::EventLoop& loop, const Options& options)
    : loop_(loop),
      entityManager_(
          Quill::allocate<Orrery::EntityManager>(options.runtimeFolder, loop, nullptr, kDamagePatience)),
      lumenDb_(std::make_shared<Lumen::LumenDB>()),
      batchStatus_(Quill::allocate<P4Runtime::BatchStatus>()),
      vrfIdCollection_(Quill::allocate<P4Runtime::VrfIdCollection>()),
      context_(Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batchStatus_,
                                                         vrfIdCollection_)),
      library_(std::make_unique<P4Runtime::PluginLibrary>(options.plugin)),
      tables_(entityManager_),
      hardwareWatch_(
          loop_, tables_, [this] { return core_->overdue() != 0; },
          [this] {
            core_->hardwareRestarted();
            turn();
          }) {
  library_->init(context_);
  if (library_->plugins().empty()) {
    throw Cairn::Exception("plugin library \"" + options.plugin + "\": expected a plugin, found none in it");
  }
  core_ = std::make_unique<AgentCore>(
      lumenDb_, batchStatus_,
      AgentCore::Settings{wallClockNanoseconds(), options.timeout,
                          [this](const std::string& table) { return tables_.readable(table); }});
  core_->answersOwed(tables_.owedHandles());
  loop_.descriptorIs(batchStatus_->notificationDescriptor(), [this] {
    core_->completionsReady();
    turn();
  });
}

AgentProcess::~AgentProcess() {
  loop_.descriptorDel(batchStatus_->notificationDescriptor());
  if (deadlineTimer_) loop_.timerDel(*deadlineTimer_);
  if (turnTimer_) loop_.timerDel(*turnTimer_);
  running_.clear();
  core_.reset();  // holds operations that are the library's code
  library_->unload();
}

void AgentProcess::run(std::string_view script, ResultTable::Output output, ResultTable::Style style,
                       Done done) {
  running_.push_back(
      {std::make_unique<ScriptRun>(script, *core_, std::move(output), style, [this] { cleanup(); }),
       std::move(done)});
  if (!turnTimer_) turnTimer_ = loop_.timerIs({}, [this] { turn(); });
}

/// Moves every script on as far as it goes without waiting. Scripts whose updates are all answered at once
/// get a bounded number of steps before the loop has its turn.
void AgentProcess::turn() {
  constexpr int kSteps = 256;
  if (turnTimer_) loop_.timerDel(*turnTimer_);
  turnTimer_.reset();
  bool more = true;
  bool pause = false;
  for (int step = 0; more && !pause && step < kSteps; ++step) {
    for (const Running& running : running_) pause = running.run->proceed() || pause;
    more = core_->finish() > 0;
  }
  core_->reportProgress();
  if (more || pause) turnTimer_ = loop_.timerIs({}, [this] { turn(); });
  std::list<Running> finished;
  for (auto running = running_.begin(); running != running_.end();) {
    const auto next = std::next(running);
    if (running->run->finished()) finished.splice(finished.end(), running_, running);
    running = next;
  }
  armDeadline();
  if (core_->overdue() != 0) hardwareWatch_.start();
  for (const Running& running : finished) running.done(running.run->asExpected());
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

/// After this the tables are gone; the agent goes on, but nothing can be written any more.
void AgentProcess::cleanup() { P4Runtime::PluginLibrary::requestCleanup(*context_); }

}  // namespace Agent

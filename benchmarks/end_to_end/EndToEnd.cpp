#include "EndToEnd.h"

#include <signal.h>

#include <array>

#include "P4RuntimeTolmar/RecordCodec.h"
#include "P4RuntimeTolmar/kinds/L3IifTH3.h"
#include "Yardstick.h"
#include "cairn/Exception.h"
#include "lumen/RowText.h"

static_assert(Vesta::Codec<TolmarHwLib::L3IifTH3ConfigEntry>::size == Yardstick::kConfigBytes);
static_assert(Vesta::Codec<TolmarHwLib::L3IifTH3StatusEntry>::size == Yardstick::kStatusBytes);

namespace {

constexpr std::chrono::seconds kAnswerTime{10};

Agent::Update update(Agent::ConfigTable& table, Agent::UpdateType type, std::size_t number,
                     unsigned generation) {
  const std::string interface = std::to_string(number + 1);
  const std::string vrf = std::to_string(number % 64 + 1);
  const std::string classId = std::to_string(generation % 4096);
  const std::array<Lumen::ColumnText, 6> columns{{{"l3Iif", interface},
                                                  {"vrf", vrf},
                                                  {"classId", classId},
                                                  {"intEnable", "true"},
                                                  {"ipmcL3Iif", interface},
                                                  {"l3IifProfileIndex", "3"}}};
  return {type, &table, Lumen::rowFromText(table.rowClass(), columns), {}, {}};
}

}  // namespace

EndToEnd::EndToEnd(const std::string& hwAgent, const std::string& plugin, std::chrono::microseconds busyPoll)
    : folder_("/dev/shm"),
      hwAgent_(
          {hwAgent, "--runtime-folder", folder_.path(), "--busy-poll", std::to_string(busyPoll.count())}),
      batchStatus_(Quill::allocate<P4Runtime::BatchStatus>()),
      context_(Quill::allocate<P4Runtime::PluginContext>(
          Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_), std::make_shared<Lumen::LumenDB>(),
          batchStatus_, Quill::allocate<P4Runtime::VrfIdCollection>())),
      library_(plugin) {
  if (!hwAgent_.says("following the tables")) throw Cairn::Exception("hw-agent: " + hwAgent_.output());
  loop_.busyPollIs(busyPoll);
  library_.init(context_);
  constexpr std::uint64_t kFirstHandle = 1;
  Agent::AgentCore::Settings settings;
  settings.firstHandle = kFirstHandle;
  settings.timeout = kAnswerTime;
  settings.beforeImages = folder_.path() + "/before-images";
  settings.metadata = folder_.path() + "/metadata";
  core_ = std::make_unique<Agent::AgentCore>(context_->lumenDb(), batchStatus_, settings);
  core_->start({});
  loop_.descriptorIs(batchStatus_->notificationDescriptor(), [this] { core_->completionsReady(); });
  loop_.sleepHookIs([this] { return !core_->hasReady(); });
  loop_.wakeHookIs([this] {
    if (batchStatus_->completedTransactionStatusCount() != 0) core_->completionsReady();
    if (core_->hasReady()) core_->proceed();
  });
}

EndToEnd::~EndToEnd() {
  loop_.descriptorDel(batchStatus_->notificationDescriptor());
  updates_.clear();
  core_.reset();
  library_.unload();
  hwAgent_.signal(SIGTERM);
  hwAgent_.exitCode();
}

void EndToEnd::prepare(std::size_t rows) {
  Agent::ConfigTable* const table = core_->table("l3IifTH3");
  if (table == nullptr) throw Cairn::Exception("the plugin registers no table l3IifTH3");
  ++generation_;
  updates_.clear();
  updates_.reserve(rows);
  for (std::size_t number = 0; number < rows; ++number) {
    const auto type = number < inserted_ ? Agent::UpdateType::modify : Agent::UpdateType::insert;
    updates_.push_back(update(*table, type, number, generation_));
  }
}

void EndToEnd::batch() {
  const std::size_t rows = updates_.size();
  const auto begin = Agent::AgentCore::Clock::now();
  std::vector<Agent::UpdateStatus> results;
  core_->submit(
      std::move(updates_), Agent::Atomicity::continueOnError,
      [&results](std::vector<Agent::UpdateStatus> all) { results = std::move(all); }, begin);
  while (core_->finish() == 0) {
    loop_.step(kAnswerTime);
    if (Agent::AgentCore::Clock::now() - begin > kAnswerTime) core_->expire(Agent::AgentCore::Clock::now());
  }
  for (const Agent::UpdateStatus& result : results) {
    if (!result.ok()) {
      throw Cairn::Exception("end-to-end path: " + std::string(statusCodeName(result.code)) + " " +
                             result.message);
    }
  }
  if (results.size() != rows)
    throw Cairn::Exception("end-to-end path: " + std::to_string(results.size()) + " results");
  inserted_ = std::max(inserted_, rows);
}

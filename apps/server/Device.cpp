#include "apps/server/Device.h"

#include <algorithm>
#include <utility>

#include "apps/server/OutOfMemory.h"

namespace Server {

using Agent::Status;
using Agent::StatusCode;

namespace {

constexpr std::size_t kWorksAtOnce = 64;        // between other events of the loop
constexpr std::chrono::milliseconds kTick{50};  // takeovers and stalled clients are checked so often

/// The reason why a batch that rolls back has failed: NOT_FOUND only if there is no other.
Status failureOf(const std::vector<Agent::UpdateStatus>& results) {
  Status missing;
  for (const Agent::UpdateStatus& result : results) {
    if (result.ok() || result.code == StatusCode::aborted) continue;
    if (result.code != StatusCode::notFound) return result;
    missing = result;
  }
  return missing;
}

}  // namespace

Stream::~Stream() = default;

Device::Device(Quill::EventLoop& loop, Agent::AgentCore& core, Submit submit, const Settings& settings)
    : loop_(loop),
      core_(core),
      submit_(std::move(submit)),
      settings_(settings),
      decoder_(pipeline_, settings.maxMetadata),
      quota_(settings.maxRequests, settings.maxRequestBytes),
      stalledCalls_(settings.clientTimeout),
      electionIds_(settings.runtimeFolder),
      arbitration_(settings.arbitration, *this, electionIds_),
      config_(pipeline_,
              {[this](PipelineConfig::Done done) { removeAll(std::move(done)); },
               [this](std::size_t table) { return hasEntries(table); }},
              settings.runtimeFolder) {
  loop_.descriptorIs(inbox_.descriptor(), [this] { inbox_.run(kWorksAtOnce); });
  timer_ = loop_.periodicTimerIs(kTick, [this] {
    arbitration_.expire(Arbitration::Clock::now());
    stalledCalls_.check(StalledCalls::Clock::now());
  });
}

Device::~Device() {
  loop_.timerDel(timer_);
  loop_.descriptorDel(inbox_.descriptor());
}

bool Device::postponed(Bridge::Work& write) {
  if (removal_) postponed_.push_back(&write);
  return removal_ != nullptr;
}

void Device::submit(std::vector<Agent::Update> updates, Agent::Atomicity atomicity,
                    Agent::AgentCore::Done done) {
  submit_(std::move(updates), atomicity,
          [this, done = std::move(done)](std::vector<Agent::UpdateStatus> results) {
            done(std::move(results));
            writeEnded();
          });
  ++writesInFlight_;
}

void Device::writeEnded() {
  if (--writesInFlight_ == 0 && removal_) removeNow();
}

/// An undecided removal counts as well as an undecided insertion, and so does what is not written yet.
bool Device::hasEntries(std::size_t table) const {
  bool any = core_.hasUpdates(*core_.tables()[table]);
  const auto found = [&any](const Lumen::BaseRow&) { any = true; };
  core_.tables()[table]->eachRow(found);
  core_.eachDecidedRow(*core_.tables()[table], found);
  return any;
}

/// Begins when the writes that have entered are decided; those to come wait.
void Device::removeAll(PipelineConfig::Done done) {
  removal_ = std::move(done);
  if (writesInFlight_ == 0) removeNow();
}

/// Entries whose removal is out of time but undecided are removed, too, in case that one fails.
void Device::removeNow() noexcept {
  withMemory(
      [&] {
        std::vector<Agent::Update> removals;
        for (const auto& table : core_.tables()) {
          const auto remove = [&](const Lumen::BaseRow& row) {
            removals.push_back({Agent::UpdateType::remove, table.get(), row, {}, {}});
          };
          table->eachRow(remove);
          core_.eachDecidedRow(*table, [&](const Lumen::BaseRow& row) {
            if (table->stored(row).isNull()) remove(row);
          });
        }
        submit_(std::move(removals), Agent::Atomicity::rollbackOnError, [this](const auto& results) {
          const Status status = failureOf(results);
          // An entry that was undecided is gone now: once more, for those that are there.
          if (status.code == StatusCode::notFound) return removeNow();
          removalEnded(status);
        });
      },
      [this] {
        removalEnded({StatusCode::resourceExhausted, "out of memory"});
      });
}

void Device::removalEnded(const Status& status) noexcept {
  std::exchange(removal_, nullptr)(status);
  runPostponed();
}

void Device::runPostponed() noexcept {
  for (Bridge::Work* const write : std::exchange(postponed_, {})) write->run();
}

Status Device::open(std::shared_ptr<Stream> stream, StreamId& id) {
  id = nextStream_++;
  Status status = arbitration_.streamOpened(id);
  if (status.ok()) streams_.emplace(id, std::move(stream));
  return status;
}

void Device::arbitrate(StreamId id, const ArbitrationRequest& request) {
  arbitration_.arbitrate(id, request, Arbitration::Clock::now());
}

void Device::close(StreamId id) {
  arbitration_.streamClosed(id);
  streams_.erase(id);
}

void Device::notify(StreamId stream, const Notice& notice) noexcept {
  const auto found = streams_.find(stream);
  if (found != streams_.end()) found->second->notify(notice);
}

void Device::end(StreamId stream, const Status& status) {
  const auto found = streams_.find(stream);
  if (found == streams_.end()) return;
  const std::shared_ptr<Stream> ended = std::move(found->second);
  streams_.erase(found);
  ended->end(status);
}

void Device::count(Counters::ServerWords<Counters::Counter>& counters) const {
  const Bridge::Quota::Counts counts = quota_.counts();
  counters.requests.set(counts.requests);
  counters.requestBytes.set(counts.bytes);
  counters.rejections.set(counts.rejected);
  counters.shortenedTexts.set(shortenedTexts_.load(std::memory_order_relaxed));
  counters.requestsInFlight.set(quota_.requests());
  counters.bytesInFlight.set(quota_.bytes());
  counters.batchesInFlight.set(writesInFlight_);
  counters.streams.set(streams_.size());
}

void Device::stop() {
  isStopping_ = true;
  core_.stopping();
  inbox_.close();
  for (const auto& [id, stream] : std::exchange(streams_, {})) {
    stream->end({StatusCode::unavailable, "the agent is stopping"});
  }
  runPostponed();
}

void Device::abandon() {
  // Again after each batch, since the end of one may begin the removals of a commit.
  do {
    core_.expire(Agent::AgentCore::Clock::time_point::max());
  } while (core_.finish() != 0);
  stalledCalls_.endAll();
}

}  // namespace Server

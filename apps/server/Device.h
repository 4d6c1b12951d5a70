// What the calls of all clients share: the agent's core, who may write, the pipeline config, the limits.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "apps/bridge/Inbox.h"
#include "apps/bridge/Quota.h"
#include "apps/core/AgentCore.h"
#include "apps/p4/Decoder.h"
#include "apps/p4/ErrorDetails.h"
#include "apps/server/Arbitration.h"
#include "apps/server/PipelineConfig.h"
#include "apps/server/StalledCalls.h"
#include "quill/EventLoop.h"

namespace Server {

/// One controller's stream, as the loop sees it.
class Stream {
 public:
  virtual ~Stream();
  virtual void notify(const Notice& notice) noexcept = 0;
  virtual void end(const Agent::Status& status) noexcept = 0;
};

/// Thread safety: the const members on any thread, everything else on the loop's.
class Device final : private StreamSink {
 public:
  /// Starts a batch; its results come from the event loop. Throws std::bad_alloc.
  using Submit = std::function<void(std::vector<Agent::Update>, Agent::Atomicity, Agent::AgentCore::Done)>;

  struct Settings {
    Arbitration::Settings arbitration;
    std::string runtimeFolder;  ///< of the files that outlive the agent
    std::size_t maxRequests = 256;
    std::size_t maxRequestBytes = std::size_t{64} << 20;  ///< of all requests in flight
    std::chrono::milliseconds clientTimeout{30'000};      ///< for a client to take what is sent to it
    std::size_t maxMetadata = Wire::Decoder::kDefaultMaxMetadata;
    Wire::DetailsBudget details;
  };

  /// `loop` and `core` are not owned. Throws Cairn::Exception for state files that are damaged.
  Device(Quill::EventLoop& loop, Agent::AgentCore& core, Submit submit, const Settings& settings);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // On any thread.
  Agent::Status checkDevice(std::uint64_t device) const { return arbitration_.checkDevice(device); }
  const Wire::Pipeline& pipeline() const noexcept { return pipeline_; }
  const Wire::Decoder& decoder() const noexcept { return decoder_; }
  const Wire::DetailsBudget& details() const noexcept { return settings_.details; }
  const PipelineConfig& config() const noexcept { return config_; }
  std::chrono::milliseconds clientTimeout() const noexcept { return settings_.clientTimeout; }
  // Takes the calls' work, counts their requests and bytes; both from any thread.
  Bridge::Inbox& inbox() noexcept { return inbox_; }
  Bridge::Quota& quota() noexcept { return quota_; }
  StalledCalls& stalledCalls() noexcept { return stalledCalls_; }
  /// For the counters: so many error texts were cut in one answer.
  void shortened(std::size_t texts) noexcept { shortenedTexts_.fetch_add(texts, std::memory_order_relaxed); }
  /// The core's table that belongs to one of the pipeline's. Neither changes.
  Agent::ConfigTable& table(const Wire::Table& table) const { return *core_.tables()[table.index]; }

  // On the loop's thread.
  Agent::AgentCore& core() noexcept { return core_; }
  Arbitration& arbitration() noexcept { return arbitration_; }
  PipelineConfig& config() noexcept { return config_; }
  /// True when `write` has to wait for a commit that removes all entries; it is run again after that.
  bool postponed(Bridge::Work& write);
  bool isStopping() const noexcept { return isStopping_; }
  /// Starts a batch. Throws std::bad_alloc.
  void submit(std::vector<Agent::Update> updates, Agent::Atomicity atomicity, Agent::AgentCore::Done done);
  /// A new stream takes part; refused with RESOURCE_EXHAUSTED when there are too many.
  Agent::Status open(std::shared_ptr<Stream> stream, StreamId& id);
  void arbitrate(StreamId id, const ArbitrationRequest& request);
  void close(StreamId id);
  /// Takes no more work, ends all streams with UNAVAILABLE, and with it the writes that wait for a commit.
  /// Batches that have begun continue; what the hardware does not answer in time is UNAVAILABLE from now on.
  void stop();
  std::size_t requestsInFlight() const { return quota_.requests(); }
  /// Copies what is known here to the counters; to be called periodically.
  void count(Counters::ServerWords<Counters::Counter>& counters) const;
  /// Answers what is still in flight after stop(), whether or not the hardware has answered.
  void abandon();

 private:
  void notify(StreamId stream, const Notice& notice) noexcept override;
  void end(StreamId stream, const Agent::Status& status) override;
  void removeAll(PipelineConfig::Done done);
  void removeNow() noexcept;
  void removalEnded(const Agent::Status& status) noexcept;
  void runPostponed() noexcept;
  void writeEnded();
  bool hasEntries(std::size_t table) const;

  Quill::EventLoop& loop_;
  Agent::AgentCore& core_;
  Submit submit_;
  Settings settings_;
  Wire::Pipeline pipeline_{Wire::outputTables()};
  Wire::Decoder decoder_;
  Bridge::Inbox inbox_;
  Bridge::Quota quota_;
  StalledCalls stalledCalls_;
  std::atomic<std::uint64_t> shortenedTexts_{0};
  ElectionIds electionIds_;
  Arbitration arbitration_;
  PipelineConfig config_;
  std::unordered_map<StreamId, std::shared_ptr<Stream>> streams_;
  StreamId nextStream_ = 1;
  Quill::EventLoop::TimerId timer_;
  bool isStopping_ = false;
  std::size_t writesInFlight_ = 0;
  PipelineConfig::Done removal_;         // set while a commit removes entries
  std::deque<Bridge::Work*> postponed_;  // not owned
};

}  // namespace Server

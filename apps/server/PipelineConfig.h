// The pipeline config: built in and in force from the start; controllers may replace it with an equal or
// narrower one.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/core/Status.h"
#include "apps/p4/Pipeline.h"
#include "apps/server/StateFile.h"
#include "p4/v1/p4runtime.pb.h"

namespace Server {

/// A Set that was checked, which takes long for a long message and needs nothing of the state.
struct CheckedPipeline {
  using Config = p4::v1::ForwardingPipelineConfig;

  p4::v1::SetForwardingPipelineConfigRequest::Action action =
      p4::v1::SetForwardingPipelineConfigRequest::UNSPECIFIED;
  Agent::Status status;
  std::shared_ptr<const Config> config;  // set if the status is OK, except for COMMIT
  std::string bytes;                     // the config as it is stored
  std::vector<bool> tables;              // by index in the pipeline: which the config has
};

/// The config in force survives the agent, with cookie and device config; the saved one does not. The device
/// config is kept for the controller and means nothing here.
///
/// Thread safety: check() on any thread, everything else on the loop's.
class PipelineConfig {
 public:
  using Config = CheckedPipeline::Config;
  using Done = std::function<void(const Agent::Status&)>;

  /// What has to be known of the entries, tables by their index in the pipeline.
  struct Entries {
    /// Removes all entries through the hardware, all or none, and calls `done`, which does not throw and is
    /// not to outlive the pipeline config, with the outcome. Writes that arrive meanwhile must wait.
    std::function<void(Done done)> removeAll;
    std::function<bool(std::size_t table)> hasAny;
  };

  /// `pipeline` is not owned. Throws what StateFile::read() throws, and the same for a stored config that
  /// does not fit the pipeline any more.
  PipelineConfig(const Wire::Pipeline& pipeline, Entries entries, const std::string& folder);
  PipelineConfig(const PipelineConfig&) = delete;
  PipelineConfig& operator=(const PipelineConfig&) = delete;

  CheckedPipeline check(const p4::v1::SetForwardingPipelineConfigRequest& request) const;
  /// Calls `done` once, at once or when the entries are removed. What fails changes nothing, except that a
  /// VERIFY_AND_SAVE that fails forgets the config saved before. UNAVAILABLE while another commit removes
  /// entries.
  void set(CheckedPipeline next, const Done& done);

  std::shared_ptr<const Config> inForce() const { return inForce_.config; }
  /// INVALID_ARGUMENT for a table that the config in force leaves out.
  Agent::Status checkTable(const Wire::Table& table) const;

 private:
  void checkConfig(const Config& config, CheckedPipeline& checked) const;
  Agent::Status reconcile(CheckedPipeline next);
  void commitAfterRemoval(CheckedPipeline next, const Done& done);
  Agent::Status stage(const CheckedPipeline& next);
  Agent::Status publish(CheckedPipeline next);

  const Wire::Pipeline& pipeline_;
  const p4::config::v1::P4Info builtIn_;
  const Entries entries_;
  StateFile file_;
  CheckedPipeline inForce_;
  std::optional<CheckedPipeline> saved_;
  bool isRemoving_ = false;
};

/// Fills `response` with what its request asks for of the config in force. Any thread.
Agent::Status answerGet(const CheckedPipeline::Config& inForce,
                        const p4::v1::GetForwardingPipelineConfigRequest& request,
                        p4::v1::GetForwardingPipelineConfigResponse& response);

}  // namespace Server

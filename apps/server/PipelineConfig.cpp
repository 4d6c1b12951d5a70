#include "apps/server/PipelineConfig.h"

#include <fmt/format.h>

#include <utility>

#include "apps/p4/P4Info.h"
#include "apps/p4/P4InfoDifference.h"
#include "apps/server/OutOfMemory.h"
#include "cairn/Exception.h"

namespace Server {

using Agent::Status;
using Agent::StatusCode;
using Request = p4::v1::SetForwardingPipelineConfigRequest;

namespace {

Status notStored(const Cairn::Exception& failure) {
  return {StatusCode::internal, fmt::format("the pipeline config could not be stored: {}", failure.what())};
}

}  // namespace

PipelineConfig::PipelineConfig(const Wire::Pipeline& pipeline, Entries entries, const std::string& folder)
    : pipeline_(pipeline),
      builtIn_(Wire::p4InfoOf(pipeline)),
      entries_(std::move(entries)),
      file_(folder, kPipelineConfigFile) {
  const std::optional<std::string> stored = file_.read();
  Config config;
  *config.mutable_p4info() = builtIn_;
  if (stored && !config.ParseFromString(*stored)) file_.refuse("expected a ForwardingPipelineConfig");
  checkConfig(config, inForce_);
  if (!inForce_.status.ok()) file_.refuse(inForce_.status.message);
}

CheckedPipeline PipelineConfig::check(const Request& request) const {
  CheckedPipeline checked;
  checked.action = request.action();
  if (request.action() == Request::COMMIT) {
    if (request.has_config())
      checked.status = {StatusCode::invalidArgument, "expected COMMIT without config, got one"};
  } else if (request.action() == Request::UNSPECIFIED || !Request::Action_IsValid(request.action())) {
    checked.status = {StatusCode::invalidArgument, fmt::format("expected one of the five actions, got {}",
                                                               static_cast<int>(request.action()))};
  } else {
    checkConfig(request.config(), checked);
  }
  return checked;
}

void PipelineConfig::checkConfig(const Config& config, CheckedPipeline& checked) const {
  if (!config.has_p4info()) {
    checked.status = {StatusCode::invalidArgument, "expected a config with P4Info, got none"};
    return;
  }
  const auto difference = Wire::differenceBetween(builtIn_, config.p4info(), checked.tables);
  if (difference) {
    checked.status = {
        StatusCode::invalidArgument,
        fmt::format("expected this pipeline's P4Info or part of its tables, got another: {}", *difference)};
    return;
  }
  checked.config = std::make_shared<const Config>(config);
  checked.bytes = config.SerializeAsString();
}

void PipelineConfig::set(CheckedPipeline next, const Done& done) {
  if (isRemoving_ && next.action != Request::VERIFY) {
    return done({StatusCode::unavailable, "another pipeline config is being committed"});
  }
  if (next.action == Request::VERIFY_AND_SAVE) saved_.reset();
  if (!next.status.ok()) return done(next.status);
  switch (next.action) {
    case Request::VERIFY_AND_SAVE:
      saved_ = std::move(next);
      return done({});
    case Request::VERIFY_AND_COMMIT:
      return commitAfterRemoval(std::move(next), done);
    case Request::COMMIT:
      if (saved_) return commitAfterRemoval(*saved_, done);
      return done({StatusCode::notFound, "expected a saved config to commit, got none"});
    case Request::RECONCILE_AND_COMMIT:
      return done(reconcile(std::move(next)));
    default:
      return done({});
  }
}

Status PipelineConfig::reconcile(CheckedPipeline next) {
  for (const Wire::Table& table : pipeline_.tables()) {
    if (next.tables[table.index] || !entries_.hasAny(table.index)) continue;
    return {
        StatusCode::invalidArgument,
        fmt::format("expected table {}, which has entries to be kept, got a P4Info without it", table.name)};
  }
  const Status status = stage(next);
  return status.ok() ? publish(std::move(next)) : status;
}

/// Staged first, so that the one thing that may still fail after the removal is the renaming of a file.
void PipelineConfig::commitAfterRemoval(CheckedPipeline next, const Done& done) {
  const Status status = stage(next);
  if (!status.ok()) return done(status);
  Done whenRemoved = [this, next = std::move(next), done](const Status& removed) mutable {
    isRemoving_ = false;
    Status outcome{StatusCode::resourceExhausted, "out of memory"};
    withMemory(
        [&] {
          outcome = removed.ok()
                        ? publish(std::move(next))
                        : Status{removed.code, "the entries could not be removed: " + removed.message};
        },
        [] {});
    done(outcome);
  };
  isRemoving_ = true;
  entries_.removeAll(std::move(whenRemoved));
}

Status PipelineConfig::stage(const CheckedPipeline& next) {
  try {
    file_.stage(next.bytes);
    return {};
  } catch (const Cairn::Exception& failure) {
    return notStored(failure);
  }
}

Status PipelineConfig::publish(CheckedPipeline next) {
  try {
    file_.publish();
  } catch (const Cairn::Exception& failure) {
    return notStored(failure);
  }
  inForce_ = std::move(next);
  inForce_.bytes = std::string();
  saved_.reset();
  return {};
}

Status PipelineConfig::checkTable(const Wire::Table& table) const {
  if (inForce_.tables[table.index]) return {};
  return {StatusCode::invalidArgument,
          fmt::format("expected a table of the pipeline config in force, got {:#010x} ({})", table.id,
                      table.name)};
}

Status answerGet(const CheckedPipeline::Config& inForce,
                 const p4::v1::GetForwardingPipelineConfigRequest& request,
                 p4::v1::GetForwardingPipelineConfigResponse& response) {
  using Get = p4::v1::GetForwardingPipelineConfigRequest;
  if (!Get::ResponseType_IsValid(request.response_type())) {
    return {StatusCode::invalidArgument, fmt::format("expected a response type from 0 to 3, got {}",
                                                     static_cast<int>(request.response_type()))};
  }
  const bool isAll = request.response_type() == Get::ALL;
  auto& config = *response.mutable_config();
  if (inForce.has_cookie()) *config.mutable_cookie() = inForce.cookie();
  if (isAll || request.response_type() == Get::P4INFO_AND_COOKIE) *config.mutable_p4info() = inForce.p4info();
  if (isAll || request.response_type() == Get::DEVICE_CONFIG_AND_COOKIE) {
    config.set_p4_device_config(inForce.p4_device_config());
  }
  return {};
}

}  // namespace Server

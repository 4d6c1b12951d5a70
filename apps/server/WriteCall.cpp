#include "apps/server/WriteCall.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Server {

using Agent::Status;
using Agent::StatusCode;
using p4::v1::WriteRequest;

WriteCall::WriteCall(Device& device, const WriteRequest& request) : PrimaryCall(device), request_(request) {
  attempt([this] {
    if (!reserve(request_, request_.updates_size())) return;
    decode();
    post();
  });
}

void WriteCall::decode() {
  updates_.reserve(static_cast<std::size_t>(request_.updates_size()));
  Wire::DecodedUpdate decoded;
  for (const p4::v1::Update& update : request_.updates()) {
    Agent::Update& made = updates_.emplace_back();
    Status defect = device_.decoder().decode(update, decoded);
    if (decoded.table != nullptr) made.table = &device_.table(*decoded.table);
    if (!defect.ok()) {
      made.defect = std::make_unique<const Status>(std::move(defect));
      continue;
    }
    made.type = decoded.type;
    made.row = std::move(decoded.row);
    if (!decoded.metadata.empty()) made.metadata = std::make_unique<const std::string>(decoded.metadata);
  }
}

/// Judged when it arrives; then it may have to wait for a commit, and be run again.
void WriteCall::run() noexcept {
  withMemory(
      [this] {
        const Status status = ticket_ ? checkAgain() : checkFirst();
        if (status.ok() && device_.postponed(*this)) return;
        if (status.ok()) return enter();
        release();
        finish(status);
      },
      [this] {
        release();
        end(outOfMemory());
      });
}

Status WriteCall::checkFirst() {
  Status status = admit(request_);
  if (!status.ok() || request_.atomicity() == WriteRequest::CONTINUE_ON_ERROR ||
      request_.atomicity() == WriteRequest::ROLLBACK_ON_ERROR) {
    return status;
  }
  return {StatusCode::unimplemented,
          fmt::format("expected CONTINUE_ON_ERROR or ROLLBACK_ON_ERROR, got atomicity {}",
                      static_cast<int>(request_.atomicity()))};
}

/// A takeover waits for writes in flight, but not for ever: a new primary must not see its predecessor's.
Status WriteCall::checkAgain() {
  if (isCancelled()) return cancelled();
  if (device_.isStopping()) return {StatusCode::unavailable, "the agent is stopping"};
  return device_.arbitration().checkTerm(*ticket_);
}

void WriteCall::enter() {
  refuseTablesLeftOut();
  const auto atomicity = request_.atomicity() == WriteRequest::ROLLBACK_ON_ERROR
                             ? Agent::Atomicity::rollbackOnError
                             : Agent::Atomicity::continueOnError;
  device_.submit(std::move(updates_), atomicity,
                 [this](std::vector<Agent::UpdateStatus> results) { decided(std::move(results)); });
}

/// Those that the pipeline config in force does not have.
void WriteCall::refuseTablesLeftOut() {
  for (Agent::Update& update : updates_) {
    if (update.table == nullptr || update.defect != nullptr) continue;
    Status status = device_.config().checkTable(device_.pipeline().tables()[update.table->index()]);
    if (!status.ok()) update.defect = std::make_unique<const Status>(std::move(status));
  }
}

void WriteCall::decided(std::vector<Agent::UpdateStatus> results) noexcept {
  release();
  if (std::all_of(results.begin(), results.end(), [](const auto& result) { return result.ok(); })) {
    return end(grpc::Status::OK);
  }
  results_ = std::move(results);
  StartSendInitialMetadata();  // brings the call back to a gRPC thread
}

/// Without memory for the details the client knows no more than that updates have failed.
void WriteCall::OnSendInitialMetadataDone(bool) {
  withMemory([this] { end(statusOf(device_, results_)); },
             [this] {
               end({grpc::StatusCode::UNKNOWN, "out of memory"});
             });
}

}  // namespace Server

#include "apps/server/WriteCall.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>
#include <utility>

namespace Server {

using Agent::Status;
using Agent::StatusCode;
using p4::v1::WriteRequest;

WriteCall::WriteCall(Device& device, const WriteRequest& request) : UnaryCall(device), request_(request) {
  if (!reserve(request)) return;
  try {
    decode();
    post();
  } catch (const std::bad_alloc&) {
    finish({StatusCode::resourceExhausted, "out of memory"});
  }
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

void WriteCall::run() {
  if (isCancelled()) return finish({StatusCode::cancelled, "the client has cancelled the request"});
  if (device_.postponed(*this)) return;
  Arbitration::Ticket ticket = nullptr;
  const Status status = admit(ticket);
  if (!status.ok()) return finish(status);
  try {
    refuseTablesLeftOut();
    const auto atomicity = request_.atomicity() == WriteRequest::ROLLBACK_ON_ERROR
                               ? Agent::Atomicity::rollbackOnError
                               : Agent::Atomicity::continueOnError;
    device_.submit(std::move(updates_), atomicity, [this, ticket](std::vector<Agent::UpdateStatus> results) {
      device_.arbitration().finished(ticket);
      decided(std::move(results));
    });
  } catch (const std::bad_alloc&) {
    device_.arbitration().finished(ticket);
    finish({StatusCode::resourceExhausted, "out of memory"});
  }
}

Status WriteCall::admit(Arbitration::Ticket& ticket) {
  Status status = device_.checkDevice(request_.device_id());
  if (!status.ok()) return status;
  if (request_.role_id() != 0) {
    return {StatusCode::notFound,
            fmt::format("expected a role's name, got the number {}", request_.role_id())};
  }
  status =
      device_.arbitration().admit(request_.device_id(), request_.role(),
                                  electionIdOf(request_.has_election_id(), request_.election_id()), ticket);
  if (!status.ok()) return status;
  if (request_.atomicity() == WriteRequest::CONTINUE_ON_ERROR ||
      request_.atomicity() == WriteRequest::ROLLBACK_ON_ERROR) {
    return status;
  }
  device_.arbitration().finished(ticket);
  return {StatusCode::unimplemented,
          fmt::format("expected CONTINUE_ON_ERROR or ROLLBACK_ON_ERROR, got atomicity {}",
                      static_cast<int>(request_.atomicity()))};
}

/// Those that the pipeline config in force does not have.
void WriteCall::refuseTablesLeftOut() {
  for (Agent::Update& update : updates_) {
    if (update.table == nullptr || update.defect != nullptr) continue;
    Status status = device_.config().checkTable(device_.pipeline().tables()[update.table->index()]);
    if (!status.ok()) update.defect = std::make_unique<const Status>(std::move(status));
  }
}

void WriteCall::decided(std::vector<Agent::UpdateStatus> results) {
  if (std::all_of(results.begin(), results.end(), [](const auto& result) { return result.ok(); })) {
    return Finish(grpc::Status::OK);
  }
  results_ = std::move(results);
  StartSendInitialMetadata();  // brings the call back to a gRPC thread
}

void WriteCall::OnSendInitialMetadataDone(bool) {
  const Wire::ErrorDetails details = Wire::packErrors(results_, device_.details());
  Finish({static_cast<grpc::StatusCode>(details.status.code), details.status.message, details.bytes});
}

}  // namespace Server

#include "apps/server/UnaryCall.h"

#include <fmt/format.h>

#include <algorithm>

namespace Server {

grpc::Status grpcStatus(const Agent::Status& status) {
  if (status.ok()) return grpc::Status::OK;
  return {static_cast<grpc::StatusCode>(status.code), status.message};
}

grpc::Status statusOf(Device& device, std::span<const Agent::UpdateStatus> outcomes, std::string_view what) {
  if (std::all_of(outcomes.begin(), outcomes.end(), [](const auto& outcome) { return outcome.ok(); })) {
    return grpc::Status::OK;
  }
  const Wire::ErrorDetails details = Wire::packErrors(outcomes, device.details(), what);
  device.shortened(details.shortened);
  return {static_cast<grpc::StatusCode>(details.status.code), details.status.message, details.bytes};
}

std::optional<ElectionId> electionIdOf(bool isSet, const p4::v1::Uint128& id) {
  if (!isSet) return std::nullopt;
  return ElectionId{id.high(), id.low()};
}

std::size_t bytesOf(const google::protobuf::MessageLite& request, int elements) {
  constexpr std::size_t kElementBytes = 512;
  return request.ByteSizeLong() + static_cast<std::size_t>(elements) * kElementBytes;
}

bool UnaryCall::reserve(const google::protobuf::MessageLite& request, int updates) {
  return granted(device_.quota().take(bytesOf(request, updates), share_));
}

void UnaryCall::post() {
  if (!device_.inbox().post(*this)) finish({Agent::StatusCode::unavailable, "the agent is stopping"});
}

Agent::Status PrimaryCall::admit(std::uint64_t device, std::uint64_t roleId, const std::string& role,
                                 const std::optional<ElectionId>& id) {
  if (isCancelled()) return cancelled();
  Agent::Status status = device_.checkDevice(device);
  if (!status.ok()) return status;
  if (roleId != 0) {
    return {Agent::StatusCode::notFound, fmt::format("expected a role's name, got the number {}", roleId)};
  }
  Arbitration::Ticket ticket;
  status = device_.arbitration().admit(device, role, id, ticket);
  if (status.ok()) ticket_ = ticket;
  return status;
}

void PrimaryCall::release() noexcept {
  if (ticket_) device_.arbitration().finished(*ticket_);
  ticket_.reset();
}

}  // namespace Server

#include "apps/server/Arbitration.h"

#include <fmt/format.h>

#include <algorithm>

#include "cairn/Exception.h"

namespace Server {

using Agent::Status;
using Agent::StatusCode;

namespace {

std::string textOf(const std::optional<ElectionId>& id) { return id ? textOf(*id) : "none"; }

std::string nameOf(std::string_view role) {
  return role.empty() ? "the default role" : fmt::format("role \"{}\"", role);
}

}  // namespace

Arbitration::Arbitration(const Settings& settings, StreamSink& streams, ElectionIds& ids)
    : settings_(settings), sink_(streams), ids_(ids) {
  roles_[""];
  for (const auto& [name, highest] : ids_.read()) {
    Role& role = roles_[name];
    role.name = name;
    role.highest = highest;
  }
}

Status Arbitration::streamOpened(StreamId stream) {
  if (streams_.size() >= settings_.maxStreams) {
    return {StatusCode::resourceExhausted,
            fmt::format("expected at most {} streams, got one more", settings_.maxStreams)};
  }
  streams_.try_emplace(stream);
  return {};
}

void Arbitration::arbitrate(StreamId stream, const ArbitrationRequest& request, Clock::time_point now) {
  const auto found = streams_.find(stream);
  if (found == streams_.end()) return;
  const Status status = grant(stream, found->second, request, now);
  if (status.ok()) return;
  streamClosed(stream);
  sink_.end(stream, status);
}

void Arbitration::streamClosed(StreamId stream) {
  const auto found = streams_.find(stream);
  if (found == streams_.end()) return;
  Role* const role = found->second.role;
  streams_.erase(found);
  if (role == nullptr) return;
  std::erase(role->streams, stream);
  if (role->leader == stream) loseLeader(*role);
}

Status Arbitration::grant(StreamId id, Stream& stream, const ArbitrationRequest& request,
                          Clock::time_point now) {
  Status status = check(id, stream, request);
  if (!status.ok()) return status;
  Role& role = join(id, stream, request.role);
  const bool isLeader = role.leader == id;
  const bool isHighest = request.electionId && (!role.highest || *request.electionId >= *role.highest);
  if (isHighest && isLeader && request.electionId == role.highest) {
    if (role.isPrimary) notify(id, role);
    return status;
  }
  if (isHighest) {
    status = raise(role, *request.electionId);
    if (!status.ok()) return status;
    stream.id = request.electionId;
    lead(id, role, now);
    return status;
  }
  stream.id = request.electionId;
  if (isLeader) {
    loseLeader(role);
  } else {
    notify(id, role);
  }
  return status;
}

Status Arbitration::check(StreamId id, const Stream& stream, const ArbitrationRequest& request) const {
  if (stream.role != nullptr && (request.device != settings_.device || request.role != stream.role->name)) {
    return {StatusCode::failedPrecondition,
            fmt::format("expected device {} and {} as before on this stream, got device {} and {}",
                        settings_.device, nameOf(stream.role->name), request.device, nameOf(request.role))};
  }
  Status status = checkDevice(request.device);
  if (!status.ok()) return status;
  if (request.roleId != 0) {
    return {StatusCode::invalidArgument,
            fmt::format("expected a role's name, got the number {}", request.roleId)};
  }
  if (request.hasRoleConfig) {
    return {request.role.empty() ? StatusCode::invalidArgument : StatusCode::unimplemented,
            nameOf(request.role) + ": expected no role config, got one"};
  }
  if (request.role.size() > kMaxRoleName) {
    return {StatusCode::invalidArgument, fmt::format("expected a role's name of at most {} bytes, got {}",
                                                     kMaxRoleName, request.role.size())};
  }
  const auto role = roles_.find(request.role);
  if (role == roles_.end()) {
    if (roles_.size() < settings_.maxRoles) return status;
    return {StatusCode::resourceExhausted,
            fmt::format("expected at most {} roles, got one more", settings_.maxRoles)};
  }
  for (const StreamId other : role->second.streams) {
    if (other == id || !request.electionId || streams_.at(other).id != request.electionId) continue;
    return {
        StatusCode::invalidArgument,
        fmt::format("{}: expected an election id of this controller's own, got {}, which another one uses",
                    nameOf(request.role), textOf(request.electionId))};
  }
  return status;
}

Arbitration::Role& Arbitration::join(StreamId id, Stream& stream, const std::string& roleName) {
  if (stream.role != nullptr) return *stream.role;
  Role& role = roles_[roleName];
  role.name = roleName;
  role.streams.push_back(id);
  stream.role = &role;
  return role;
}

/// Makes `id` the highest, in the file too.
Status Arbitration::raise(Role& role, const ElectionId& id) {
  if (role.highest == id) return {};
  ElectionIds::ByRole ids;
  for (const auto& [name, each] : roles_) {
    if (each.highest) ids.emplace(name, *each.highest);
  }
  ids[role.name] = id;
  try {
    ids_.replace(ids);
  } catch (const Cairn::Exception& failure) {
    return {StatusCode::internal, fmt::format("the election id could not be stored: {}", failure.what())};
  }
  role.highest = id;
  return {};
}

/// The order is what controllers rely on: nobody may write, backups know, writes are finished, the new
/// primary knows.
void Arbitration::lead(StreamId id, Role& role, Clock::time_point now) noexcept {
  if (!role.isWaiting()) role.deadline = now + settings_.takeoverTimeout;
  role.leader = id;
  role.isPrimary = false;
  notifyAll(role, id);
  if (role.writesInFlight == 0) makePrimary(role);
}

void Arbitration::makePrimary(Role& role) noexcept {
  role.isPrimary = true;
  ++role.term;
  notify(role.leader, role);
}

void Arbitration::loseLeader(Role& role) noexcept {
  role.leader = 0;
  role.isPrimary = false;
  notifyAll(role, 0);
}

void Arbitration::notify(StreamId id, const Role& role) noexcept {
  StatusCode code = StatusCode::notFound;
  if (role.leader == id) {
    code = StatusCode::ok;
  } else if (role.leader != 0) {
    code = StatusCode::alreadyExists;
  }
  sink_.notify(id, {code, role.highest});
}

void Arbitration::notifyAll(const Role& role, StreamId except) noexcept {
  for (const StreamId id : role.streams) {
    if (id != except) notify(id, role);
  }
}

Status Arbitration::checkDevice(std::uint64_t device) const {
  if (device == settings_.device) return {};
  return {StatusCode::notFound, fmt::format("expected device {}, got {}", settings_.device, device)};
}

Status Arbitration::admit(std::uint64_t device, std::string_view role, const std::optional<ElectionId>& id,
                          Ticket& ticket) {
  Status status = checkDevice(device);
  if (!status.ok()) return status;
  const auto found = roles_.find(role);
  if (found == roles_.end()) {
    return {StatusCode::notFound,
            fmt::format("expected a role that a controller has named, got {}", nameOf(role))};
  }
  Role& known = found->second;
  if (known.isPrimary && id == known.highest) {
    ++known.writesInFlight;
    ticket.role_ = &known;
    ticket.term_ = known.term;
    return status;
  }
  if (!known.isPrimary) {
    return {StatusCode::permissionDenied,
            fmt::format("{}: {}, got election id {}", nameOf(role),
                        known.isWaiting() ? "another controller is taking over" : "no controller is primary",
                        textOf(id))};
  }
  return {StatusCode::permissionDenied, fmt::format("{}: expected the primary's election id {}, got {}",
                                                    nameOf(role), textOf(known.highest), textOf(id))};
}

Status Arbitration::checkTerm(const Ticket& ticket) const {
  if (ticket.role_->term == ticket.term_) return {};
  return {StatusCode::permissionDenied,
          nameOf(ticket.role_->name) + ": another controller has become primary while the request waited"};
}

void Arbitration::finished(const Ticket& ticket) noexcept {
  Role& role = *ticket.role_;
  --role.writesInFlight;
  if (role.isWaiting() && role.writesInFlight == 0) makePrimary(role);
}

std::optional<Arbitration::Clock::time_point> Arbitration::nextDeadline() const {
  std::optional<Clock::time_point> next;
  for (const auto& [name, role] : roles_) {
    if (role.isWaiting() && (!next || role.deadline < *next)) next = role.deadline;
  }
  return next;
}

void Arbitration::expire(Clock::time_point now) {
  for (auto& [name, role] : roles_) {
    if (role.isWaiting() && role.deadline <= now) makePrimary(role);
  }
}

}  // namespace Server

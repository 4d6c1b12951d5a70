// Which controller may write. Plain bookkeeping on the loop's thread: streams and writes are what the caller
// says they are.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "apps/core/Status.h"
#include "apps/server/ElectionIds.h"

namespace Server {

using StreamId = std::uint64_t;

/// What a controller says on its stream.
struct ArbitrationRequest {
  std::uint64_t device = 0;
  std::string role;          ///< empty for the default role
  std::uint64_t roleId = 0;  ///< of clients that name roles by number
  bool hasRoleConfig = false;
  std::optional<ElectionId> electionId;
};

/// OK for the primary, ALREADY_EXISTS for a backup, NOT_FOUND for every controller of a role without primary.
/// Device and role are those that the controller has given.
struct Notice {
  Agent::StatusCode code = Agent::StatusCode::ok;
  std::optional<ElectionId> highest;  ///< election id ever seen; none when there has been none
};

/// The streams of the server. Called from within the arbitration, so neither may call back into it.
class StreamSink {
 public:
  /// Without memory for the notice the stream ends.
  virtual void notify(StreamId stream, const Notice& notice) noexcept = 0;
  /// Ends the stream with that status; the arbitration has forgotten it.
  virtual void end(StreamId stream, const Agent::Status& status) = 0;

 protected:
  ~StreamSink() = default;
};

/// The controller with the highest election id ever seen for its role leads the role while its stream lives.
/// A new leader becomes primary, and is notified of it, when the writes that its predecessor has in flight
/// are finished or the time-out has passed; until then no controller may write. Roles are never forgotten.
///
/// Thread safety: none. Where a new highest id cannot be stored, the stream that has sent it ends.
class Arbitration {
  struct Role;

 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::size_t kMaxRoleName = 256;

  struct Settings {
    std::uint64_t device = 1;
    std::size_t maxStreams = 256;
    std::size_t maxRoles = 1024;  ///< remembered; the default role is one of them
    Clock::duration takeoverTimeout = std::chrono::seconds(10);
  };

  /// `streams` and `ids` are not owned. Throws what ElectionIds::read() throws.
  Arbitration(const Settings& settings, StreamSink& streams, ElectionIds& ids);
  Arbitration(const Arbitration&) = delete;
  Arbitration& operator=(const Arbitration&) = delete;

  /// A new stream, not 0. Refused with RESOURCE_EXHAUSTED when there are too many; it does not exist then.
  Agent::Status streamOpened(StreamId stream);
  /// Ends the stream for a request that cannot be granted; no effect for a stream that has ended.
  void arbitrate(StreamId stream, const ArbitrationRequest& request, Clock::time_point now);
  /// The stream is broken, cancelled or half-closed; no effect for one that has ended.
  void streamClosed(StreamId stream);

  /// NOT_FOUND unless it is this device.
  Agent::Status checkDevice(std::uint64_t device) const;

  /// A write in flight.
  class Ticket {
    friend class Arbitration;
    Role* role_ = nullptr;  // not owned
    std::uint64_t term_ = 0;
  };
  /// Whether a controller may write now: NOT_FOUND for another device or a role that no controller has named,
  /// PERMISSION_DENIED unless the id is the primary's. With OK, the write is in flight until finished().
  Agent::Status admit(std::uint64_t device, std::string_view role, const std::optional<ElectionId>& id,
                      Ticket& ticket);
  /// Whether an admitted write that has waited may still be attempted: PERMISSION_DENIED when another
  /// controller, or the same with another id, has become primary since.
  Agent::Status checkTerm(const Ticket& ticket) const;
  /// Once for each write admitted.
  void finished(const Ticket& ticket) noexcept;

  /// When expire() is next needed; none while no takeover waits.
  std::optional<Clock::time_point> nextDeadline() const;
  /// Completes the takeovers that have waited long enough.
  void expire(Clock::time_point now);

 private:
  struct Stream {
    Role* role = nullptr;  // not owned; null before the first request
    std::optional<ElectionId> id;
  };
  struct Role {
    std::string name;
    std::optional<ElectionId> highest;
    StreamId leader = 0;         // its id is the highest; 0 for none
    bool isPrimary = false;      // the leader is
    std::uint64_t term = 0;      // counts the primaries
    Clock::time_point deadline;  // of a leader that is not
    std::size_t writesInFlight = 0;
    std::vector<StreamId> streams;  // in the order of their first requests

    bool isWaiting() const { return leader != 0 && !isPrimary; }
  };

  Agent::Status grant(StreamId id, Stream& stream, const ArbitrationRequest& request, Clock::time_point now);
  Agent::Status check(StreamId id, const Stream& stream, const ArbitrationRequest& request) const;
  Role& join(StreamId id, Stream& stream, const std::string& roleName);
  Agent::Status raise(Role& role, const ElectionId& id);
  void lead(StreamId id, Role& role, Clock::time_point now) noexcept;
  void loseLeader(Role& role) noexcept;
  void makePrimary(Role& role) noexcept;
  void notify(StreamId id, const Role& role) noexcept;
  void notifyAll(const Role& role, StreamId except) noexcept;

  Settings settings_;
  StreamSink& sink_;
  ElectionIds& ids_;
  std::map<std::string, Role, std::less<>> roles_;
  std::unordered_map<StreamId, Stream> streams_;
};

}  // namespace Server

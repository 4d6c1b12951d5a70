#include "apps/server/StreamCall.h"

#include <fmt/format.h>

#include <utility>

#include "apps/p4/StreamErrors.h"
#include "apps/server/OutOfMemory.h"
#include "apps/server/UnaryCall.h"

namespace Server {

using Agent::Status;
using Agent::StatusCode;

namespace {

constexpr std::size_t kUnreadAnswers = 16;    // beyond, nothing more is read from the client
constexpr std::size_t kUnreadNotices = 1024;  // beyond, the stream ends

std::string textOf(StatusCode code, const std::string& role) {
  const std::string name = role.empty() ? "the default role" : fmt::format("role \"{}\"", role);
  if (code == StatusCode::ok) return {};
  return name +
         (code == StatusCode::notFound ? ": no controller is primary" : ": another controller is primary");
}

}  // namespace

StreamCall* StreamCall::make(Device& device, grpc_call* call) {
  const std::shared_ptr<StreamCall> made(new StreamCall(device, call));
  made->self_ = made;
  made->post(Step::open);
  return made.get();
}

/// Has take() called on the loop's thread; instead of an earlier step that it has not come to.
void StreamCall::post(Step step) noexcept {
  {
    const std::lock_guard lock(mutex_);
    step_ = step;
    if (posted_) return;
    posted_ = self_;
  }
  if (device_.inbox().post(*this)) return;
  end({StatusCode::unavailable, "the agent is stopping"});
  const std::lock_guard lock(mutex_);
  posted_.reset();
}

void StreamCall::run() noexcept {
  std::shared_ptr<StreamCall> keep;
  Step step{};
  {
    const std::lock_guard lock(mutex_);
    keep = std::move(posted_);
    step = step_;
  }
  withMemory([&] { take(step, keep); }, [this] { endWith(outOfMemory()); });
}

void StreamCall::take(Step step, const std::shared_ptr<StreamCall>& self) {
  switch (step) {
    case Step::open: {
      const Status status = device_.open(self, id_);
      return status.ok() ? readNext() : end(status);
    }
    case Step::message:
      arbitrate();
      return readNext();
    case Step::close:
      device_.close(id_);
      return end({});
  }
}

void StreamCall::arbitrate() {
  const p4::v1::MasterArbitrationUpdate& given = request_.arbitration();
  identity_.set_device_id(given.device_id());
  if (given.has_role()) *identity_.mutable_role() = given.role();
  ArbitrationRequest request;
  request.device = given.device_id();
  request.role = given.role().name();
  request.roleId = given.role().id();
  request.hasRoleConfig = given.role().has_config();
  request.electionId = electionIdOf(given.has_election_id(), given.election_id());
  device_.arbitrate(id_, request);
}

void StreamCall::OnReadDone(bool isRead) {
  if (!isRead) return post(Step::close);
  if (request_.has_arbitration()) return post(Step::message);
  withMemory([this] { refuseMessage(); }, [this] { endWith(outOfMemory()); });
}

void StreamCall::refuseMessage() {
  p4::v1::StreamMessageResponse response;
  *response.mutable_error() = Wire::streamErrorFor(request_);
  send(std::move(response));
  readNext();
}

void StreamCall::readNext() {
  {
    const std::lock_guard lock(mutex_);
    if (isFinished_ || finish_) return;
    isReadDue_ = unsent_.size() > kUnreadAnswers;
    if (isReadDue_) return;
  }
  StartRead(&request_);
}

void StreamCall::notify(const Notice& notice) noexcept {
  withMemory(
      [&] {
        p4::v1::StreamMessageResponse response;
        p4::v1::MasterArbitrationUpdate& update = *response.mutable_arbitration();
        update = identity_;
        if (notice.highest) {
          update.mutable_election_id()->set_high(notice.highest->high);
          update.mutable_election_id()->set_low(notice.highest->low);
        }
        update.mutable_status()->set_code(static_cast<int>(notice.code));
        update.mutable_status()->set_message(textOf(notice.code, identity_.role().name()));
        send(std::move(response));
      },
      [this] { endWith(outOfMemory()); });
}

void StreamCall::send(p4::v1::StreamMessageResponse response) {
  std::unique_lock lock(mutex_);
  if (isFinished_ || finish_) return;
  if (unsent_.size() >= kUnreadNotices) {
    lock.unlock();
    return end({StatusCode::resourceExhausted,
                "expected the client to read its notices, got none of the last 1024 read"});
  }
  unsent_.push_back(std::move(response));
  if (unsent_.size() > 1) return;
  watch_.sending();
  StartWrite(&unsent_.front());
}

void StreamCall::OnWriteDone(bool isWritten) {
  bool isReadDue = false;
  {
    const std::lock_guard lock(mutex_);
    watch_.sent();
    unsent_.pop_front();
    if (!isWritten) unsent_.clear();
    if (!unsent_.empty()) {
      watch_.sending();
      StartWrite(&unsent_.front());
    } else if (finish_) {
      isFinished_ = true;
      return Finish(*std::exchange(finish_, std::nullopt));
    }
    isReadDue = isReadDue_ && unsent_.size() <= kUnreadAnswers;
  }
  if (isReadDue) readNext();
}

void StreamCall::end(const Status& status) noexcept {
  withMemory([&] { endWith(grpcStatus(status)); }, [this] { endWith(outOfMemory()); });
}

/// After what is still to be sent.
void StreamCall::endWith(grpc::Status status) noexcept {
  const std::lock_guard lock(mutex_);
  if (isFinished_ || finish_) return;
  if (!unsent_.empty()) {
    finish_ = std::move(status);
    return;
  }
  isFinished_ = true;
  Finish(std::move(status));
}

/// The stream may have ended without a last message to the loop.
void StreamCall::OnDone() {
  watch_.end();
  const std::shared_ptr<StreamCall> self = self_;
  post(Step::close);
  const std::lock_guard lock(mutex_);
  self_.reset();
}

}  // namespace Server

#include "apps/server/StreamCall.h"

#include <utility>

#include "apps/p4/StreamErrors.h"
#include "apps/server/UnaryCall.h"

namespace Server {

using Agent::Status;
using Agent::StatusCode;

namespace {

constexpr std::size_t kUnreadAnswers = 16;    // beyond, nothing more is read from the client
constexpr std::size_t kUnreadNotices = 1024;  // beyond, the stream ends

}  // namespace

StreamCall* StreamCall::make(Device& device) {
  const std::shared_ptr<StreamCall> made(new StreamCall(device));
  made->self_ = made;
  made->post();
  return made.get();
}

/// Has run() called on the loop's thread.
void StreamCall::post() {
  posted_ = self_;
  if (device_.inbox().post(*this)) return;
  posted_.reset();
  end({StatusCode::unavailable, "the agent is stopping"});
}

void StreamCall::run() {
  const std::shared_ptr<StreamCall> keep = std::move(posted_);
  switch (step_) {
    case Step::open: {
      const Status status = device_.open(keep, id_);
      if (!status.ok()) return end(status);
      isOpen_ = true;
      return readNext();
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
  if (!isRead) {
    step_ = Step::close;
    return post();
  }
  if (request_.has_arbitration()) {
    step_ = Step::message;
    return post();
  }
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

void StreamCall::notify(const Notice& notice) {
  p4::v1::StreamMessageResponse response;
  p4::v1::MasterArbitrationUpdate& update = *response.mutable_arbitration();
  update = identity_;
  if (notice.highest) {
    update.mutable_election_id()->set_high(notice.highest->high);
    update.mutable_election_id()->set_low(notice.highest->low);
  }
  update.mutable_status()->set_code(static_cast<int>(notice.status.code));
  update.mutable_status()->set_message(notice.status.message);
  send(std::move(response));
}

void StreamCall::send(p4::v1::StreamMessageResponse response) {
  const std::lock_guard lock(mutex_);
  if (isFinished_ || finish_) return;
  if (unsent_.size() >= kUnreadNotices) {
    isFinished_ = true;
    return Finish(grpcStatus({StatusCode::resourceExhausted,
                              "expected the client to read its notices, got none of the last 1024 read"}));
  }
  unsent_.push_back(std::move(response));
  if (unsent_.size() == 1) StartWrite(&unsent_.front());
}

void StreamCall::OnWriteDone(bool isWritten) {
  bool isReadDue = false;
  {
    const std::lock_guard lock(mutex_);
    unsent_.pop_front();
    if (!isWritten) unsent_.clear();
    if (isFinished_) return;
    if (!unsent_.empty()) {
      StartWrite(&unsent_.front());
    } else if (finish_) {
      isFinished_ = true;
      return Finish(*finish_);
    }
    isReadDue = isReadDue_ && unsent_.size() <= kUnreadAnswers;
  }
  if (isReadDue) readNext();
}

/// After what is still to be sent.
void StreamCall::end(const Status& status) {
  const std::lock_guard lock(mutex_);
  if (isFinished_ || finish_) return;
  finish_ = grpcStatus(status);
  if (!unsent_.empty()) return;
  isFinished_ = true;
  Finish(*finish_);
}

void StreamCall::OnDone() { const std::shared_ptr<StreamCall> self = std::move(self_); }

}  // namespace Server

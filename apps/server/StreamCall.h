#pragma once

#include <grpcpp/grpcpp.h>

#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "apps/server/Device.h"

namespace Server {

/// A StreamChannel. Its messages go to the loop one at a time; the next is read when that one is handled and
/// the client has taken most answers to earlier ones.
class StreamCall final
    : public grpc::ServerBidiReactor<p4::v1::StreamMessageRequest, p4::v1::StreamMessageResponse>,
      public Stream,
      Bridge::Work {
 public:
  static StreamCall* make(Device& device, grpc_call* call);

  void notify(const Notice& notice) noexcept override;
  void end(const Agent::Status& status) noexcept override;

 private:
  StreamCall(Device& device, grpc_call* call) : device_(device), watch_(device.stalledCalls(), call) {}

  void run() noexcept override;
  void OnReadDone(bool isRead) override;
  void OnWriteDone(bool isWritten) override;
  void OnDone() override;

  enum class Step { open, message, close };

  void post(Step step) noexcept;
  void take(Step step, const std::shared_ptr<StreamCall>& self);
  void arbitrate();
  void readNext();
  void refuseMessage();
  void send(p4::v1::StreamMessageResponse response);
  void endWith(grpc::Status status) noexcept;

  Device& device_;
  StalledCalls::Watch watch_;
  StreamId id_ = 0;                           // the loop's, as the next
  p4::v1::MasterArbitrationUpdate identity_;  // device and role as the client has given them
  p4::v1::StreamMessageRequest request_;

  std::mutex mutex_;                                  // guards what follows
  std::shared_ptr<StreamCall> self_;                  // gRPC's
  std::shared_ptr<StreamCall> posted_;                // the inbox's, set while there is work in it
  Step step_ = Step::open;                            // of that work
  std::deque<p4::v1::StreamMessageResponse> unsent_;  // the first is being written
  std::optional<grpc::Status> finish_;                // when all is sent
  bool isFinished_ = false;
  bool isReadDue_ = false;  // when the client has taken some of unsent_
};

}  // namespace Server

#pragma once

#include <grpcpp/grpcpp.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "apps/server/Device.h"

namespace Server {

/// A Read: the loop copies all entries asked for in one step, gRPC's threads encode and send them in bounded
/// ones.
class ReadCall final : public grpc::ServerWriteReactor<p4::v1::ReadResponse>, Bridge::Work {
 public:
  ReadCall(Device& device, grpc_call* call, const p4::v1::ReadRequest& request);

 private:
  /// One row, in copies_, its metadata behind it.
  struct Copy {
    const Wire::Table* table;
    std::uint32_t rowBytes;
    std::uint32_t metadataBytes;
  };

  void run() noexcept override;
  void OnSendInitialMetadataDone(bool sent) override;
  void OnWriteDone(bool written) override;
  void OnCancel() override { isCancelled_.store(true, std::memory_order_relaxed); }
  void OnDone() override { delete this; }

  /// See UnaryCall.
  void end(grpc::Status status) {
    share_.answered();
    Finish(std::move(status));
  }
  void reject(const Agent::Status& status);
  void decode(const p4::v1::ReadRequest& request);
  void refuseTablesLeftOut();
  void copyAll();
  void copyRow(const Wire::Table& table, const Lumen::BaseRow& row);
  void sendNext() noexcept;
  void encodeNext();
  template <class Step>
  void attempt(const Step& step) noexcept;

  Device& device_;
  StalledCalls::Watch watch_;
  Bridge::Quota::Share share_;
  std::uint64_t deviceId_;
  std::vector<Wire::ReadFilter> filters_;
  std::vector<Agent::UpdateStatus> outcomes_;  // by element of the request, like filters_
  std::vector<Copy> copies_;
  std::string bytes_;
  std::size_t nextCopy_ = 0;
  std::size_t nextByte_ = 0;
  p4::v1::ReadResponse response_;
  std::atomic<bool> isCancelled_{false};
};

}  // namespace Server

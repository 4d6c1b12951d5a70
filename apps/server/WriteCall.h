#pragma once

#include "apps/server/UnaryCall.h"

namespace Server {

/// A Write: decoded and, if updates fail, its error details packed on gRPC's threads; attempted on the
/// loop's.
class WriteCall final : public PrimaryCall {
 public:
  /// `request` lives as long as the call.
  WriteCall(Device& device, const p4::v1::WriteRequest& request);

 private:
  void run() noexcept override;
  void OnSendInitialMetadataDone(bool sent) override;
  void decode();
  Agent::Status checkFirst();
  Agent::Status checkAgain();
  void enter();
  void refuseTablesLeftOut();
  void decided(std::vector<Agent::UpdateStatus> results) noexcept;

  const p4::v1::WriteRequest& request_;
  std::vector<Agent::Update> updates_;
  std::vector<Agent::UpdateStatus> results_;
};

}  // namespace Server

#include "apps/p4/StreamErrors.h"

#include "apps/core/Status.h"

namespace Wire {

using Agent::StatusCode;
using p4::v1::StreamMessageRequest;

p4::v1::StreamError streamErrorFor(const StreamMessageRequest& request) {
  p4::v1::StreamError error;
  StatusCode code = StatusCode::unimplemented;
  switch (request.update_case()) {
    case StreamMessageRequest::kPacket: {
      error.set_message("expected an arbitration, got a packet: this agent sends none");
      p4::v1::PacketOut& packet = *error.mutable_packet_out()->mutable_packet_out();
      packet = request.packet();
      if (packet.payload().size() > kMaxEchoedPayload) packet.clear_payload();
      break;
    }
    case StreamMessageRequest::kDigestAck:
      error.set_message("expected an arbitration, got the acknowledgement of a digest: this agent has none");
      *error.mutable_digest_list_ack()->mutable_digest_list_ack() = request.digest_ack();
      break;
    case StreamMessageRequest::kOther:
      error.set_message("expected an arbitration, got a message of type \"" + request.other().type_url() +
                        "\"");
      error.mutable_other();
      break;
    default:
      code = StatusCode::invalidArgument;
      error.set_message("expected an arbitration, got an empty message");
  }
  error.set_canonical_code(static_cast<int>(code));
  return error;
}

}  // namespace Wire

#pragma once

#include <cstddef>

#include "p4/v1/p4runtime.pb.h"

namespace Wire {

/// Payload beyond this is not sent back.
inline constexpr std::size_t kMaxEchoedPayload = 2048;

/// The answer to a message on a stream that is not an arbitration: UNIMPLEMENTED, with the message itself
/// where `details` has a place for it, and INVALID_ARGUMENT for an empty message. The stream stays.
p4::v1::StreamError streamErrorFor(const p4::v1::StreamMessageRequest& request);

}  // namespace Wire

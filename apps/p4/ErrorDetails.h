// The outcomes of single updates in the form that travels with a failed call: a serialised google.rpc.Status
// with one p4.v1.Error for each update.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "apps/core/Status.h"

namespace Wire {

/// `space` of an Error whose `code` is the hardware's.
inline constexpr const char* kHardwareSpace = "tolmar-hardware";

/// How many bytes the trailers of an answer may take, in base64. Clients are advised to accept this many; the
/// limit that they start with is reached with some 80 short texts.
struct DetailsBudget {
  std::size_t fixed = 8192;
  std::size_t perUpdate = 100;
};

struct ErrorDetails {
  Agent::Status status;       ///< of the call: UNKNOWN and how many updates failed
  std::string bytes;          ///< for the trailer grpc-status-details-bin
  std::size_t shortened = 0;  ///< texts that were cut to stay within the budget
};

/// Of at least one outcome that is not OK, in the order of the updates. Texts are cut where they would exceed
/// the budget, the longest first; no entry is ever left out, so a budget that is too small for the codes
/// alone is exceeded. `what` they are of: "updates" or "entities".
ErrorDetails packErrors(std::span<const Agent::UpdateStatus> outcomes, const DetailsBudget& budget,
                        std::string_view what = "updates");

}  // namespace Wire

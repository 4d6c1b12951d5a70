#pragma once

#include <optional>
#include <string>
#include <vector>

#include "p4/config/v1/p4info.pb.h"

namespace Wire {

/// What is wrong with `theirs` as a description of the pipeline that `ours` describes; nothing when it is
/// equal or narrower: tables may be left out together with their actions. Order, documentation and nothing
/// else make no difference. `tables` then says for each of our tables, in our order, whether it is in
/// `theirs`.
std::optional<std::string> differenceBetween(const p4::config::v1::P4Info& ours,
                                             const p4::config::v1::P4Info& theirs, std::vector<bool>& tables);

}  // namespace Wire

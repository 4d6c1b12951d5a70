#pragma once

#include <cstdint>

namespace Vesta {

/// Where a walk over a table stands, so that its next step need not look its key up. A fresh hint stands
/// nowhere; a walk that goes on from the key of a removed row with it ends. A hint belongs to the table that
/// set it.
struct IterHint {
  static constexpr std::uint32_t kNowhere = 0xffffffff;
  std::uint32_t slot = kNowhere;
};

}  // namespace Vesta

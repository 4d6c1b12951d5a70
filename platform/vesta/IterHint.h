#pragma once

#include <cstdint>

namespace Vesta {

/// Where a walk over a table stands, so that its next step need not look its key up. A fresh hint stands
/// nowhere. A hint taken from another table, or outdated by writes, costs time but never correctness.
struct IterHint {
  static constexpr std::uint32_t kNowhere = 0xffffffff;
  std::uint32_t slot = kNowhere;
};

}  // namespace Vesta

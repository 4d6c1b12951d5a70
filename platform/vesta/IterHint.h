#pragma once

#include <cstdint>

namespace Vesta {

/// The position of a walk over a table, so that its next step need not look the key up. A new hint has none:
/// a step from a key without a row then ends the walk. A hint is valid for the table that set it.
struct IterHint {
  static constexpr std::uint32_t kNowhere = 0xffffffff;
  std::uint32_t slot = kNowhere;
};

}  // namespace Vesta

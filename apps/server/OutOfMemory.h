// Without memory for it a request ends; the agent and other requests continue.
#pragma once

#include <new>

#include "cairn/Exception.h"

namespace Server {

/// Runs `step`, and `without` when there is no memory for it.
template <class Step, class Without>
void withMemory(const Step& step, const Without& without) noexcept {
  try {
    return step();
  } catch (const std::bad_alloc&) {
  } catch (const Cairn::MemoryResourceException&) {
  }
  without();
}

}  // namespace Server

#pragma once

#include <cstdlib>

#include "cairn/Exception.h"

/// Calls step and takes an exception for an answer.
template <class Step>
void attempt(const Step& step) {
  try {
    step();
  } catch (const Cairn::Exception&) {
  }
}

inline void mustHold(bool condition) {
  if (!condition) std::abort();
}

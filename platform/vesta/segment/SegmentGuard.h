#pragma once

#include "vesta/segment/Layout.h"

namespace Vesta {

/// Makes a truncated segment file damage like any other. Memory beyond the end of a mapped file raises
/// SIGBUS, which ends a process without a handler for it. The handler that this installs maps pages of zeros
/// in place of those that a mapped segment has lost; the checks of every read then find the damage. A SIGBUS
/// of any other cause has the effect that it had before.
///
/// To be called once, from main: signal handlers belong to the program, not to a library in it.
void installSegmentGuard();

/// One mapped segment, as the handler knows it. Any thread may make and destroy these at any time.
class GuardedMapping {
 public:
  /// `words` words from `begin`. For a writer, lost memory is reported like damage that a reader has found:
  /// in the sleepers' word, which the writer loads after each change.
  GuardedMapping(const Word* begin, std::size_t words, bool ofWriter);
  ~GuardedMapping();
  GuardedMapping(const GuardedMapping&) = delete;
  GuardedMapping& operator=(const GuardedMapping&) = delete;

  /// Whether part of it has been replaced by pages of zeros that no other process sees.
  bool lostMemory() const noexcept;

 private:
  struct Place;
  friend class SegmentGuard;
  Place& place_;
};

}  // namespace Vesta

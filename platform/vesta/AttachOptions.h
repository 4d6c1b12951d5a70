#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cairn/DebugHandler.h"
#include "cairn/Exception.h"
#include "vesta/files/RootPath.h"
#include "vesta/segment/WriteStep.h"

namespace Vesta {

/// What happens to the intact rows of a segment that is found damaged at attach; the segment is retired
/// either way. If damage is found while the writer is attached, they are always kept.
enum class OnDamage { keepIntactRows, startEmpty };
/// Whether a reader is notified of the rows that are there when it attaches. A reader that skips them and
/// walks the table instead should poll soon afterwards: see ChangeFollower for rows that it reads ahead.
enum class InitialRows { notify, skip };

struct AttachOptions {
  RootPath path;
  std::uint32_t capacity;  ///< rows, 1 to kMaxCapacity; must be that of the segment if there is one
  std::shared_ptr<const Cairn::DebugHandler>
      debugHandler{};  ///< null: one that logs errors to standard error
  OnDamage onDamage = OnDamage::keepIntactRows;
  InitialRows initialRows = InitialRows::notify;
  /// Of readers: writes nothing into the segment, so the writer does not know of it. It cannot be woken, and
  /// quiesced() does not wait for it.
  bool passive = false;
  std::uint64_t firstSequence = 1;  ///< of a segment that this attach creates; below 2^62
  StepHook stepHook{};              ///< of writers
  /// How long a reader waits at attach for a living writer to replace a segment that is damaged.
  std::chrono::milliseconds damagePatience{0};
  std::string name{};  ///< of a reader, as the writer sees it; at most 32 bytes; "": the program's name
};

/// A reader as its writer sees it.
struct ConnectedReader {
  unsigned number;  ///< 0 to kMaxReaders - 1
  int pid;
  std::string name;
  std::uint64_t handled;  ///< every change up to this sequence
  bool asleep;
};

}  // namespace Vesta

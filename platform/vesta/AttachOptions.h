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

/// What becomes of the rows of a segment found damaged at attach. Either way the file is set aside. One found
/// damaged while its writer is attached is replaced by one with all sound rows.
enum class OnDamage { keepSoundRows, startEmpty };
/// Whether a reader is notified of the rows that are there when it attaches. A reader that skips them and
/// walks the table instead should poll soon afterwards: see ChangeFollower for what it may have read ahead.
enum class InitialRows { tell, skip };

struct AttachOptions {
  RootPath path;
  std::uint32_t capacity;  ///< rows, 1 to kMaxCapacity; must be that of the segment if there is one
  std::shared_ptr<const Cairn::DebugHandler>
      debugHandler{};  ///< null: one that logs errors to standard error
  OnDamage onDamage = OnDamage::keepSoundRows;
  InitialRows initialRows = InitialRows::tell;
  bool observer =
      false;  ///< a reader that the writer does not know of: it writes nothing, not even itself down
  std::uint64_t firstSequence = 1;  ///< of a segment that this attach creates; below 2^62
  StepHook stepHook{};              ///< of writers
  /// How long a reader waits at attach for a living writer to replace a segment that is damaged.
  std::chrono::milliseconds damagePatience{0};
  std::string name{};  ///< by which a writer sees this reader, at most 32 bytes; "": the program's name
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

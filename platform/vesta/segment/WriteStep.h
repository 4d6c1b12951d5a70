#pragma once

#include <functional>

namespace Vesta {

/// The steps of a write, in order, at each of which a writer may die. Those of an index rebuild come first
/// when one is due. At attach, the steps that finish a row may come before those of the rebuild.
enum class WriteStep {
  rebuildCleared,
  rebuildHalf,
  rebuildFilled,
  rebuildSwitched,
  begun,
  recordHalf,
  recorded,
  stagedHalf,
  staged,
  versionMoved,
  rowHalf,
  rowMoved,
  versionFinal,
  cellMoved,
  membersMoved,
  published,
  sleepersCleared,
  woken,
};

/// Called at each step, for tests of crashes; normally empty.
using StepHook = std::function<void(WriteStep)>;

}  // namespace Vesta

#pragma once

#include <cstdint>

#include "quill/EventLoop.h"
#include "vesta/EventSource.h"

namespace QuillVesta {

/// Ties a table's event source to the event loop for as long as it lives: changes are handed out in bounded
/// portions, and the loop sleeps only when none is pending. May be destroyed from within a handler.
class TablePump {
 public:
  /// Neither `source` nor `loop` is owned; both outlive the pump.
  TablePump(Vesta::EventSource& source, Quill::EventLoop& loop);
  ~TablePump();
  TablePump(const TablePump&) = delete;
  TablePump& operator=(const TablePump&) = delete;

 private:
  Quill::EventLoop& loop_;
  int descriptor_;
  std::uint64_t sleepHook_;
  std::uint64_t wakeHook_;
};

}  // namespace QuillVesta

#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vesta/AttachOptions.h"
#include "vesta/RowBuffer.h"
#include "vesta/Shape.h"
#include "vesta/VestaBase.h"

namespace Vesta {

/// The byte-level side of a table's one writer. Rows and keys are arrays of words as RowBuffer lays them out.
///
/// Thread safety: one thread. Readers in other threads and processes are not disturbed, whatever step of a
/// write this one dies at.
class SegmentWriter {
 public:
  SegmentWriter(const Shape& shape, const AttachOptions& options);
  ~SegmentWriter();
  SegmentWriter(const SegmentWriter&) = delete;
  SegmentWriter& operator=(const SegmentWriter&) = delete;

  bool write(Word* row, bool onlyIfPresent);
  bool remove(const Word* key);
  bool lookup(const Word* key, Word* row, std::uint32_t& slot);
  bool rowFrom(std::uint32_t& slot, Word* row);

  bool attached() const noexcept;
  void detach();
  void cleanup();
  void validate();
  void validateFiles();

  std::size_t members() const;
  std::size_t capacity() const noexcept;
  std::uint64_t sequence() const noexcept;
  bool connected();
  bool quiesced(std::uint64_t sequence);
  bool movingReadersQuiesced(std::uint64_t sequence);
  bool clientQuiesced(const std::string& name);
  std::vector<ConnectedReader> readers();
  pid_t writerProcess() const noexcept;
  void yieldTimeIs(std::chrono::milliseconds time);
  const RootPath& rootPath() const noexcept;
  const WriterCounters& counters() const noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace Vesta

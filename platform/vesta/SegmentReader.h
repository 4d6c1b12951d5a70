#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>

#include "vesta/AttachOptions.h"
#include "vesta/RowBuffer.h"
#include "vesta/Shape.h"
#include "vesta/VestaBase.h"

namespace Vesta {

/// The byte-level side of one reader.
class SegmentReader {
 public:
  using KeyHandler = std::function<void(const Word* key)>;

  SegmentReader(const Shape& shape, const AttachOptions& options);
  ~SegmentReader();
  SegmentReader(const SegmentReader&) = delete;
  SegmentReader& operator=(const SegmentReader&) = delete;

  bool lookup(const Word* key, Word* row, std::uint32_t& slot);
  bool rowFrom(std::uint32_t& slot, Word* row);

  int wakeDescriptor() const noexcept;
  void descriptorReadable();
  std::size_t poll(std::size_t limit, const KeyHandler& handler);
  bool maySleep();
  void awake();

  bool attached() const noexcept;
  void detach();
  void validate();
  void validateFiles();

  std::size_t members() const;
  std::size_t capacity() const noexcept;
  std::uint64_t sequence() const noexcept;
  bool connected();
  pid_t writerProcess() const noexcept;
  void yieldTimeIs(std::chrono::milliseconds time);
  const RootPath& rootPath() const noexcept;
  const ReaderCounters& counters() const noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace Vesta

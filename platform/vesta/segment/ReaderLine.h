#pragma once

#include <optional>
#include <string>

#include "vesta/segment/Segment.h"

namespace Vesta {

/// One reader's line on the readers' page. The reader alone writes it while it holds its number; the writer
/// frees the lines of readers that are gone.
///
/// A flipped bit, or a word read between two stores of the reader, makes a checked value unknown, never
/// wrong. The writer then waits until the reader has restored its line.
class ReaderLine {
 public:
  ReaderLine(Segment& segment, unsigned reader) noexcept : segment_(segment), at_(readerLineAt(reader)) {}

  /// 0 while no reader uses the line.
  Word identity() const noexcept { return segment_.load(at_ + kReaderIdentityAt); }
  /// The sequence up to which its handlers have returned.
  std::optional<Word> handled() const noexcept;
  std::optional<std::string> name() const;

  /// Fills the line; the reader counts from now on.
  void fill(Word identity, Word handled, const std::string& name) noexcept;
  void handledIs(Word handled) noexcept {
    segment_.store(at_ + kReaderHandledAt, handled);
    segment_.store(at_ + kReaderHandledCheckAt, checkOf(handled, at_));
  }
  /// It counts as a reader that has handled nothing.
  void clear() noexcept { segment_.store(at_ + kReaderIdentityAt, 0); }
  /// Frees the line unless another reader uses it by now. Identities differ in their random half.
  bool release(Word identity) noexcept {
    return std::atomic_ref<Word>(segment_.at(at_ + kReaderIdentityAt))
        .compare_exchange_strong(identity, 0, std::memory_order_acq_rel);
  }

 private:
  static constexpr std::size_t kNameWords = 4;

  Segment& segment_;  // not owned
  std::size_t at_;
};

}  // namespace Vesta

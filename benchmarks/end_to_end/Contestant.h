#pragma once

#include <cstddef>

/// One way of getting rows to another process and the answers back.
class Contestant {
 public:
  virtual ~Contestant();
  /// Gets new contents for rows 0 to `rows` - 1 ready; `rows` is 1 to 8192. Not part of what is measured.
  virtual void prepare(std::size_t rows) = 0;
  /// Writes the rows made ready and returns when each has been answered. Throws Cairn::Exception when an
  /// answer is wrong or missing.
  virtual void batch() = 0;
};

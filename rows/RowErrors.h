// The exceptions of the row library.
#pragma once

#include <cstdint>

#include "cairn/Exception.h"

namespace Lumen {

/// A row without buffer was read or written: "null row".
class LmNullRow : public Cairn::Exception {
 public:
  LmNullRow();
  ~LmNullRow() override;
};

/// A read-only row was written: "Attempting to modify read-only row".
class LmPermissionViolation : public Cairn::Exception {
 public:
  LmPermissionViolation();
  ~LmPermissionViolation() override;
};

/// The operation needs a row class and was called on a generic row.
class LmNotSupported : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmNotSupported() override;
};

/// A generic row of type `rowType` was converted to a row of type `expected`.
class LmBadCast : public Cairn::Exception {
 public:
  LmBadCast(std::uint16_t rowType, std::uint16_t expected, std::uint16_t contentOffset);
  ~LmBadCast() override;
};

[[noreturn]] void throwNullRow();

}  // namespace Lumen

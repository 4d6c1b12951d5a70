// The exceptions of the row database.
#pragma once

#include "cairn/Exception.h"

namespace Lumen {

/// No metadata source knows a row type name, or what it tells cannot be read.
class LmMetadataError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmMetadataError() override;
};

/// The text of a value or the name of a column was not what its row class has; says what was expected and
/// what came.
class LmTextError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmTextError() override;
};

/// The number of a key index is none that the table has.
class LmOutOfRange : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmOutOfRange() override;
};

/// A table is not registered, or otherwise than asked for, or has no implementation; says which and what was
/// expected.
class LmTableError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmTableError() override;
};

}  // namespace Lumen

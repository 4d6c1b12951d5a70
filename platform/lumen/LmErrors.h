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

}  // namespace Lumen

// The exceptions of the row database.
#pragma once

#include "cairn/Exception.h"

namespace Lumen {

/// No metadata source knows a row type name, or its metadata cannot be parsed.
class LmMetadataError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmMetadataError() override;
};

/// A column name or the text of a value does not fit the row class; says what was expected and what was
/// found.
class LmTextError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmTextError() override;
};

/// The table has no key index with that number.
class LmOutOfRange : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmOutOfRange() override;
};

/// A table is not registered, is registered differently or has no implementation; names the table and says
/// what was expected.
class LmTableError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~LmTableError() override;
};

}  // namespace Lumen

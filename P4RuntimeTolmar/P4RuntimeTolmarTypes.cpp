#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"

#include "lumen/LumenDB.h"

namespace TolmarHwLib {

std::uint16_t detail::lookUpRowType(std::string_view rowTypeName) {
  const Lumen::LmClass* known = Lumen::LumenDB::lmClass(rowTypeName);
  if (known == nullptr) {
    Lumen::LumenDB::metadataIs(rowTypeName);
    known = Lumen::LumenDB::lmClass(rowTypeName);
  }
  return known->oid();
}

namespace {

template <class Kind>
struct Generators {
  typename RowsOf<Kind>::ConfigGenerator config;
  typename RowsOf<Kind>::StatusGenerator status;
};

// Registered in this order at load, removed in reverse order at unload.
InOrder<Generators, Kinds> generators;

}  // namespace

}  // namespace TolmarHwLib

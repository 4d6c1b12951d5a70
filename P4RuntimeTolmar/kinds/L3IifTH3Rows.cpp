#include "P4RuntimeTolmar/kinds/L3IifTH3Rows.h"

#include "P4RuntimeTolmar/ConfigTableWrapper-inl.h"

namespace TolmarHwLib {

template class TypedRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry>;
template class TypedRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry>;
template class ConfigTableWrapper<L3IifTH3ConfigLumenWrappers::Kind>;

}  // namespace TolmarHwLib

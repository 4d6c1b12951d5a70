#include "P4RuntimeTolmar/kinds/L3TunnelTH3Rows.h"

#include "P4RuntimeTolmar/ConfigTableWrapper-inl.h"

namespace TolmarHwLib {

template class TypedRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry>;
template class TypedRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry>;
template class ConfigTableWrapper<L3TunnelTH3ConfigLumenWrappers::Kind>;

}  // namespace TolmarHwLib

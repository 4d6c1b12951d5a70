#include "P4RuntimeTolmar/kinds/MyStationTcamTH3Rows.h"

#include "P4RuntimeTolmar/ConfigTableWrapper-inl.h"

namespace TolmarHwLib {

template class TypedRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry>;
template class TypedRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry>;
template class ConfigTableWrapper<MyStationTcamTH3ConfigLumenWrappers::Kind>;

}  // namespace TolmarHwLib

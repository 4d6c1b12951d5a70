#include "P4RuntimeTolmar/P4RuntimeTolmarTypesLumenWrappers.h"

#include "P4RuntimeTolmar/ConfigTableWrapper-inl.h"

namespace TolmarHwLib {

template class ConfigTableWrapper<L3TunnelTH3ConfigLumenWrappers::Kind>;
template class ConfigTableWrapper<MyStationTcamTH3ConfigLumenWrappers::Kind>;
template class ConfigTableWrapper<L3IifTH3ConfigLumenWrappers::Kind>;

namespace L3TunnelTH3ConfigLumenWrappers {
TableLumenWrapperIterator::~TableLumenWrapperIterator() = default;
TableLumenWrapperChangeIterator::~TableLumenWrapperChangeIterator() = default;
ReactorForLumen::~ReactorForLumen() = default;
TableLumenWrapper::~TableLumenWrapper() = default;
}  // namespace L3TunnelTH3ConfigLumenWrappers

namespace MyStationTcamTH3ConfigLumenWrappers {
TableLumenWrapperIterator::~TableLumenWrapperIterator() = default;
TableLumenWrapperChangeIterator::~TableLumenWrapperChangeIterator() = default;
ReactorForLumen::~ReactorForLumen() = default;
TableLumenWrapper::~TableLumenWrapper() = default;
}  // namespace MyStationTcamTH3ConfigLumenWrappers

namespace L3IifTH3ConfigLumenWrappers {
TableLumenWrapperIterator::~TableLumenWrapperIterator() = default;
TableLumenWrapperChangeIterator::~TableLumenWrapperChangeIterator() = default;
ReactorForLumen::~ReactorForLumen() = default;
TableLumenWrapper::~TableLumenWrapper() = default;
}  // namespace L3IifTH3ConfigLumenWrappers

}  // namespace TolmarHwLib

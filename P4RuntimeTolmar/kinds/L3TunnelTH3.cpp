#include "P4RuntimeTolmar/kinds/L3TunnelTH3.h"

namespace TolmarHwLib {

template class TableEntityOf<L3TunnelTH3Config, L3TunnelTH3ConfigEntry>;
template class TableEntityOf<L3TunnelTH3Status, L3TunnelTH3StatusEntry>;
L3TunnelTH3Config::~L3TunnelTH3Config() = default;
L3TunnelTH3Status::~L3TunnelTH3Status() = default;

}  // namespace TolmarHwLib

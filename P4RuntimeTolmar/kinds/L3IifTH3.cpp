#include "P4RuntimeTolmar/kinds/L3IifTH3.h"

namespace TolmarHwLib {

template class TableEntityOf<L3IifTH3Config, L3IifTH3ConfigEntry>;
template class TableEntityOf<L3IifTH3Status, L3IifTH3StatusEntry>;
L3IifTH3Config::~L3IifTH3Config() = default;
L3IifTH3Status::~L3IifTH3Status() = default;

}  // namespace TolmarHwLib

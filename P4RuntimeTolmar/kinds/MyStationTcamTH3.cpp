#include "P4RuntimeTolmar/kinds/MyStationTcamTH3.h"

namespace TolmarHwLib {

template class TableEntityOf<MyStationTcamTH3Config, MyStationTcamTH3ConfigEntry>;
template class TableEntityOf<MyStationTcamTH3Status, MyStationTcamTH3StatusEntry>;
MyStationTcamTH3Config::~MyStationTcamTH3Config() = default;
MyStationTcamTH3Status::~MyStationTcamTH3Status() = default;

}  // namespace TolmarHwLib

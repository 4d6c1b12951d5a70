#include "P4RuntimePlugin/PendingHwProgrammingSms.h"

#include "P4RuntimePlugin/PendingHwProgrammingSm-inl.h"

namespace TolmarHwLib {

template class PendingHwProgrammingSm<L3IifTH3PendingHwProgrammingSm, L3IifTH3, 16>;
template class PendingHwProgrammingSm<MyStationTcamTH3PendingHwProgrammingSm, MyStationTcamTH3, 73>;
template class PendingHwProgrammingSm<L3TunnelTH3PendingHwProgrammingSm, L3TunnelTH3, 130>;

L3IifTH3PendingHwProgrammingSm::~L3IifTH3PendingHwProgrammingSm() = default;
MyStationTcamTH3PendingHwProgrammingSm::~MyStationTcamTH3PendingHwProgrammingSm() = default;
L3TunnelTH3PendingHwProgrammingSm::~L3TunnelTH3PendingHwProgrammingSm() = default;

}  // namespace TolmarHwLib

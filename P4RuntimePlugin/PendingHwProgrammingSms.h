// The trackers, one class for each kind of status table. The free factories are for creators other than the
// plugin.
#pragma once

#include <type_traits>

#include "P4RuntimePlugin/PendingHwProgrammingSm.h"
#include "P4RuntimeTolmar/OutputTables.h"

namespace TolmarHwLib {

struct L3IifTH3PendingHwProgrammingSm final
    : PendingHwProgrammingSm<L3IifTH3PendingHwProgrammingSm, L3IifTH3, 16> {
  using PendingHwProgrammingSm::PendingHwProgrammingSm;
  ~L3IifTH3PendingHwProgrammingSm() override;
  static Ptr L3IifTH3PendingHwProgrammingSmIs(const BatchStatusPtr& batchStatus, const StatusPtr& status) {
    return make(batchStatus, status);
  }
};
inline auto l3IifTH3PendingHwProgrammingSmFactory(const BatchStatusPtr& batchStatus,
                                                  const L3IifTH3Status::PtrConst& status) {
  return L3IifTH3PendingHwProgrammingSm::L3IifTH3PendingHwProgrammingSmIs(batchStatus, status);
}
template <>
struct TrackerOf<L3IifTH3> : std::type_identity<L3IifTH3PendingHwProgrammingSm> {};
extern template class PendingHwProgrammingSm<L3IifTH3PendingHwProgrammingSm, L3IifTH3, 16>;

struct MyStationTcamTH3PendingHwProgrammingSm final
    : PendingHwProgrammingSm<MyStationTcamTH3PendingHwProgrammingSm, MyStationTcamTH3, 73> {
  using PendingHwProgrammingSm::PendingHwProgrammingSm;
  ~MyStationTcamTH3PendingHwProgrammingSm() override;
  static Ptr MyStationTcamTH3PendingHwProgrammingSmIs(const BatchStatusPtr& batchStatus,
                                                      const StatusPtr& status) {
    return make(batchStatus, status);
  }
};
inline auto myStationTcamTH3PendingHwProgrammingSmFactory(const BatchStatusPtr& batchStatus,
                                                          const MyStationTcamTH3Status::PtrConst& status) {
  return MyStationTcamTH3PendingHwProgrammingSm::MyStationTcamTH3PendingHwProgrammingSmIs(batchStatus,
                                                                                          status);
}
template <>
struct TrackerOf<MyStationTcamTH3> : std::type_identity<MyStationTcamTH3PendingHwProgrammingSm> {};
extern template class PendingHwProgrammingSm<MyStationTcamTH3PendingHwProgrammingSm, MyStationTcamTH3, 73>;

/// Serves both tunnel tables.
struct L3TunnelTH3PendingHwProgrammingSm final
    : PendingHwProgrammingSm<L3TunnelTH3PendingHwProgrammingSm, L3TunnelTH3, 130> {
  using PendingHwProgrammingSm::PendingHwProgrammingSm;
  ~L3TunnelTH3PendingHwProgrammingSm() override;
  static Ptr L3TunnelTH3PendingHwProgrammingSmIs(const BatchStatusPtr& batchStatus, const StatusPtr& status) {
    return make(batchStatus, status);
  }
};
inline auto l3TunnelTH3PendingHwProgrammingSmFactory(const BatchStatusPtr& batchStatus,
                                                     const L3TunnelTH3Status::PtrConst& status) {
  return L3TunnelTH3PendingHwProgrammingSm::L3TunnelTH3PendingHwProgrammingSmIs(batchStatus, status);
}
template <>
struct TrackerOf<L3TunnelTH3> : std::type_identity<L3TunnelTH3PendingHwProgrammingSm> {};
extern template class PendingHwProgrammingSm<L3TunnelTH3PendingHwProgrammingSm, L3TunnelTH3, 130>;

}  // namespace TolmarHwLib

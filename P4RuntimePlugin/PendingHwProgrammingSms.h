// The three trackers: one class for each kind of status table.
#pragma once

#include "P4RuntimePlugin/PendingHwProgrammingSm.h"
#include "P4RuntimeTolmar/OutputTables.h"

namespace TolmarHwLib {

extern template class PendingHwProgrammingSm<L3IifTH3Key, L3IifTH3Status, 16>;
extern template class PendingHwProgrammingSm<MyStationTcamTH3Key, MyStationTcamTH3Status, 73>;
extern template class PendingHwProgrammingSm<L3TunnelTH3Key, L3TunnelTH3Status, 130>;

class L3IifTH3PendingHwProgrammingSm final
    : public Quill::Typed<L3IifTH3PendingHwProgrammingSm,
                          PendingHwProgrammingSm<L3IifTH3Key, L3IifTH3Status, 16>> {
 public:
  using Typed::Typed;
  ~L3IifTH3PendingHwProgrammingSm() override;

  /// A tracker with its notifications on.
  static Quill::Ptr<L3IifTH3PendingHwProgrammingSm> L3IifTH3PendingHwProgrammingSmIs(
      const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus, const Quill::Ptr<const L3IifTH3Status>& status);

  static const Quill::TypeNode _quillType;
};

class MyStationTcamTH3PendingHwProgrammingSm final
    : public Quill::Typed<MyStationTcamTH3PendingHwProgrammingSm,
                          PendingHwProgrammingSm<MyStationTcamTH3Key, MyStationTcamTH3Status, 73>> {
 public:
  using Typed::Typed;
  ~MyStationTcamTH3PendingHwProgrammingSm() override;

  static Quill::Ptr<MyStationTcamTH3PendingHwProgrammingSm> MyStationTcamTH3PendingHwProgrammingSmIs(
      const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus,
      const Quill::Ptr<const MyStationTcamTH3Status>& status);

  static const Quill::TypeNode _quillType;
};

/// Serves both tunnel tables.
class L3TunnelTH3PendingHwProgrammingSm final
    : public Quill::Typed<L3TunnelTH3PendingHwProgrammingSm,
                          PendingHwProgrammingSm<L3TunnelTH3Key, L3TunnelTH3Status, 130>> {
 public:
  using Typed::Typed;
  ~L3TunnelTH3PendingHwProgrammingSm() override;

  static Quill::Ptr<L3TunnelTH3PendingHwProgrammingSm> L3TunnelTH3PendingHwProgrammingSmIs(
      const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus,
      const Quill::Ptr<const L3TunnelTH3Status>& status);

  static const Quill::TypeNode _quillType;
};

// Entry points for creators other than the plugin.
Quill::Ptr<L3IifTH3PendingHwProgrammingSm> l3IifTH3PendingHwProgrammingSmFactory(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus, const Quill::Ptr<const L3IifTH3Status>& status);
Quill::Ptr<MyStationTcamTH3PendingHwProgrammingSm> myStationTcamTH3PendingHwProgrammingSmFactory(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus,
    const Quill::Ptr<const MyStationTcamTH3Status>& status);
Quill::Ptr<L3TunnelTH3PendingHwProgrammingSm> l3TunnelTH3PendingHwProgrammingSmFactory(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus, const Quill::Ptr<const L3TunnelTH3Status>& status);

}  // namespace TolmarHwLib

#include "P4RuntimePlugin/PendingHwProgrammingSms.h"

#include <array>

#include "P4RuntimePlugin/KeyTrace.h"
#include "P4RuntimePlugin/PendingHwProgrammingSm-inl.h"
#include "quill/Generic.h"

namespace TolmarHwLib {

namespace {

template <auto kFactory, class Status>
Quill::GenericIf fromCtorArgs(Quill::GenericArguments arguments) {
  using BatchStatus = Quill::Ptr<P4Runtime::BatchStatus>;
  return Quill::GenericIf(Quill::genericCall<BatchStatus, Quill::Ptr<const Status>>(kFactory, arguments));
}

template <class Pattern>
constexpr std::array<Quill::Member, 4> membersOf(std::string_view statusType) {
  return {Quill::genericReader<&Pattern::batchStatus>("batchStatus", "P4Runtime::BatchStatus"),
          Quill::genericReader<&Pattern::status>("status", statusType),
          Quill::genericOperation<&Pattern::onStatusRow>("onStatusRow"),
          Quill::genericOperation<&Pattern::onStatusRows>("onStatusRows")};
}

constexpr auto kL3IifMembers =
    membersOf<PendingHwProgrammingSm<L3IifTH3Key, L3IifTH3Status, 16>>("TolmarHwLib::L3IifTH3Status");
constexpr auto kMyStationTcamMembers =
    membersOf<PendingHwProgrammingSm<MyStationTcamTH3Key, MyStationTcamTH3Status, 73>>(
        "TolmarHwLib::MyStationTcamTH3Status");
constexpr auto kL3TunnelMembers = membersOf<PendingHwProgrammingSm<L3TunnelTH3Key, L3TunnelTH3Status, 130>>(
    "TolmarHwLib::L3TunnelTH3Status");

}  // namespace

template class PendingHwProgrammingSm<L3IifTH3Key, L3IifTH3Status, 16>;
template class PendingHwProgrammingSm<MyStationTcamTH3Key, MyStationTcamTH3Status, 73>;
template class PendingHwProgrammingSm<L3TunnelTH3Key, L3TunnelTH3Status, 130>;

constinit const Quill::TypeNode L3IifTH3PendingHwProgrammingSm::_quillType{
    .name = "TolmarHwLib::L3IifTH3PendingHwProgrammingSm",
    .members = kL3IifMembers,
    .genericIfFromCtorArgs = &fromCtorArgs<&l3IifTH3PendingHwProgrammingSmFactory, L3IifTH3Status>};

L3IifTH3PendingHwProgrammingSm::~L3IifTH3PendingHwProgrammingSm() = default;

Quill::Ptr<L3IifTH3PendingHwProgrammingSm> L3IifTH3PendingHwProgrammingSm::L3IifTH3PendingHwProgrammingSmIs(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus, const Quill::Ptr<const L3IifTH3Status>& status) {
  return Quill::allocate<L3IifTH3PendingHwProgrammingSm>(batchStatus, status);
}

Quill::Ptr<L3IifTH3PendingHwProgrammingSm> l3IifTH3PendingHwProgrammingSmFactory(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus, const Quill::Ptr<const L3IifTH3Status>& status) {
  return L3IifTH3PendingHwProgrammingSm::L3IifTH3PendingHwProgrammingSmIs(batchStatus, status);
}

constinit const Quill::TypeNode MyStationTcamTH3PendingHwProgrammingSm::_quillType{
    .name = "TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm",
    .members = kMyStationTcamMembers,
    .genericIfFromCtorArgs =
        &fromCtorArgs<&myStationTcamTH3PendingHwProgrammingSmFactory, MyStationTcamTH3Status>};

MyStationTcamTH3PendingHwProgrammingSm::~MyStationTcamTH3PendingHwProgrammingSm() = default;

Quill::Ptr<MyStationTcamTH3PendingHwProgrammingSm>
MyStationTcamTH3PendingHwProgrammingSm::MyStationTcamTH3PendingHwProgrammingSmIs(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus,
    const Quill::Ptr<const MyStationTcamTH3Status>& status) {
  return Quill::allocate<MyStationTcamTH3PendingHwProgrammingSm>(batchStatus, status);
}

Quill::Ptr<MyStationTcamTH3PendingHwProgrammingSm> myStationTcamTH3PendingHwProgrammingSmFactory(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus,
    const Quill::Ptr<const MyStationTcamTH3Status>& status) {
  return MyStationTcamTH3PendingHwProgrammingSm::MyStationTcamTH3PendingHwProgrammingSmIs(batchStatus,
                                                                                          status);
}

constinit const Quill::TypeNode L3TunnelTH3PendingHwProgrammingSm::_quillType{
    .name = "TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm",
    .members = kL3TunnelMembers,
    .genericIfFromCtorArgs = &fromCtorArgs<&l3TunnelTH3PendingHwProgrammingSmFactory, L3TunnelTH3Status>};

L3TunnelTH3PendingHwProgrammingSm::~L3TunnelTH3PendingHwProgrammingSm() = default;

Quill::Ptr<L3TunnelTH3PendingHwProgrammingSm>
L3TunnelTH3PendingHwProgrammingSm::L3TunnelTH3PendingHwProgrammingSmIs(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus,
    const Quill::Ptr<const L3TunnelTH3Status>& status) {
  return Quill::allocate<L3TunnelTH3PendingHwProgrammingSm>(batchStatus, status);
}

Quill::Ptr<L3TunnelTH3PendingHwProgrammingSm> l3TunnelTH3PendingHwProgrammingSmFactory(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus,
    const Quill::Ptr<const L3TunnelTH3Status>& status) {
  return L3TunnelTH3PendingHwProgrammingSm::L3TunnelTH3PendingHwProgrammingSmIs(batchStatus, status);
}

}  // namespace TolmarHwLib

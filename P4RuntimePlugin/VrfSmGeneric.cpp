// The VRF tracker as the generic interface sees it.
#include "P4RuntimePlugin/VrfSm.h"
#include "quill/Generic.h"

namespace P4RuntimeTolmar {

namespace {

using Quill::GenericArguments;
using Quill::GenericValue;
using Quill::PtrInterface;
using TolmarHwLib::L3IifTH3Key;

/// The VRF as unsigned short; an empty value when there is no line for the key.
GenericValue vrfIdGet(const PtrInterface& object, GenericArguments key) {
  return Quill::genericCall<L3IifTH3Key>(
      [&object](const L3IifTH3Key& line) {
        const unsigned short* const vrf = Quill::genericObject<VrfSm>(object).vrfId().find(line);
        return vrf == nullptr ? GenericValue() : GenericValue(*vrf);
      },
      key);
}

void vrfIdDel(PtrInterface& object, GenericArguments key) {
  Quill::detail::callBy<&VrfSm::vrfIdDel>(object, key);
}

std::size_t vrfIdCount(const PtrInterface& object) {
  return Quill::genericObject<VrfSm>(object).vrfId().size();
}

std::shared_ptr<Quill::GenericIterator> vrfIdIterator(PtrInterface& object) {
  return Quill::genericIterator(object, Quill::genericObject<VrfSm>(object).vrfIdIterator());
}

constexpr Quill::Member kMembers[] = {
    Quill::genericReader<&VrfSm::l3IifTH3Config>("l3IifTH3Config", "TolmarHwLib::L3IifTH3Config"),
    Quill::genericReader<&VrfSm::pluginContext>("pluginContext", "P4Runtime::PluginContext"),
    {.name = "vrfId",
     .kind = Quill::Member::Kind::collection,
     .get = &vrfIdGet,
     .set = &Quill::detail::setBy<&VrfSm::vrfIdIs>,
     .del = &vrfIdDel,
     .count = &vrfIdCount,
     .iterator = &vrfIdIterator},
    Quill::genericAttribute<&VrfSm::vrfIdCollection, &VrfSm::vrfIdCollectionIs>("vrfIdCollection",
                                                                                "P4Runtime::VrfIdCollection"),
    Quill::genericAttribute<&VrfSm::initialized, &VrfSm::initializedIs>("initialized"),
    Quill::genericOperation<&VrfSm::handleL3IifTH3ConfigEntry>("handleL3IifTH3ConfigEntry"),
    Quill::genericOperation<&VrfSm::handleInitialized>("handleInitialized"),
};

Quill::GenericIf fromCtorArgs(GenericArguments arguments) {
  using Config = VrfSm::L3IifTH3ConfigPtr;
  using Context = Quill::Ptr<P4Runtime::PluginContext>;
  return Quill::GenericIf(Quill::genericCall<Config, Context>(&vrfSmFactory, arguments));
}

}  // namespace

constinit const Quill::TypeNode VrfSm::_quillType{
    .name = "P4RuntimeTolmar::VrfSm", .members = kMembers, .genericIfFromCtorArgs = &fromCtorArgs};

}  // namespace P4RuntimeTolmar

// The plugin as the generic interface sees it: member table, construction by name and the forwarding of its
// notifications.
#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "orrery/EntityManager.h"
#include "p4runtime/GenericPluginNotifiee.h"
#include "quill/Generic.h"

namespace P4RuntimeTolmar {

namespace {

using Plugin = TolmarP4RuntimePlugin;
using Quill::genericAttribute;
using Quill::genericOperation;

constexpr Quill::Member kMembers[] = {
    genericOperation<&Plugin::doMountsComplete>("doMountsComplete"),
    genericOperation<&Plugin::pluginInit>("pluginInit"),
    genericAttribute<&Plugin::l3TunnelIpv4TH3Config, &Plugin::l3TunnelIpv4TH3ConfigIs>(
        "l3TunnelIpv4TH3Config", "TolmarHwLib::L3TunnelTH3Config"),
    genericAttribute<&Plugin::l3TunnelIpv4TH3Status, &Plugin::l3TunnelIpv4TH3StatusIs>(
        "l3TunnelIpv4TH3Status", "TolmarHwLib::L3TunnelTH3Status"),
    genericAttribute<&Plugin::l3TunnelIpv6TH3Config, &Plugin::l3TunnelIpv6TH3ConfigIs>(
        "l3TunnelIpv6TH3Config", "TolmarHwLib::L3TunnelTH3Config"),
    genericAttribute<&Plugin::l3TunnelIpv6TH3Status, &Plugin::l3TunnelIpv6TH3StatusIs>(
        "l3TunnelIpv6TH3Status", "TolmarHwLib::L3TunnelTH3Status"),
    genericAttribute<&Plugin::myStationTcamTH3Config, &Plugin::myStationTcamTH3ConfigIs>(
        "myStationTcamTH3Config", "TolmarHwLib::MyStationTcamTH3Config"),
    genericAttribute<&Plugin::myStationTcamTH3Status, &Plugin::myStationTcamTH3StatusIs>(
        "myStationTcamTH3Status", "TolmarHwLib::MyStationTcamTH3Status"),
    genericAttribute<&Plugin::l3IifTH3Config, &Plugin::l3IifTH3ConfigIs>("l3IifTH3Config",
                                                                         "TolmarHwLib::L3IifTH3Config"),
    genericAttribute<&Plugin::l3IifTH3Status, &Plugin::l3IifTH3StatusIs>("l3IifTH3Status",
                                                                         "TolmarHwLib::L3IifTH3Status"),
    {.name = "vrfSm",
     .get = &Quill::genericGet<&Plugin::vrfSm>,
     .set = &Quill::genericChange<&Plugin::vrfSmIs>,
     .del = &Quill::genericChange<&Plugin::vrfSmDel>,
     .type = "P4RuntimeTolmar::VrfSm"},
    genericAttribute<&Plugin::l3TunnelIpv4TH3PhpSm, &Plugin::l3TunnelIpv4TH3PhpSmIs>(
        "l3TunnelIpv4TH3PhpSm", "TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm"),
    genericAttribute<&Plugin::l3TunnelIpv6TH3PhpSm, &Plugin::l3TunnelIpv6TH3PhpSmIs>(
        "l3TunnelIpv6TH3PhpSm", "TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm"),
    genericAttribute<&Plugin::l3IifTH3PhpSm, &Plugin::l3IifTH3PhpSmIs>(
        "l3IifTH3PhpSm", "TolmarHwLib::L3IifTH3PendingHwProgrammingSm"),
    genericAttribute<&Plugin::myStationTcamTH3PhpSm, &Plugin::myStationTcamTH3PhpSmIs>(
        "myStationTcamTH3PhpSm", "TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm"),
    genericOperation<&Plugin::doCleanup>("doCleanup"),
};

/// Forwards the plugin's own notifications; those of its base are forwarded by the pattern.
class GenericNotifiee final : public P4Runtime::GenericPluginNotifiee<Plugin::NotifieeConst> {
 public:
  using GenericPluginNotifiee::GenericPluginNotifiee;
  void onL3TunnelIpv4TH3Config() override { observe("l3TunnelIpv4TH3Config"); }
  void onL3TunnelIpv4TH3Status() override { observe("l3TunnelIpv4TH3Status"); }
  void onL3TunnelIpv6TH3Config() override { observe("l3TunnelIpv6TH3Config"); }
  void onL3TunnelIpv6TH3Status() override { observe("l3TunnelIpv6TH3Status"); }
  void onMyStationTcamTH3Config() override { observe("myStationTcamTH3Config"); }
  void onMyStationTcamTH3Status() override { observe("myStationTcamTH3Status"); }
  void onL3IifTH3Config() override { observe("l3IifTH3Config"); }
  void onL3IifTH3Status() override { observe("l3IifTH3Status"); }
  void onVrfSm() override { observe("vrfSm"); }
  void onL3TunnelIpv4TH3PhpSm() override { observe("l3TunnelIpv4TH3PhpSm"); }
  void onL3TunnelIpv6TH3PhpSm() override { observe("l3TunnelIpv6TH3PhpSm"); }
  void onL3IifTH3PhpSm() override { observe("l3IifTH3PhpSm"); }
  void onMyStationTcamTH3PhpSm() override { observe("myStationTcamTH3PhpSm"); }
};

Quill::GenericIf fromCtorArgs(Quill::GenericArguments arguments) {
  const Quill::Ptr<Quill::Entity> plugin =
      Quill::genericCall<Quill::Name>(&tolmarP4RuntimePluginFactory, arguments);
  return Quill::GenericIf(plugin);
}

Quill::Ptr<Quill::Entity> newEntityForDir(const Quill::Name& name, const Quill::Ptr<Quill::Entity>&) {
  return Quill::allocate<Plugin>(name);
}

Quill::Ptr<Quill::NotifieeConst> genericNotifiee(const Quill::Ptr<const Quill::PtrInterface>& plugin,
                                                 Quill::GenericObserver observer) {
  return P4Runtime::genericPluginNotifieeIs<GenericNotifiee>(plugin, std::move(observer));
}

}  // namespace

constinit const Quill::TypeNode TolmarP4RuntimePlugin::_quillType{
    .name = "P4RuntimeTolmar::TolmarP4RuntimePlugin",
    .members = kMembers,
    .genericIfFromCtorArgs = &fromCtorArgs,
    .newEntityForDir = &newEntityForDir,
    .base = &P4Runtime::P4RuntimePluginBase::_quillType,
    .genericNotifiee = &genericNotifiee};

}  // namespace P4RuntimeTolmar

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"

#include "P4RuntimePlugin/LoadTime.h"
#include "P4RuntimePlugin/P4RuntimePluginHelper.h"
#include "P4RuntimePlugin/PluginTrace.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypesLumenWrappers.h"
#include "cairn/Assert.h"

namespace P4RuntimeTolmar {

namespace {

using P4Runtime::P4RuntimePluginHelper;

constexpr const char* kSource = "./P4RuntimePlugin/P4RuntimeTolmarPlugin";

/// The mount helper; the row database is the plugin's own context's, wherever the entity manager comes from.
/// No plugin works without a row database, so a missing one stops the process.
P4RuntimePluginHelper mountHelper(const P4Runtime::PluginContext* own, const P4Runtime::PluginContext* given,
                                  const char* operation) {
  Cairn::requireOrStop(own != nullptr && own->lumenDb() != nullptr && given != nullptr, "adb", operation);
  return P4RuntimePluginHelper(own->lumenDb(), given->entityManager(), kMountPathPrefix);
}

/// Finishes one table: mounts both sides, stores them and registers the config table. Stored without a
/// notification, since nothing follows the attributes before the components are there.
template <class Row, class Wrapper, class Config, class Status>
void setUpTable(P4RuntimePluginHelper& helper, const char* typePrefix, const char* tableName,
                unsigned capacity, Quill::Ptr<Config>& config, Quill::Ptr<Status>& status) {
  helper.mountVestaTables(typePrefix, tableName, "Table", capacity);
  config = helper.tableConfig<Config>(tableName);
  status = helper.tableStatus<Status>(tableName);
  helper.registerConfigTable<Config, Row, Wrapper>(config, tableName);
}

}  // namespace

const Quill::TraceHandle& pluginTrace() {
  static const Quill::TraceHandle handle("TolmarP4RuntimePlugin");
  return handle;
}

TolmarP4RuntimePlugin::TolmarP4RuntimePlugin(const Quill::Name& name) : Typed(name) {}

// Members are declared in the order in which they are released from the end.
TolmarP4RuntimePlugin::~TolmarP4RuntimePlugin() { vrfSmDel(); }

Quill::Ptr<TolmarP4RuntimePlugin> tolmarP4RuntimePluginFactory(const Quill::Name& name) {
  return Quill::allocate<TolmarP4RuntimePlugin>(name);
}

void TolmarP4RuntimePlugin::doMountsComplete(Orrery::MountStatus, const Quill::Ptr<Orrery::EntityManager>&) {
  static constinit const TracePoint trace{0, kSource, __LINE__, "doMountsComplete", "doMountsComplete"};
  trace(pluginTrace());
}

void TolmarP4RuntimePlugin::pluginInit(const Quill::Ptr<P4Runtime::PluginContext>& context) {
  static constinit const TracePoint trace{0, kSource, __LINE__, "pluginInit", "pluginInit"};
  trace(pluginTrace());
  P4RuntimePluginHelper helper = mountHelper(pluginContext().get(), context.get(), "pluginInit");
  setUpTables(helper);
  wireComponents(context);
}

void TolmarP4RuntimePlugin::setUpTables(P4RuntimePluginHelper& helper) {
  using namespace TolmarHwLib;
  using L3TunnelWrapper = L3TunnelTH3ConfigLumenWrappers::TableLumenWrapper;
  using MyStationTcamWrapper = MyStationTcamTH3ConfigLumenWrappers::TableLumenWrapper;
  using L3IifWrapper = L3IifTH3ConfigLumenWrappers::TableLumenWrapper;
  setUpTable<L3TunnelTH3ConfigEntryRow, L3TunnelWrapper>(helper, "TolmarHwLib::L3TunnelTH3",
                                                         "l3TunnelIpv4TH3", 8192, l3TunnelIpv4TH3Config_,
                                                         l3TunnelIpv4TH3Status_);
  setUpTable<L3TunnelTH3ConfigEntryRow, L3TunnelWrapper>(helper, "TolmarHwLib::L3TunnelTH3",
                                                         "l3TunnelIpv6TH3", 4096, l3TunnelIpv6TH3Config_,
                                                         l3TunnelIpv6TH3Status_);
  setUpTable<MyStationTcamTH3ConfigEntryRow, MyStationTcamWrapper>(
      helper, "TolmarHwLib::MyStationTcamTH3", "myStationTcamTH3", 512, myStationTcamTH3Config_,
      myStationTcamTH3Status_);
  setUpTable<L3IifTH3ConfigEntryRow, L3IifWrapper>(helper, "TolmarHwLib::L3IifTH3", "l3IifTH3", 8192,
                                                   l3IifTH3Config_, l3IifTH3Status_);
}

// L3 IIF comes before MyStation TCAM here and after it above; agents see both orders and rely on them.
void TolmarP4RuntimePlugin::wireComponents(const Quill::Ptr<P4Runtime::PluginContext>& context) {
  using namespace TolmarHwLib;
  const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus = context->batchStatus();
  l3TunnelIpv4TH3PhpSmIs(L3TunnelTH3PendingHwProgrammingSm::L3TunnelTH3PendingHwProgrammingSmIs(
      batchStatus, l3TunnelIpv4TH3Status_));
  l3TunnelIpv6TH3PhpSmIs(L3TunnelTH3PendingHwProgrammingSm::L3TunnelTH3PendingHwProgrammingSmIs(
      batchStatus, l3TunnelIpv6TH3Status_));
  l3IifTH3PhpSmIs(
      L3IifTH3PendingHwProgrammingSm::L3IifTH3PendingHwProgrammingSmIs(batchStatus, l3IifTH3Status_));
  myStationTcamTH3PhpSmIs(MyStationTcamTH3PendingHwProgrammingSm::MyStationTcamTH3PendingHwProgrammingSmIs(
      batchStatus, myStationTcamTH3Status_));
  vrfSmIs(l3IifTH3Config_, context);
  // The helper gets no command-line config, whatever the plugin's own is.
  pluginCleanupHelperIs(Quill::allocate<PluginCleanupHelper>(allPluginConfig(), pluginStatus(),
                                                             Quill::Ptr<P4Runtime::CliCommandConfig>(),
                                                             Quill::Ptr<TolmarP4RuntimePlugin>(this)));
}

void TolmarP4RuntimePlugin::doCleanup() {
  static constinit const TracePoint trace{4, kSource, __LINE__, "doCleanup",
                                          "TolmarP4RuntimePlugin::doCleanup"};
  trace(pluginTrace());
  P4RuntimePluginHelper helper = mountHelper(pluginContext().get(), pluginContext().get(), "doCleanup");
  for (const char* table : {"l3TunnelIpv4TH3", "l3TunnelIpv6TH3", "l3IifTH3", "myStationTcamTH3"}) {
    helper.unmountConfigVestaTable(table);
  }
}

Quill::Ptr<VrfSm> TolmarP4RuntimePlugin::vrfSmIs(const Quill::Ptr<const TolmarHwLib::L3IifTH3Config>& config,
                                                 const Quill::Ptr<P4Runtime::PluginContext>& context) {
  if (vrfSm_ && vrfSm_->l3IifTH3Config() == config && vrfSm_->pluginContext() == context) return vrfSm_;
  Quill::Ptr<VrfSm> tracker = VrfSm::VrfSmIs(config, context);
  vrfSm_ = tracker;
  notify<NotifieeConst>([](NotifieeConst& reactor) { reactor.onVrfSm(); });
  tracker->hasNotificationActiveIs(true);
  return tracker;
}

Quill::Ptr<VrfSm> TolmarP4RuntimePlugin::vrfSmDel() {
  if (!vrfSm_) return nullptr;
  Quill::Ptr<VrfSm> tracker = std::move(vrfSm_);
  notify<NotifieeConst>([](NotifieeConst& reactor) { reactor.onVrfSm(); });
  tracker->hasNotificationActiveIs(false);
  return tracker;
}

}  // namespace P4RuntimeTolmar

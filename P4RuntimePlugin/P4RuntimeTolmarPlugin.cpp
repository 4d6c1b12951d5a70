#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"

#include <array>
#include <tuple>
#include <utility>

#include "P4RuntimePlugin/LoadTime.h"
#include "P4RuntimePlugin/P4RuntimePluginHelper.h"
#include "P4RuntimePlugin/Trace.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypesLumenWrappers.h"
#include "cairn/Assert.h"
#include "orrery/EntityManager.h"
#include "quill/Generic.h"

namespace P4RuntimeTolmar {

namespace {

using P4Runtime::P4RuntimePluginHelper;

constexpr const char* kSource = "./P4RuntimePlugin/P4RuntimeTolmarPlugin";

/// Takes the row database from the plugin's own context and the entity manager from `given`. The plugin
/// cannot work without a row database, so a missing one stops the process.
P4RuntimePluginHelper mountHelper(const P4Runtime::PluginContext* own, const P4Runtime::PluginContext* given,
                                  const char* operation) {
  Cairn::requireOrStop(own != nullptr && own->lumenDb() != nullptr && given != nullptr, "adb", operation);
  return P4RuntimePluginHelper(own->lumenDb(), given->entityManager(), kMountPathPrefix);
}

using Plugin = TolmarP4RuntimePlugin;
using TolmarHwLib::forEachOutputTable;
using TolmarHwLib::OutputTable;

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
  return P4Runtime::genericPluginNotifieeIs<Plugin::NotifieeConst>(plugin, std::move(observer));
}

}  // namespace

/// The attributes of each output table, in the order of kOutputTables.
struct TolmarP4RuntimePlugin::Attributes {
  template <class Member, class Getter, class Setter>
  struct Attribute {
    Member member;
    Getter getter;
    Setter setter;
  };
  template <class Member, class Getter, class Setter>
  Attribute(Member, Getter, Setter) -> Attribute<Member, Getter, Setter>;

  using P = TolmarP4RuntimePlugin;
  static constexpr std::tuple kOfTables{
      std::tuple{
          Attribute{&P::l3TunnelIpv4TH3Config_, &P::l3TunnelIpv4TH3Config, &P::l3TunnelIpv4TH3ConfigIs},
          Attribute{&P::l3TunnelIpv4TH3Status_, &P::l3TunnelIpv4TH3Status, &P::l3TunnelIpv4TH3StatusIs},
          Attribute{&P::l3TunnelIpv4TH3PhpSm_, &P::l3TunnelIpv4TH3PhpSm, &P::l3TunnelIpv4TH3PhpSmIs}},
      std::tuple{
          Attribute{&P::l3TunnelIpv6TH3Config_, &P::l3TunnelIpv6TH3Config, &P::l3TunnelIpv6TH3ConfigIs},
          Attribute{&P::l3TunnelIpv6TH3Status_, &P::l3TunnelIpv6TH3Status, &P::l3TunnelIpv6TH3StatusIs},
          Attribute{&P::l3TunnelIpv6TH3PhpSm_, &P::l3TunnelIpv6TH3PhpSm, &P::l3TunnelIpv6TH3PhpSmIs}},
      std::tuple{
          Attribute{&P::myStationTcamTH3Config_, &P::myStationTcamTH3Config, &P::myStationTcamTH3ConfigIs},
          Attribute{&P::myStationTcamTH3Status_, &P::myStationTcamTH3Status, &P::myStationTcamTH3StatusIs},
          Attribute{&P::myStationTcamTH3PhpSm_, &P::myStationTcamTH3PhpSm, &P::myStationTcamTH3PhpSmIs}},
      std::tuple{Attribute{&P::l3IifTH3Config_, &P::l3IifTH3Config, &P::l3IifTH3ConfigIs},
                 Attribute{&P::l3IifTH3Status_, &P::l3IifTH3Status, &P::l3IifTH3StatusIs},
                 Attribute{&P::l3IifTH3PhpSm_, &P::l3IifTH3PhpSm, &P::l3IifTH3PhpSmIs}},
  };
  static_assert(std::tuple_size_v<decltype(kOfTables)> == TolmarHwLib::kOutputTableCount,
                "an output table without its attributes");

  /// Attribute number `role` of table number `table` as the generic interface sees it.
  template <std::size_t table, std::size_t role>
  static constexpr Quill::Member generic();

  using Members = std::array<Quill::Member, 4 + 3 * TolmarHwLib::kOutputTableCount>;
  static constexpr Members members();
  static const Members kMembers;
};

namespace {

constexpr std::string_view kRoles[] = {"Config", "Status", "PhpSm"};

template <std::size_t table, std::size_t role>
constexpr TolmarHwLib::FixedText kAttributeName{std::get<table>(TolmarHwLib::kOutputTables).name,
                                                kRoles[role]};

}  // namespace

template <std::size_t table, std::size_t role>
constexpr Quill::Member TolmarP4RuntimePlugin::Attributes::generic() {
  constexpr auto attribute = std::get<role>(std::get<table>(kOfTables));
  using Pointer = std::remove_cvref_t<decltype((std::declval<Plugin&>().*attribute.getter)())>;
  using Object = std::remove_cvref_t<decltype(*std::declval<Pointer>())>;
  return Quill::genericAttribute<attribute.getter, attribute.setter>(kAttributeName<table, role>,
                                                                     Object::kTypeName);
}

/// The member table: operations and attributes in their order.
constexpr auto TolmarP4RuntimePlugin::Attributes::members() -> Members {
  Members all{};
  std::size_t next = 0;
  all[next++] = Quill::genericOperation<&Plugin::doMountsComplete>("doMountsComplete");
  all[next++] = Quill::genericOperation<&Plugin::pluginInit>("pluginInit");
  forEachOutputTable([&]<std::size_t I>(const auto&) {
    all[next++] = generic<I, 0>();
    all[next++] = generic<I, 1>();
  });
  all[next++] = {.name = "vrfSm",
                 .get = &Quill::genericGet<&Plugin::vrfSm>,
                 .set = &Quill::genericChange<&Plugin::vrfSmIs>,
                 .del = &Quill::genericChange<&Plugin::vrfSmDel>,
                 .type = "P4RuntimeTolmar::VrfSm"};
  forEachOutputTable<TolmarHwLib::kWiringOrder>(
      [&]<std::size_t I>(const auto&) { all[next++] = generic<I, 2>(); });
  all[next++] = Quill::genericOperation<&Plugin::doCleanup>("doCleanup");
  return all;
}
constinit const TolmarP4RuntimePlugin::Attributes::Members TolmarP4RuntimePlugin::Attributes::kMembers =
    members();

constinit const Quill::TypeNode TolmarP4RuntimePlugin::NotifieeConst::_quillType{
    .name = "P4RuntimeTolmar::TolmarP4RuntimePlugin::NotifieeConst", .members = {}};

constinit const Quill::TypeNode TolmarP4RuntimePlugin::_quillType{
    .name = "P4RuntimeTolmar::TolmarP4RuntimePlugin",
    .members = Attributes::kMembers,
    .genericIfFromCtorArgs = &fromCtorArgs,
    .newEntityForDir = &newEntityForDir,
    .base = &P4Runtime::P4RuntimePluginBase::_quillType,
    .genericNotifiee = &genericNotifiee};

const Quill::TraceHandle& pluginTrace() {
  static const Quill::TraceHandle handle("TolmarP4RuntimePlugin");
  return handle;
}

TolmarP4RuntimePlugin::TolmarP4RuntimePlugin(const Quill::Name& name) : Typed(name) {}

TolmarP4RuntimePlugin::~TolmarP4RuntimePlugin() { vrfSmDel(); }
TolmarP4RuntimePlugin::NotifieeConst::~NotifieeConst() = default;

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

// Stored without a notification, since nothing follows the attributes before the components are there.
void TolmarP4RuntimePlugin::setUpTables(P4RuntimePluginHelper& helper) {
  forEachOutputTable([&]<std::size_t I, class Kind>(const OutputTable<Kind>& table) {
    using Config = typename Kind::Config;
    using Wrapper = typename TolmarHwLib::RowsOf<Kind>::Wrapper;
    const auto [config, status, tracker] = std::get<I>(Attributes::kOfTables);
    const Quill::String name(table.name);
    helper.mountVestaTables(Quill::String(Kind::typePrefix), name, "Table", table.capacity);
    (this->*config.member).value = helper.tableConfig<Config>(name);
    (this->*status.member).value = helper.tableStatus<typename Kind::Status>(name);
    helper.registerConfigTable<Config, typename Wrapper::EntryRow, Wrapper>((this->*config.member).value,
                                                                            name);
  });
}

void TolmarP4RuntimePlugin::wireComponents(const Quill::Ptr<P4Runtime::PluginContext>& context) {
  forEachOutputTable<TolmarHwLib::kWiringOrder>([&]<std::size_t I, class Kind>(const OutputTable<Kind>&) {
    const auto [config, status, tracker] = std::get<I>(Attributes::kOfTables);
    using Tracker = typename TolmarHwLib::TrackerOf<Kind>::type;
    (this->*tracker.setter)(Tracker::make(context->batchStatus(), (this->*status.getter)()));
  });
  vrfSmIs(l3IifTH3Config(), context);
  // The helper never gets the command-line config of the plugin.
  pluginCleanupHelperIs(Quill::allocate<PluginCleanupHelper>(allPluginConfig(), pluginStatus(),
                                                             Quill::Ptr<P4Runtime::CliCommandConfig>(),
                                                             Quill::Ptr<TolmarP4RuntimePlugin>(this)));
}

void TolmarP4RuntimePlugin::doCleanup() {
  static constinit const TracePoint trace{4, kSource, __LINE__, "doCleanup",
                                          "TolmarP4RuntimePlugin::doCleanup"};
  trace(pluginTrace());
  P4RuntimePluginHelper helper = mountHelper(pluginContext().get(), pluginContext().get(), "doCleanup");
  forEachOutputTable<TolmarHwLib::kWiringOrder>(
      [&]<std::size_t>(const auto& table) { helper.unmountConfigVestaTable(Quill::String(table.name)); });
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

TolmarP4RuntimePluginLoader::TolmarP4RuntimePluginLoader()
    : PluginBase(P4Runtime::DefaultPluginLoader(), "TolmarP4RuntimePlugin") {}

TolmarP4RuntimePluginLoader::~TolmarP4RuntimePluginLoader() = default;

void TolmarP4RuntimePluginLoader::init(P4Runtime::PluginContext* context) {
  plugin_ = Quill::allocate<TolmarP4RuntimePlugin>(Quill::Name("Tolmar"));
  plugin_->init(Quill::Ptr<P4Runtime::PluginContext>(context));
}

}  // namespace P4RuntimeTolmar

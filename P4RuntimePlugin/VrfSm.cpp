#include "P4RuntimePlugin/VrfSm.h"

#include "P4RuntimePlugin/LoadTime.h"
#include "P4RuntimePlugin/Trace.h"
#include "quill/Generic.h"
#include "table-service/TableRead.h"

namespace P4RuntimeTolmar {

using TolmarHwLib::L3IifTH3Config;
using TolmarHwLib::L3IifTH3Key;

namespace {

constexpr int kTraceLevel = 7;
constexpr const char* kSource = "./P4RuntimePlugin/VrfSm";

// The tracker in the generic interface.

using Quill::GenericArguments;
using Quill::GenericValue;
using Quill::PtrInterface;

/// The VRF as unsigned short; an empty value if there is no element for the key.
GenericValue vrfIdGet(const PtrInterface& object, GenericArguments key) {
  return Quill::genericCall<L3IifTH3Key>(
      [&object](const L3IifTH3Key& line) {
        const unsigned short* const vrf = Quill::genericObject<VrfSm>(object).vrfId().find(line);
        return vrf == nullptr ? GenericValue() : GenericValue(*vrf);
      },
      key);
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
     .set = &Quill::genericChange<&VrfSm::vrfIdIs>,
     .del = &Quill::genericChange<&VrfSm::vrfIdDel>,
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

VrfSm::VrfSm(const L3IifTH3ConfigPtr& l3IifTH3Config,
             const Quill::Ptr<P4Runtime::PluginContext>& pluginContext)
    : pluginContext_(pluginContext) {
  l3IifTH3ConfigIs(l3IifTH3Config);
  handleInitialized();
}

VrfSm::~VrfSm() {
  l3IifTH3ConfigDel();
  vrfIdDelAll();
}

Quill::Ptr<VrfSm> VrfSm::VrfSmIs(const L3IifTH3ConfigPtr& l3IifTH3Config,
                                 const Quill::Ptr<P4Runtime::PluginContext>& pluginContext) {
  return Quill::allocate<VrfSm>(l3IifTH3Config, pluginContext);
}

Quill::Ptr<VrfSm> vrfSmFactory(const Quill::Ptr<const L3IifTH3Config>& l3IifTH3Config,
                               const Quill::Ptr<P4Runtime::PluginContext>& pluginContext) {
  return VrfSm::VrfSmIs(l3IifTH3Config, pluginContext);
}

void VrfSm::hasNotificationActiveIs(bool active) {
  PtrInterface::hasNotificationActiveIs(active);
  l3IifTH3Config_.hasNotificationActiveIs(active);
}

void VrfSm::quillDoZombieReactors(bool zombie) { l3IifTH3Config_.zombieIs(*this, zombie); }

VrfSm::L3IifTH3ConfigPtr VrfSm::l3IifTH3Config() const { return l3IifTH3Config_.table(); }

void VrfSm::l3IifTH3ConfigIs(const L3IifTH3ConfigPtr& config) { l3IifTH3Config_.tableIs(*this, config); }

void VrfSm::l3IifTH3ConfigDel() { l3IifTH3Config_.tableDel(); }

void VrfSm::vrfIdIs(const L3IifTH3Key& key, unsigned short vrf) {
  vrfId_.set(key, vrf);
  vrfIdNotify(key);
}

void VrfSm::vrfIdDel(const L3IifTH3Key& key) {
  if (vrfId_.del(key)) vrfIdNotify(key);
}

void VrfSm::vrfIdDelAll() {
  for (auto line = vrfIdIterator(); line.nonNull(); line.next()) vrfIdDel(L3IifTH3Key(line.key()));
}

void VrfSm::handleInitialized() {
  static constinit const TracePoint trace{kTraceLevel, kSource, 40, "handleInitialized", "handleInitialized"};
  trace(kVrfSmTrace);
  initializedIs(true);
  vrfIdCollectionIs(pluginContext_->vrfIdCollection());
  if (const L3IifTH3ConfigPtr config = l3IifTH3Config()) {
    const auto count = [this](const auto& row) { handleL3IifTH3ConfigEntry(row.key); };
    Vesta::readTable(*config, [&] { Vesta::forEachRow(config->table(), count); });
  }
}

void VrfSm::handleL3IifTH3ConfigEntry(const L3IifTH3Key& key) {
  static constinit const TracePoint trace{kTraceLevel, kSource, 14, "handleL3IifTH3ConfigEntry",
                                          "handleL3IifTH3ConfigEntry"};
  if (!initialized_) return;
  trace(kVrfSmTrace);
  const L3IifTH3ConfigPtr config = l3IifTH3Config();  // held, because a handler may bind another table
  bool present = false;
  if (config) Vesta::readTable(*config, [&] { config->directLookup(key, present); });
  if (present) {
    add(*config, key);
  } else {
    del(key);
  }
}

void VrfSm::add(const L3IifTH3Config& config, const L3IifTH3Key& key) {
  // Two blanks, as operators' filters expect.
  static constinit const TracePoint traceKey{kTraceLevel, kSource, 17, "handleL3IifTH3ConfigEntry",
                                             "handleL3IifTH3ConfigEntry  add key %s"};
  static constinit const TracePoint traceVrf{kTraceLevel, kSource, 24, "handleL3IifTH3ConfigEntry",
                                             "handleL3IifTH3ConfigEntry add vrf %s refCount %s"};
  traceKey(kVrfSmTrace, key);
  unsigned short vrf = 0;
  Vesta::readTable(config, [&] {
    bool found = false;
    vrf = config.directLookup(key, found).vrf;
  });
  if (vrf == 0) return;
  vrfIdIs(key, vrf);
  const std::uint32_t count = vrfIdCollection_->vrfIdRefCountInc(P4Runtime::VrfId(vrf), 1);
  traceVrf(kVrfSmTrace, vrf, count);
}

void VrfSm::del(const L3IifTH3Key& key) {
  static constinit const TracePoint traceKey{kTraceLevel, kSource, 27, "handleL3IifTH3ConfigEntry",
                                             "handleL3IifTH3ConfigEntry del key %s"};
  static constinit const TracePoint traceVrf{kTraceLevel, kSource, 32, "handleL3IifTH3ConfigEntry",
                                             "handleL3IifTH3ConfigEntry del vrf %s refCount %s"};
  traceKey(kVrfSmTrace, key);
  const unsigned short* const line = vrfId_.find(key);
  if (line == nullptr) return;
  const unsigned short vrf = *line;
  const std::uint32_t count = vrfIdCollection_->vrfIdRefCountDec(P4Runtime::VrfId(vrf), 1);
  traceVrf(kVrfSmTrace, vrf, count);
  vrfIdDel(key);
}

VrfSm::QuillL3IifTH3Config::~QuillL3IifTH3Config() = default;

void VrfSm::QuillL3IifTH3Config::onTable(const L3IifTH3Key& key) {
  if (const auto tracker = owner()) tracker->handleL3IifTH3ConfigEntry(key);
}

// Rows already present are counted by handleInitialized only.
void VrfSm::QuillL3IifTH3Config::onTablequillImmediate() {}

}  // namespace P4RuntimeTolmar

#include "p4runtime/P4RuntimePluginBase.h"

#include <optional>

#include "orrery/EntityManager.h"
#include "quill/Attribute.h"
#include "quill/Generic.h"

namespace P4Runtime {

namespace {

using Quill::genericAttribute;

constexpr Quill::Member kMembers[] = {
    Quill::genericReader<&P4RuntimePluginBase::pluginName>("pluginName"),
    genericAttribute<&P4RuntimePluginBase::cliConfig, &P4RuntimePluginBase::cliConfigIs>(
        "cliConfig", "P4Runtime::CliCommandConfig"),
    genericAttribute<&P4RuntimePluginBase::cliStatus, &P4RuntimePluginBase::cliStatusIs>(
        "cliStatus", "P4Runtime::CliCommandStatus"),
    genericAttribute<&P4RuntimePluginBase::pluginContext, &P4RuntimePluginBase::pluginContextIs>(
        "pluginContext", "P4Runtime::PluginContext"),
    genericAttribute<&P4RuntimePluginBase::pluginConfigDir, &P4RuntimePluginBase::pluginConfigDirIs>(
        "pluginConfigDir", "Quill::Entity"),
    genericAttribute<&P4RuntimePluginBase::pluginStatusDir, &P4RuntimePluginBase::pluginStatusDirIs>(
        "pluginStatusDir", "Quill::Entity"),
    genericAttribute<&P4RuntimePluginBase::allPluginConfig, &P4RuntimePluginBase::allPluginConfigIs>(
        "allPluginConfig", "P4Runtime::AllPluginConfig"),
    genericAttribute<&P4RuntimePluginBase::pluginStatus, &P4RuntimePluginBase::pluginStatusIs>(
        "pluginStatus", "P4Runtime::PluginStatus"),
    genericAttribute<&P4RuntimePluginBase::pluginCleanupSm, &P4RuntimePluginBase::pluginCleanupSmIs>(
        "pluginCleanupSm", "P4Runtime::PluginCleanupSm"),
    Quill::genericOperation<&P4RuntimePluginBase::init>("init"),
    genericAttribute<&P4RuntimePluginBase::pluginCleanupHelper, &P4RuntimePluginBase::pluginCleanupHelperIs>(
        "pluginCleanupHelper", "P4Runtime::PluginCleanupHelper"),
    genericAttribute<&P4RuntimePluginBase::defaultPluginCleanupHelper,
                     &P4RuntimePluginBase::defaultPluginCleanupHelperIs>("defaultPluginCleanupHelper",
                                                                         "P4Runtime::PluginCleanupHelper"),
};

Quill::Ptr<Quill::NotifieeConst> genericNotifiee(const Quill::Ptr<const Quill::PtrInterface>& plugin,
                                                 Quill::GenericObserver observer) {
  return genericPluginNotifieeIs<P4RuntimePluginBase::NotifieeConst>(plugin, std::move(observer));
}

}  // namespace

constinit const Quill::TypeNode P4RuntimePluginBase::_quillType{.name = "P4Runtime::P4RuntimePluginBase",
                                                                .members = kMembers,
                                                                .base = &Orrery::Mounter::_quillType,
                                                                .genericNotifiee = &genericNotifiee};

P4RuntimePluginBase::P4RuntimePluginBase(const Quill::Name& name)
    : Typed(name), pluginStatus_(Quill::allocate<PluginStatus>(name)) {}

P4RuntimePluginBase::~P4RuntimePluginBase() {
  if (pluginContext_) pluginContext_->pluginDel(this);
}

void P4RuntimePluginBase::pluginInit(const Quill::Ptr<PluginContext>&) {}

void P4RuntimePluginBase::init(const Quill::Ptr<PluginContext>& context) {
  pluginContextIs(context);
  const auto config = context ? context->allPluginConfig() : nullptr;
  if (config) {
    allPluginConfigIs(config);
    pluginCleanupSmIs(Quill::allocate<PluginCleanupSm>(config, this));
  }
  defaultPluginCleanupHelperIs(
      Quill::allocate<PluginCleanupHelper>(allPluginConfig_, pluginStatus_, Quill::Ptr<CliCommandConfig>()));
  std::optional<Orrery::MountGroup> mounts;
  if (context && context->entityManager()) mounts.emplace(*this, context->entityManager());
  pluginInit(context);
}

void P4RuntimePluginBase::requestCleanup() {
  const auto helper = pluginCleanupHelper_ ? pluginCleanupHelper_ : defaultPluginCleanupHelper_;
  if (helper) helper->handleCleanupRequest();
}

void P4RuntimePluginBase::cliConfigIs(const Quill::Ptr<CliCommandConfig>& value) {
  Quill::attributeIs(*this, cliConfig_, value, &NotifieeConst::onCliConfig);
}

void P4RuntimePluginBase::cliStatusIs(const Quill::Ptr<CliCommandStatus>& value) {
  Quill::attributeIs(*this, cliStatus_, value, &NotifieeConst::onCliStatus);
}

void P4RuntimePluginBase::pluginContextIs(const Quill::Ptr<PluginContext>& value) {
  if (value == pluginContext_) return;
  if (pluginContext_) pluginContext_->pluginDel(this);
  if (value) value->pluginIs(this);
  Quill::attributeIs(*this, pluginContext_, value, &NotifieeConst::onPluginContext);
}

void P4RuntimePluginBase::pluginConfigDirIs(const Quill::Ptr<Quill::Entity>& value) {
  Quill::attributeIs(*this, pluginConfigDir_, value, &NotifieeConst::onPluginConfigDir);
}

void P4RuntimePluginBase::pluginStatusDirIs(const Quill::Ptr<Quill::Entity>& value) {
  Quill::attributeIs(*this, pluginStatusDir_, value, &NotifieeConst::onPluginStatusDir);
}

void P4RuntimePluginBase::allPluginConfigIs(const Quill::Ptr<const AllPluginConfig>& value) {
  Quill::attributeIs(*this, allPluginConfig_, value, &NotifieeConst::onAllPluginConfig);
}

void P4RuntimePluginBase::pluginStatusIs(const Quill::Ptr<PluginStatus>& value) {
  Quill::attributeIs(*this, pluginStatus_, value, &NotifieeConst::onPluginStatus);
}

void P4RuntimePluginBase::pluginCleanupSmIs(const Quill::Ptr<PluginCleanupSm>& value) {
  Quill::attributeIs(*this, pluginCleanupSm_, value, &NotifieeConst::onPluginCleanupSm);
}

void P4RuntimePluginBase::pluginCleanupHelperIs(const Quill::Ptr<PluginCleanupHelper>& value) {
  Quill::attributeIs(*this, pluginCleanupHelper_, value, &NotifieeConst::onPluginCleanupHelper);
}

void P4RuntimePluginBase::defaultPluginCleanupHelperIs(const Quill::Ptr<PluginCleanupHelper>& value) {
  Quill::attributeIs(*this, defaultPluginCleanupHelper_, value, &NotifieeConst::onDefaultPluginCleanupHelper);
}

constinit const Quill::TypeNode P4RuntimePluginBase::NotifieeConst::_quillType{
    .name = "P4Runtime::P4RuntimePluginBase::NotifieeConst", .members = {}};
P4RuntimePluginBase::NotifieeConst::~NotifieeConst() = default;
void P4RuntimePluginBase::NotifieeConst::onCliConfig() { observe("cliConfig"); }
void P4RuntimePluginBase::NotifieeConst::onCliStatus() { observe("cliStatus"); }
void P4RuntimePluginBase::NotifieeConst::onPluginContext() { observe("pluginContext"); }
void P4RuntimePluginBase::NotifieeConst::onPluginConfigDir() { observe("pluginConfigDir"); }
void P4RuntimePluginBase::NotifieeConst::onPluginStatusDir() { observe("pluginStatusDir"); }
void P4RuntimePluginBase::NotifieeConst::onAllPluginConfig() { observe("allPluginConfig"); }
void P4RuntimePluginBase::NotifieeConst::onPluginStatus() { observe("pluginStatus"); }
void P4RuntimePluginBase::NotifieeConst::onPluginCleanupSm() { observe("pluginCleanupSm"); }
void P4RuntimePluginBase::NotifieeConst::onPluginCleanupHelper() { observe("pluginCleanupHelper"); }
void P4RuntimePluginBase::NotifieeConst::onDefaultPluginCleanupHelper() {
  observe("defaultPluginCleanupHelper");
}

}  // namespace P4Runtime

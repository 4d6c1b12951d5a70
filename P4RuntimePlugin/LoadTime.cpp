// All objects of the plugin that register something at load, in the order of registration, which agents and
// tools see. They are in one source because the order between sources depends on the linker. The generators
// of the row operations come before, from P4RuntimeTolmarTypes.cpp. At unload the order is reversed, so
// objects that the plugin object needs until its destruction stand above the loader.
#include "P4RuntimePlugin/LoadTime.h"

#include <array>

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"

namespace P4RuntimeTolmar {

const Quill::TraceHandle kPendingHwPogrammingTrace("PendingHwPogrammingSm");
const Quill::TraceHandle kVrfSmTrace("VrfSm");
// First use, which makes the handle: reactors may trace until the plugin object is destroyed.
[[maybe_unused]] const Quill::TraceHandle& kPluginTrace = pluginTrace();

namespace {

struct TypeRegistration {
  explicit TypeRegistration(const Quill::TypeNode& type) { Quill::typeNodeIs(&type); }
};
template <class Kind>
struct TrackerTypeRegistration : TypeRegistration {
  TrackerTypeRegistration() : TypeRegistration(TolmarHwLib::TrackerOf<Kind>::type::_quillType) {}
};

const TolmarHwLib::InOrder<TrackerTypeRegistration, TolmarHwLib::TrackerTypeOrder> trackerTypes;
const TypeRegistration pluginType(TolmarP4RuntimePlugin::_quillType);
const TypeRegistration cleanupHelperType(PluginCleanupHelper::_quillType);

}  // namespace

const Quill::String kMountPathPrefix(TolmarHwLib::kOutputTablePrefix);

namespace {

TolmarP4RuntimePluginLoader loader;

const TypeRegistration vrfSmType(VrfSm::_quillType);

template <class... Kind>
constexpr auto typeManifest(TolmarHwLib::KindList<Kind...>) {
  return std::array{TolmarHwLib::TrackerOf<Kind>::type::kTypeName...,
                    TolmarHwLib::FixedText{"P4RuntimeTolmar::PluginCleanupHelper"},
                    TolmarHwLib::FixedText{"P4RuntimeTolmar::TolmarP4RuntimePlugin"},
                    TolmarHwLib::FixedText{"P4RuntimeTolmar::VrfSm"}};
}

// The types that the library defines, for tools that read the file. One array, because the compiler may
// reorder separate ones; each name is padded with zeros.
[[gnu::section(".quill.type"), gnu::used, gnu::retain]] constexpr auto kTypeManifest =
    typeManifest(TolmarHwLib::Kinds());

}  // namespace

}  // namespace P4RuntimeTolmar

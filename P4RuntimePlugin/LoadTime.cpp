// All objects of the plugin that register something when the library is loaded, in the order in which they
// do: agents and tools see this order, and objects spread over several sources keep theirs only by the
// linker's grace. The row-operations generators come before, from the row classes' own source. At unload the
// order is reversed, so what the plugin object needs until its end stands above the loader.
#include "P4RuntimePlugin/LoadTime.h"

#include <array>

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "P4RuntimePlugin/PluginTrace.h"

namespace P4RuntimeTolmar {

const Quill::TraceHandle kPendingHwPogrammingTrace("PendingHwPogrammingSm");
const Quill::TraceHandle kVrfSmTrace("VrfSm");
// First use, which makes it: reactors may trace until the plugin object has ended.
[[maybe_unused]] const Quill::TraceHandle& kPluginTrace = pluginTrace();

namespace {

struct TypeRegistration {
  explicit TypeRegistration(const Quill::TypeNode& type) { Quill::typeNodeIs(&type); }
};
template <class Kind>
struct TrackerTypeRegistration : TypeRegistration {
  TrackerTypeRegistration() : TypeRegistration(TolmarHwLib::TrackerOf<Kind>::Type::_quillType) {}
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
  return std::array{TolmarHwLib::TrackerOf<Kind>::Type::kTypeName...,
                    TolmarHwLib::FixedText{"P4RuntimeTolmar::PluginCleanupHelper"},
                    TolmarHwLib::FixedText{"P4RuntimeTolmar::TolmarP4RuntimePlugin"},
                    TolmarHwLib::FixedText{"P4RuntimeTolmar::VrfSm"}};
}

// The types that the library defines, for readers of the file. One array, since separate ones are reordered
// by optimisation; each name is filled up with zeros.
[[gnu::section(".quill.type"), gnu::used, gnu::retain]] constexpr auto kTypeManifest =
    typeManifest(TolmarHwLib::Kinds());

}  // namespace

}  // namespace P4RuntimeTolmar

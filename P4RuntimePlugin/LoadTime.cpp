// All objects of the plugin that register something when the library is loaded, in the order in which they
// do: agents and tools see this order, and objects spread over several sources keep theirs only by the
// linker's grace. The row-operations generators come before, from the row classes' own source. At unload the
// order is reversed, so what the plugin object needs until its end stands above the loader.
#include "P4RuntimePlugin/LoadTime.h"

#include "P4RuntimePlugin/P4RuntimeTolmarPluginLoader.h"
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

const TypeRegistration l3IifSmType(TolmarHwLib::L3IifTH3PendingHwProgrammingSm::_quillType);
const TypeRegistration myStationTcamSmType(TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm::_quillType);
const TypeRegistration l3TunnelSmType(TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm::_quillType);

const TypeRegistration pluginType(TolmarP4RuntimePlugin::_quillType);
const TypeRegistration cleanupHelperType(PluginCleanupHelper::_quillType);

}  // namespace

const Quill::String kMountPathPrefix = "p4runtime/outputTables/tolmar/";

namespace {

TolmarP4RuntimePluginLoader loader;

const TypeRegistration vrfSmType(VrfSm::_quillType);

// The types that the library defines, for readers of the file. One array, since separate ones are reordered
// by optimisation; each name is filled up with zeros.
[[gnu::section(".quill.type"), gnu::used, gnu::retain]] const char kTypeManifest[][64] = {
    "TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm", "TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm",
    "TolmarHwLib::L3IifTH3PendingHwProgrammingSm",    "P4RuntimeTolmar::PluginCleanupHelper",
    "P4RuntimeTolmar::TolmarP4RuntimePlugin",         "P4RuntimeTolmar::VrfSm",
};

}  // namespace

}  // namespace P4RuntimeTolmar

// Tells the row database the columns of the row classes, so that an agent can build and print their rows
// without the plugin.
#include "P4RuntimeTolmar/RowLayout.h"
#include "lumen/LumenDB.h"

namespace TolmarHwLib {

namespace {

template <class Entry>
bool tellIfNamed(std::string_view rowTypeName, Lumen::LmClassMetadata& metadata) {
  using Layout = RowLayout<Entry>;
  if (rowTypeName != RowSchema<Entry>::rowTypeName) return false;
  metadata = {Layout::descriptor(), Layout::kKeyFirst, Layout::kKeyEnd - Layout::kKeyFirst};
  return true;
}

bool tellMetadata(std::string_view rowTypeName, Lumen::LmClassMetadata& metadata) {
  return tellIfNamed<L3TunnelTH3ConfigEntry>(rowTypeName, metadata) ||
         tellIfNamed<L3TunnelTH3StatusEntry>(rowTypeName, metadata) ||
         tellIfNamed<MyStationTcamTH3ConfigEntry>(rowTypeName, metadata) ||
         tellIfNamed<MyStationTcamTH3StatusEntry>(rowTypeName, metadata) ||
         tellIfNamed<L3IifTH3ConfigEntry>(rowTypeName, metadata) ||
         tellIfNamed<L3IifTH3StatusEntry>(rowTypeName, metadata);
}

struct Registration {
  Registration() { Lumen::LumenDB::metadataSourceIs(&tellMetadata); }
  ~Registration() { Lumen::LumenDB::metadataSourceDel(&tellMetadata); }
};
const Registration registration;

}  // namespace

}  // namespace TolmarHwLib

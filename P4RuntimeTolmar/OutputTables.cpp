// What the hardware library registers of every kind while it is loaded: the types of its entities, by whose
// names the entity manager makes them, and the metadata of its rows, so that an agent can build and print
// them without the plugin.
#include "P4RuntimeTolmar/OutputTables.h"

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
  bool known = false;
  Kinds::forEach([&]<class Kind>() {
    known = known || tellIfNamed<typename Kind::ConfigEntry>(rowTypeName, metadata) ||
            tellIfNamed<typename Kind::StatusEntry>(rowTypeName, metadata);
  });
  return known;
}

struct Registration {
  Registration() {
    Kinds::forEach([]<class Kind>() {
      Quill::typeNodeIs(&Kind::Config::_quillType);
      Quill::typeNodeIs(&Kind::Status::_quillType);
    });
    Lumen::LumenDB::metadataSourceIs(&tellMetadata);
  }
  ~Registration() { Lumen::LumenDB::metadataSourceDel(&tellMetadata); }
};
const Registration registration;

}  // namespace

}  // namespace TolmarHwLib

// Registrations of every kind at the load of the hardware library: the entity types, by whose names the
// entity manager makes entities, and the metadata of the rows, with which an agent builds and prints rows
// without the plugin.
#include "P4RuntimeTolmar/OutputTables.h"

#include "lumen/LumenDB.h"

namespace TolmarHwLib {

namespace {

template <class Entry>
bool metadataIfNamed(std::string_view rowTypeName, Lumen::LmClassMetadata& metadata) {
  using Layout = RowLayout<Entry>;
  if (rowTypeName != RowSchema<Entry>::rowTypeName) return false;
  metadata = {Layout::descriptor(), Layout::kKeyFirst, Layout::kKeyEnd - Layout::kKeyFirst};
  return true;
}

bool findMetadata(std::string_view rowTypeName, Lumen::LmClassMetadata& metadata) {
  bool known = false;
  Kinds::forEach([&]<class Kind>() {
    known = known || metadataIfNamed<typename Kind::ConfigEntry>(rowTypeName, metadata) ||
            metadataIfNamed<typename Kind::StatusEntry>(rowTypeName, metadata);
  });
  return known;
}

struct Registration {
  Registration() {
    Kinds::forEach([]<class Kind>() {
      Quill::typeNodeIs(&Kind::Config::_quillType);
      Quill::typeNodeIs(&Kind::Status::_quillType);
    });
    Lumen::LumenDB::metadataSourceIs(&findMetadata);
  }
  ~Registration() { Lumen::LumenDB::metadataSourceDel(&findMetadata); }
};
const Registration registration;

}  // namespace

}  // namespace TolmarHwLib

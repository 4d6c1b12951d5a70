// The row database.
#pragma once

#include <cstdint>
#include <string_view>

#include "lumen/LmClass.h"

namespace Lumen {

class LumenDB {
 public:
  // Metadata of row classes, one set for the process. Row type numbers are given from 1 on, in the order in
  // which the classes are first loaded. Used from one thread.

  /// The class called `rowTypeName`, or null if its metadata is not loaded. Valid for the life of the
  /// process.
  static const LmClass* lmClass(std::string_view rowTypeName);
  /// The class whose rows carry `oid` in their headers, or null.
  static const LmClass* lmClass(std::uint16_t oid);
  /// Loads the metadata of that name from the registered sources; no effect if it is loaded already. Throws
  /// LmMetadataError if no source knows it.
  static void metadataIs(std::string_view rowTypeName);
  /// Row type number of `rowTypeName`. Unless `loadedOnly`, metadata that is missing is loaded first. Throws
  /// LmMetadataError if there is none.
  static std::uint32_t tableTypeId(std::string_view rowTypeName, bool loadedOnly);

  /// Tells the metadata of `rowTypeName` if it has any.
  using MetadataSource = bool (*)(std::string_view rowTypeName, LmClassMetadata& metadata);
  /// Adds a source; sources are asked in order of registration. It stays until metadataSourceDel.
  static void metadataSourceIs(MetadataSource source);
  static void metadataSourceDel(MetadataSource source);
};

}  // namespace Lumen

// The row database.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "lumen/LmClass.h"
#include "lumen/LmTable.h"
#include "quill/Registrant.h"

namespace Lumen {

/// The tables of rows of one process, by name. Thread safety: none; used on the thread that runs the
/// framework's callbacks.
class LumenDB {
 public:
  LumenDB() = default;
  LumenDB(const LumenDB&) = delete;
  LumenDB& operator=(const LumenDB&) = delete;
  virtual ~LumenDB();

  /// Registers a table of rows of type `rowTypeName`; it can be used once it has an implementation. See
  /// TableRegistration for the hints and the folder. Repeating a registration changes nothing; a different
  /// one under the same name is LmTableError. Throws LmMetadataError for an unknown row type.
  virtual void registerTable(const std::string& tableName, const std::string& rowTypeName, TableType type,
                             std::uint16_t rowsHint, std::uint16_t changesHint, const std::string& folder,
                             const IndexMap& indexMap);
  /// Has the registered table served by `implementation` from now on. Throws LmTableError for an unknown
  /// table, or an implementation of another row type or of another table, or if the current registrant would
  /// replace the implementation of another one.
  virtual void tableImplementationIs(const std::string& tableName,
                                     std::shared_ptr<LmTableImplementation> implementation);
  /// Drops the table's implementation; the table stays registered. Throws LmTableError for an unknown table.
  /// To be called before the library that made the implementation is unloaded.
  void tableImplementationDel(const std::string& tableName);
  /// The same for every table whose implementation came from that registrant.
  void tableImplementationDelAll(const Quill::Registrant& registrant);

  /// The table of that name, or null.
  std::shared_ptr<LmTable> table(std::string_view tableName) const;
  /// All tables, in order of registration.
  const std::vector<std::shared_ptr<LmTable>>& tables() const noexcept { return tables_; }

  // Metadata of row classes, one set for the process. Row type numbers start at 1 and are assigned in the
  // order in which the classes are first loaded. Used from one thread.

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

  /// Supplies the metadata of `rowTypeName`; false if it has none.
  using MetadataSource = bool (*)(std::string_view rowTypeName, LmClassMetadata& metadata);
  /// Adds a source; sources are asked in order of registration. It stays until metadataSourceDel.
  static void metadataSourceIs(MetadataSource source);
  static void metadataSourceDel(MetadataSource source);

 private:
  LmTable& registered(const std::string& tableName) const;
  void serve(LmTable& table, const std::shared_ptr<LmTableImplementation>& implementation);

  std::vector<std::shared_ptr<LmTable>> tables_;
  std::map<std::string, const Quill::Registrant*> registrants_;  // of implementations, by table; not owned
};

}  // namespace Lumen

// Access to the two services that every output table needs: mounting in shared memory and registration with
// the agent's row database.
#pragma once

#include <memory>

#include "P4RuntimeTolmar/Names.h"
#include "lumen/LumenDB.h"
#include "orrery/Mount.h"
#include "quill/String.h"

namespace P4Runtime {

/// A copyable value that holds no table. Tables are named by their short name, such as "l3IifTH3". Exceptions
/// of the two services pass through; mounts and registrations made before an exception remain.
class P4RuntimePluginHelper {
 public:
  /// `pathPrefix` ends in "/".
  P4RuntimePluginHelper(std::shared_ptr<Lumen::LumenDB> lumenDb,
                        Quill::Ptr<const Orrery::EntityManager> entityManager, Quill::String pathPrefix)
      : lumenDb_(std::move(lumenDb)),
        entityManager_(std::move(entityManager)),
        pathPrefix_(std::move(pathPrefix)) {}

  Quill::String vestaPathConfig(Quill::String tableName) const;

  /// Mounts the config table, written by this process, and the status table, written by the hardware agent.
  /// `typePrefix` is the qualified name of the entity types without "Config" or "Status", `capacity` the
  /// maximum number of entries of each table. The first character of `collectionName` is lower-cased.
  void mountVestaTables(Quill::String typePrefix, Quill::String tableName, Quill::String collectionName,
                        unsigned capacity);
  /// Removes the config table's files and releases it; the status table stays mounted.
  void unmountConfigVestaTable(Quill::String tableName);

  /// The entity mounted at the config path of the table; null if there is none or it has another type.
  template <class Config>
  typename Config::Ptr tableConfig(Quill::String tableName) const {
    return mounted<Config>(vestaPathConfig(std::move(tableName)));
  }
  /// The same for the status path.
  template <class Status>
  typename Status::Ptr tableStatus(Quill::String tableName) const {
    return mounted<Status>(TolmarHwLib::statusPath(pathPrefix_, tableName));
  }

  /// Registers the config table as "Lumen<TableName>ConfigTable", served by a new `Wrapper` that the row
  /// database owns. A null `config` makes an empty table that refuses writes.
  template <class Config, class EntryRow, class Wrapper>
  void registerConfigTable(typename Config::Ptr config, Quill::String tableName) {
    const auto wrapper = std::make_shared<Wrapper>(std::move(config), lumenDb_, /*tableOps=*/nullptr,
                                                   /*modifierSupported=*/true,
                                                   /*readerSupported=*/true, /*observerSupported=*/false);
    registerWrapper(TolmarHwLib::rowTableName(tableName), std::string(EntryRow::rowTypeName()), wrapper);
  }

 private:
  void registerWrapper(const Quill::String& lumenTableName, const std::string& rowTypeName,
                       const std::shared_ptr<Lumen::LmTableImplementation>& wrapper);

  template <class Entity>
  typename Entity::Ptr mounted(const Quill::String& path) const {
    const QuillVesta::Mount mount(entityManager_);
    return Quill::ptrCast<Entity>(mount.getEntity(path));
  }

  std::shared_ptr<Lumen::LumenDB> lumenDb_;
  Quill::Ptr<const Orrery::EntityManager> entityManager_;
  Quill::String pathPrefix_;
};

}  // namespace P4Runtime

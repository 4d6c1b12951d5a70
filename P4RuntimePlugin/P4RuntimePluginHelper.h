// The road to the two services that every hardware table is tied to: its mounts in shared memory and its
// registration with the agent's row database.
#pragma once

#include <memory>

#include "P4RuntimeTolmar/Names.h"
#include "lumen/LumenDB.h"
#include "orrery/Mount.h"
#include "quill/String.h"

namespace P4Runtime {

/// A value, copied freely; it keeps no table objects. A table goes by its short name, such as "l3IifTH3".
/// Failures of the two services pass through; mounts and registrations made before the failure stay.
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
  /// `typePrefix` is the entity types' qualified name without "Config" or "Status"; `capacity` is the
  /// greatest number of entries of each table. The first character of `collectionName` is lower-cased.
  void mountVestaTables(Quill::String typePrefix, Quill::String tableName, Quill::String collectionName,
                        unsigned capacity);
  /// Removes the config table's files and releases it; the status table stays mounted.
  void unmountConfigVestaTable(Quill::String tableName);

  /// The entity mounted at the table's config path, or null when there is none or one of another type.
  template <class Config>
  typename Config::Ptr tableConfig(Quill::String tableName) const {
    return mounted<Config>(vestaPathConfig(std::move(tableName)));
  }
  /// The same for the status path.
  template <class Status>
  typename Status::Ptr tableStatus(Quill::String tableName) const {
    return mounted<Status>(TolmarHwLib::statusPath(pathPrefix_, tableName));
  }

  /// Registers the config table (null: an empty one that refuses writes) as "Lumen<TableName>ConfigTable" and
  /// has it served by a new `Wrapper`, which the row database then owns.
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

// The state database and the row database as a plugin sees them, real in all they do, with one log of all
// calls.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cairn/Exception.h"
#include "lumen/LumenDB.h"
#include "orrery/EntityManager.h"

using Log = std::vector<std::string>;

class RecordingEntityManager final : public Orrery::EntityManager {
 public:
  RecordingEntityManager(const std::string& folder, Quill::EventLoop& loop, Log& log)
      : EntityManager(folder, loop), log_(log) {}

  std::string refused;  ///< a call whose line this is fails before it does anything

  Quill::Ptr<QuillVesta::TableEntity> mount(const Quill::String& path, const Quill::String& typeName,
                                            const QuillVesta::MountDescription& description) const override {
    record("mount " + shortPath(path) + " " + typeName + " " +
           std::to_string(static_cast<int>(description.type())) + " " + description.collection() + " " +
           std::to_string(description.capacity()));
    return EntityManager::mount(path, typeName, description);
  }
  Quill::Ptr<Quill::Entity> entity(const Quill::String& path) const override {
    record("entity " + shortPath(path));
    return EntityManager::entity(path);
  }
  void cleanup(const Quill::String& path) const override {
    record("cleanup " + shortPath(path));
    EntityManager::cleanup(path);
  }
  void unmount(const Quill::String& path) const override {
    record("unmount " + shortPath(path));
    EntityManager::unmount(path);
  }

 private:
  /// "~" stands for the folder of the hardware tables.
  static std::string shortPath(const std::string& path) {
    constexpr std::string_view kFolder = "p4runtime/outputTables/tolmar/";
    return path.starts_with(kFolder) ? std::string("~").append(path, kFolder.size()) : path;
  }
  void record(const std::string& line) const {
    log_.push_back(line);
    if (line == refused) throw Cairn::Exception("refused " + line);
  }

  Log& log_;
};

class RecordingLumenDB final : public Lumen::LumenDB {
 public:
  explicit RecordingLumenDB(Log& log) : log_(log) {}

  void registerTable(const std::string& tableName, const std::string& rowTypeName, Lumen::TableType type,
                     std::uint16_t rowsHint, std::uint16_t changesHint, const std::string& folder,
                     const Lumen::IndexMap& indexMap) override {
    log_.push_back("register " + tableName + " " + rowTypeName + " " +
                   std::to_string(static_cast<int>(type)) + " " + std::to_string(rowsHint) + " " +
                   std::to_string(changesHint) + " \"" + folder + "\" " + std::to_string(indexMap.size()));
    LumenDB::registerTable(tableName, rowTypeName, type, rowsHint, changesHint, folder, indexMap);
  }
  void tableImplementationIs(const std::string& tableName,
                             std::shared_ptr<Lumen::LmTableImplementation> implementation) override {
    log_.push_back("serve " + tableName);
    LumenDB::tableImplementationIs(tableName, std::move(implementation));
  }

 private:
  Log& log_;
};

// The platform as the plugin sees it, real in all it does, with one log of all calls.
#pragma once

#include <string>
#include <vector>

#include "PluginFixture.h"
#include "cairn/Exception.h"
#include "lumen/LumenDB.h"
#include "orrery/EntityManager.h"
#include "p4runtime/PluginContext.h"
#include "quill/EventLoop.h"

using Log = std::vector<std::string>;

inline constexpr const char* kPrefix = "p4runtime/outputTables/tolmar/";

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
  static std::string shortPath(const std::string& path) {
    if (!path.starts_with(kPrefix)) return path;
    return std::string("~").append(path, std::string_view(kPrefix).size());
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

class RecordingBatchStatus final : public P4Runtime::BatchStatus {
 public:
  explicit RecordingBatchStatus(Log& log) : log_(log) {}
  void completedTransactionStatusIs(const P4Runtime::BatchStatusEntry& entry) override {
    log_.push_back("completed " + std::to_string(entry.entryHandle) + " " + std::to_string(entry.errorCode));
    BatchStatus::completedTransactionStatusIs(entry);
  }

 private:
  Log& log_;
};

/// A plugin context over such a platform.
class RecordingPlatform : public PluginFixture {
 protected:
  void TearDown() override {
    context_ = nullptr;
    vrfs_ = nullptr;
    batch_ = nullptr;
    // A wrapper holds the database that holds it.
    for (const auto& table : lumenDb_->tables()) lumenDb_->tableImplementationDel(table->name());
    lumenDb_ = nullptr;
    entityManager_ = nullptr;
    config_ = nullptr;
    PluginFixture::TearDown();
  }

  Log taken() { return std::exchange(log_, {}); }

  Log log_;
  Quill::EventLoop loop_;
  Quill::Ptr<RecordingEntityManager> entityManager_ =
      Quill::allocate<RecordingEntityManager>(folder_.path(), loop_, log_);
  std::shared_ptr<RecordingLumenDB> lumenDb_ = std::make_shared<RecordingLumenDB>(log_);
  Quill::Ptr<RecordingBatchStatus> batch_ = Quill::allocate<RecordingBatchStatus>(log_);
  Quill::Ptr<P4Runtime::VrfIdCollection> vrfs_ = Quill::allocate<P4Runtime::VrfIdCollection>();
  Quill::Ptr<P4Runtime::AllPluginConfig> config_ =
      Quill::allocate<P4Runtime::AllPluginConfig>(Quill::Name("allPluginConfig"));
  Quill::Ptr<P4Runtime::PluginContext> context_ =
      Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batch_, vrfs_);
};

// The platform, real in all it does, with one log of all calls; and what the plugin traces.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <sstream>

#include "lumen/LumenDB.h"
#include "orrery/EntityManager.h"
#include "p4runtime/PluginContext.h"
#include "quill/Generic.h"
#include "quill/TraceHandle.h"
#include "skein/Skein.h"
#include "skein/TraceReader.h"
#include "tests/NothingLeft.h"
#include "tests/RuntimeFolder.h"

using Log = std::vector<std::string>;

/// Base of the parts of the platform that write to the common log.
struct Recording {
  Log& log;
};

struct RecordingEntityManager final : Recording, Orrery::EntityManager {
  RecordingEntityManager(const std::string& folder, Quill::EventLoop& loop, Log& all)
      : Recording{all}, EntityManager(folder, loop) {}

  std::string refused;  ///< a call whose line this is fails before it does anything

  Quill::Ptr<QuillVesta::TableEntity> mount(const Quill::String& path, const Quill::String& typeName,
                                            const QuillVesta::MountDescription& description) const override {
    record("mount " + path + " " + typeName + " " + std::to_string(static_cast<int>(description.type())) +
           " " + description.collection() + " " + std::to_string(description.capacity()));
    return EntityManager::mount(path, typeName, description);
  }
  Quill::Ptr<Quill::Entity> entity(const Quill::String& path) const override {
    record("entity " + path);
    return EntityManager::entity(path);
  }
  void cleanup(const Quill::String& path) const override {
    record("cleanup " + path);
    EntityManager::cleanup(path);
  }
  void unmount(const Quill::String& path) const override {
    record("unmount " + path);
    EntityManager::unmount(path);
  }

 private:
  /// "~" stands for the folder of the hardware tables.
  void record(std::string line) const {
    constexpr std::string_view kFolder = "p4runtime/outputTables/tolmar/";
    const std::size_t at = line.find(kFolder);
    if (at != line.npos) line.erase(at, kFolder.size()).insert(at, 1, '~');
    log.push_back(line);
    if (line == refused) throw Cairn::Exception("refused " + line);
  }
};

struct RecordingLumenDB final : Recording, Lumen::LumenDB {
  explicit RecordingLumenDB(Log& all) : Recording{all} {}

  void registerTable(const std::string& tableName, const std::string& rowTypeName, Lumen::TableType type,
                     std::uint16_t rowsHint, std::uint16_t changesHint, const std::string& folder,
                     const Lumen::IndexMap& indexMap) override {
    std::ostringstream line;
    line << "register " << tableName << " " << rowTypeName << " " << static_cast<int>(type) << " " << rowsHint
         << " " << changesHint << " \"" << folder << "\" " << indexMap.size();
    log.push_back(line.str());
    LumenDB::registerTable(tableName, rowTypeName, type, rowsHint, changesHint, folder, indexMap);
  }
  void tableImplementationIs(const std::string& tableName,
                             std::shared_ptr<Lumen::LmTableImplementation> implementation) override {
    log.push_back("serve " + tableName);
    LumenDB::tableImplementationIs(tableName, std::move(implementation));
  }
};

struct RecordingBatchStatus final : Recording, P4Runtime::BatchStatus {
  explicit RecordingBatchStatus(Log& all) : Recording{all} {}

  std::function<void()> onCompleted;  ///< runs in the middle of a tracker's work; may be empty

  void completedTransactionStatusIs(const P4Runtime::BatchStatusEntry& entry) override {
    log.push_back("completed " + std::to_string(entry.entryHandle) + " " + std::to_string(entry.errorCode));
    BatchStatus::completedTransactionStatusIs(entry);
    if (onCompleted) onCompleted();
  }
};

inline Quill::Ptr<Quill::PtrInterface> pointer(const Quill::GenericValue& value) {
  return std::any_cast<Quill::Ptr<Quill::PtrInterface>>(value);
}

inline Quill::Ptr<const Quill::PtrInterface> constPointer(const Quill::GenericValue& value) {
  return std::any_cast<Quill::Ptr<const Quill::PtrInterface>>(value);
}

class PluginFixture : public ::testing::Test {
 protected:
  PluginFixture() {
    // All tests run a second time with atomic counting, asked for by the environment.
    Quill::PtrInterface::threadSafePtrsIs(std::getenv("TOLMAR_THREAD_SAFE_PTRS") != nullptr);
    Quill::TraceHandle::sinkIs([this](const Quill::TraceHandle::Line& l) {
      log_.push_back(traced(l.source, l.line, l.function, l.text) + " at " + std::to_string(l.level));
    });
  }
  // A wrapper holds the database that holds it.
  ~PluginFixture() override {
    for (const auto& table : lumenDb_->tables()) lumenDb_->tableImplementationDel(table->name());
    for (const auto& [handle, level] : tracing_) Quill::TraceHandle::levelIs(handle, level, false);
    Quill::TraceHandle::sinkIs(nullptr);
  }

  Log taken() { return std::exchange(log_, {}); }

  /// From here on what the handle traces at this level is logged, as "source:line function: text at level",
  /// without the line where it is that of the plugin's own source.
  void traceIs(const char* handle, int level) {
    tracing_.emplace_back(handle, level);
    Quill::TraceHandle::levelIs(handle, level, true);
    Skein::ringIs(folder_.path() + "/ring", 64 * 1024);
    before_ = 0;
    before_ = static_cast<std::ptrdiff_t>(fastTrace().size());
  }
  /// What has come to the fast trace since then, with "|value" behind it for each value.
  Log fastTrace() const {
    Log lines;
    for (const Skein::TraceRecord& record : Skein::readTrace(folder_.path() + "/ring")) {
      const Skein::TraceSite& site = *record.site;
      lines.push_back(traced(site.source, static_cast<int>(site.line), site.function, record.text()));
      for (const std::string& value : record.values) lines.back().append("|").append(value);
    }
    lines.erase(lines.begin(), lines.begin() + before_);
    return lines;
  }

  const NothingLeft nothingLeft_;
  const RuntimeFolder folder_;
  Log log_;
  Quill::EventLoop loop_;
  const Quill::Ptr<RecordingEntityManager> entityManager_ =
      Quill::allocate<RecordingEntityManager>(folder_.path(), loop_, log_);
  const std::shared_ptr<RecordingLumenDB> lumenDb_ = std::make_shared<RecordingLumenDB>(log_);
  const Quill::Ptr<RecordingBatchStatus> batch_ = Quill::allocate<RecordingBatchStatus>(log_);
  const Quill::Ptr<P4Runtime::VrfIdCollection> vrfs_ = Quill::allocate<P4Runtime::VrfIdCollection>();
  const Quill::Ptr<P4Runtime::PluginContext> context_ =
      Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batch_, vrfs_);

 private:
  static std::string traced(std::string_view source, int line, std::string_view function,
                            std::string_view text) {
    std::ostringstream result;
    result << source;
    if (!source.starts_with("./P4RuntimePlugin/P")) result << ":" << line;
    result << " " << function << ": " << text;
    return result.str();
  }

  std::vector<std::pair<const char*, int>> tracing_;
  std::ptrdiff_t before_ = 0;
};

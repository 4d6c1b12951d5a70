// A table in memory behind a real map, whose reads a test can spoil.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "cairn/DebugHandler.h"
#include "quill/Entity.h"
#include "vesta/VestaBase.h"

template <class Key, class Entry>
class ScriptedTable final : public Vesta::VestaBase<Key, Entry> {
 public:
  using Row = Vesta::Value<Key, Entry>;
  using Hint = Vesta::IterHint;

  explicit ScriptedTable(Vesta::RootPath path) : path_(std::move(path)) {}

  /// Calls `call` in the n-th read from now.
  void onReadIs(std::size_t n, std::function<void()> call) {
    reads_ = n;
    onRead_ = std::move(call);
  }
  /// Has the table found damaged in the n-th read from now.
  void damageIs(std::size_t n) {
    onReadIs(n, [] { throw Cairn::CorruptionDetectedException("row 3: bad checksum"); });
  }

  bool initialize() override { return true; }
  void detach() override {}
  bool write(const Row& value, bool) override { return rows_[value.key] = value, true; }
  bool remove(const Key& key, Row*) override { return rows_.erase(key) != 0; }
  const Row& lookup(const Key& key, bool& found, Hint*) override {
    read();
    const auto row = rows_.find(key);
    found = row != rows_.end();
    return found ? row->second : empty_;
  }
  bool first(Row& value, Hint&) override { return at(rows_.begin(), value); }
  bool next(const Key& key, Row& value, Hint&) override { return at(rows_.upper_bound(key), value); }
  std::size_t members() override { return read(), rows_.size(); }
  std::size_t minSize() override { return 0; }
  std::size_t maxSize() override { return 8192; }
  std::size_t capacity() override { return 8192; }
  Vesta::VestaType type() override { return Vesta::VestaType::writer; }
  Vesta::RootPath rootPath() override { return path_; }
  std::string vestaName() override { return path_.vestaName(); }
  Vesta::MountStatus mountStatus() override { return Vesta::MountStatus::mounted; }

 private:
  void read() {
    if (reads_ != 0 && --reads_ == 0) onRead_();
  }
  bool at(typename std::map<Key, Row>::const_iterator row, Row& value) {
    read();
    if (row != rows_.end()) value = row->second;
    return row != rows_.end();
  }

  Vesta::RootPath path_;
  std::map<Key, Row> rows_;
  std::size_t reads_ = 0;  // until the one that is spoilt
  std::function<void()> onRead_;
  Row empty_{};
};

/// An entity whose collection is such a table. Reports of damage go to `folder`, log lines to `logged`.
template <class Entity>
struct ScriptedEntity {
  using Table = ScriptedTable<typename Entity::Key, typename Entity::Entry>;

  explicit ScriptedEntity(const std::string& folder, const char* name = "table")
      : entity(Quill::allocate<Entity>(Quill::Name(name))), path_(folder, "tables", name) {
    std::filesystem::create_directory(folder + "/tables");
    handler_->sinkIs([this](const auto& message) { logged.append(message.text).append("\n"); });
    mount();
    entity->table().readyFunctionIs([] {});
  }
  ScriptedEntity(const ScriptedEntity&) = delete;
  ScriptedEntity& operator=(const ScriptedEntity&) = delete;

  /// Attaches an empty table, also in place of one found damaged.
  void mount() {
    table = new Table(path_);
    entity->table().attach(std::unique_ptr<Table>(table), handler_);
  }

  const Quill::Ptr<Entity> entity;
  Table* table = nullptr;  // owned by the entity's map, also behind the placeholder
  std::string logged;

 private:
  const Vesta::RootPath path_;
  const std::shared_ptr<Cairn::DebugHandler> handler_ = std::make_shared<Cairn::DebugHandler>();
};

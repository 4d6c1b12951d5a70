// A table in memory behind a real map, which can be told at which of its next reads it is found damaged.
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cairn/DebugHandler.h"
#include "quill/PtrInterface.h"
#include "vesta/VestaBase.h"

template <class Key, class Entry>
class ScriptedTable final : public Vesta::VestaBase<Key, Entry> {
 public:
  using Row = Vesta::Value<Key, Entry>;

  explicit ScriptedTable(Vesta::RootPath path) : path_(std::move(path)) {}

  std::size_t reads = 0;
  std::size_t damagedAtRead = 0;         ///< counted from 1; 0 for a sound table
  std::function<void()> justBeforehand;  ///< called when the damage is met; may be empty

  bool initialize() override { return true; }
  void detach() override {}
  bool write(const Row& value, bool) override {
    Row* const present = find(value.key);
    if (present != nullptr) {
      *present = value;
    } else {
      rows_.push_back(value);
    }
    return true;
  }
  bool remove(const Key& key, Row*) override {
    return std::erase_if(rows_, [&key](const Row& row) { return row.key == key; }) != 0;
  }
  const Row& lookup(const Key& key, bool& found, Vesta::IterHint*) override {
    read();
    const Row* const row = find(key);
    found = row != nullptr;
    return found ? *row : empty_;
  }
  bool first(Row& value, Vesta::IterHint&) override { return at(0, value); }
  bool next(const Key& key, Row& value, Vesta::IterHint&) override {
    const auto here =
        std::find_if(rows_.begin(), rows_.end(), [&key](const Row& row) { return row.key == key; });
    return at(static_cast<std::size_t>(here - rows_.begin()) + 1, value);
  }
  std::size_t members() override { return rows_.size(); }
  std::size_t minSize() override { return 0; }
  std::size_t maxSize() override { return 8192; }
  std::size_t capacity() override { return 8192; }
  Vesta::VestaType type() override { return Vesta::VestaType::writer; }
  Vesta::RootPath rootPath() override { return path_; }
  std::string vestaName() override { return path_.vestaName(); }
  Vesta::MountStatus mountStatus() override { return Vesta::MountStatus::mounted; }

 private:
  void read() {
    if (++reads != damagedAtRead) return;
    if (justBeforehand) justBeforehand();
    throw Cairn::CorruptionDetectedException("row 3: bad checksum");
  }
  bool at(std::size_t index, Row& value) {
    read();
    if (index >= rows_.size()) return false;
    value = rows_[index];
    return true;
  }
  Row* find(const Key& key) {
    const auto row =
        std::find_if(rows_.begin(), rows_.end(), [&key](const Row& one) { return one.key == key; });
    return row == rows_.end() ? nullptr : &*row;
  }

  Vesta::RootPath path_;
  std::vector<Row> rows_;
  Row empty_{};
};

/// An entity whose collection is such a table. Reports of damage go to `folder`, messages to `messages`.
template <class Entity>
struct ScriptedEntity {
  using Table = ScriptedTable<typename Entity::Key, typename Entity::Entry>;

  explicit ScriptedEntity(const std::string& folder, const char* name = "table")
      : entity(Quill::allocate<Entity>(Quill::Name(name))) {
    auto handler = std::make_shared<Cairn::DebugHandler>();
    handler->sinkIs(
        [this](const Cairn::DebugHandler::Message& message) { messages.emplace_back(message.text); });
    std::filesystem::create_directory(folder + "/tables");
    auto made = std::make_unique<Table>(Vesta::RootPath(folder, "tables", name));
    table = made.get();
    entity->table().attach(std::move(made), handler);
    entity->table().readyFunctionIs([] {});
  }
  ScriptedEntity(const ScriptedEntity&) = delete;
  ScriptedEntity& operator=(const ScriptedEntity&) = delete;

  Quill::Ptr<Entity> entity;
  Table* table;  // owned by the entity's map, also behind the placeholder
  std::vector<std::string> messages;
};

// Bodies of the config table pattern; included where the kinds' classes are instantiated.
#pragma once

#include "P4RuntimeTolmar/ConfigTableWrapper.h"
#include "cairn/Assert.h"
#include "quill/PtrInterface.h"
#include "table-service/TableRead.h"
#include "vesta/VestaBase.h"

namespace TolmarHwLib {

namespace detail {

inline void requireFirstIndex(unsigned idx, const char* operation) {
  Cairn::require(idx == 0, "Multiple indices not supported", operation);
}

}  // namespace detail

template <class Kind>
ConfigRowIterator<Kind>::ConfigRowIterator(typename Kind::Config::Ptr config, bool modifiable)
    : config_(std::move(config)),
      walked_(config_ ? &config_->table() : nullptr),
      reported_(walked_),
      current_(&value_),
      modifiable_(modifiable) {}

template <class Kind>
ConfigRowIterator<Kind>::ConfigRowIterator(const ConfigRowIterator& other)
    : LmRowIteratorImpl(other),
      config_(other.config_),
      walked_(other.walked_),
      reported_(other.reported_),
      iterHint_(other.iterHint_),
      value_(other.value_),
      current_(&value_),
      valid_(other.valid_),
      modifiable_(other.modifiable_) {}

template <class Kind>
bool ConfigRowIterator<Kind>::operator==(const Lumen::LmRowIteratorImpl& other) const {
  return valid_ == dynamic_cast<const ConfigRowIterator&>(other).valid_;
}

template <class Kind>
Lumen::BaseRow ConfigRowIterator<Kind>::operator*() const {
  Cairn::require(valid_, "iterator is at the end", "operator*");
  auto row = Kind::EntryRow::fromEntry(current_->entry);
  ConfigTableWrapper<Kind>::markReadOnly(row, config_.get(), modifiable_);
  return row;
}

template <class Kind>
template <class Step>
void ConfigRowIterator<Kind>::step(const Step& place) {
  valid_ = false;
  if (walked_ == nullptr) return;
  Vesta::readTable(*reported_, [&] { valid_ = place(*walked_); });
  current_ = &value_;
}

template <class Kind>
ConfigRowIterator<Kind>& ConfigRowIterator<Kind>::operator++() {
  step([this](Collection& collection) { return collection.next(value_.key, value_, iterHint_); });
  return *this;
}

template <class Kind>
void ConfigRowIterator<Kind>::placeFirst() {
  step([this](Collection& collection) { return collection.first(value_, iterHint_); });
}

template <class Kind>
void ConfigRowIterator<Kind>::placeAt(const typename Kind::Key& key) {
  value_.key = key;
  value_.entry = ConfigTableWrapper<Kind>::lookup(config_.get(), key, valid_, &iterHint_);
}

template <class Kind>
std::unique_ptr<Lumen::LmRowIteratorImpl> ConfigRowIterator<Kind>::clone() const {
  return std::make_unique<typename Kind::RowIterator>(static_cast<const typename Kind::RowIterator&>(*this));
}

template <class Kind>
ConfigChangeIterator<Kind>::ConfigChangeIterator(Position position, typename Kind::Config::Ptr config,
                                                 bool modifiable)
    : position_(position), config_(std::move(config)), modifiable_(modifiable) {}

template <class Kind>
bool ConfigChangeIterator<Kind>::operator==(const Lumen::LmChangeIteratorImpl& other) const {
  return position_ == dynamic_cast<const ConfigChangeIterator&>(other).position_;
}

template <class Kind>
std::shared_ptr<Lumen::BasicLmTableChange> ConfigChangeIterator<Kind>::operator*() {
  using Wrapper = ConfigTableWrapper<Kind>;
  const std::uint64_t index = position_.index();
  const auto& key = position_.key();
  const bool deleted = (index & 1) != 0;
  bool found = false;
  scratchRow_.fill(deleted ? Wrapper::keyOnly(key) : Wrapper::lookup(config_.get(), key, found));
  auto change = std::make_shared<Lumen::BasicLmTableChange>(Lumen::BasicLmTableChange{
      index, deleted ? Lumen::ChangeKind::deleted : Lumen::ChangeKind::written, scratchRow_});
  Wrapper::markReadOnly(change->row, config_.get(), modifiable_);
  return change;
}

template <class Kind>
ConfigChangeIterator<Kind>& ConfigChangeIterator<Kind>::operator++() {
  ++position_;
  return *this;
}

template <class Kind>
std::unique_ptr<Lumen::LmChangeIteratorImpl> ConfigChangeIterator<Kind>::clone() const {
  return std::make_unique<typename Kind::ChangeIterator>(
      static_cast<const typename Kind::ChangeIterator&>(*this));
}

template <class Kind>
ConfigReactor<Kind>::ConfigReactor(typename Kind::Config::Ptr config, ConfigTableWrapper<Kind>& wrapper)
    : config_(std::move(config)), wrapper_(&wrapper) {
  this->notifierIs(config_);
  this->isRegisteredNotifieeIs(true);
}

template <class Kind>
void ConfigReactor<Kind>::onTable(const typename Kind::Key& key) {
  if (wrapper_ == nullptr || this->quillMarkedForDeletion()) return;
  try {
    record(key);
  } catch (...) {
    if (wrapper_ != nullptr) wrapper_->changeLost();
    throw;
  }
}

template <class Kind>
void ConfigReactor<Kind>::record(const typename Kind::Key& key) {
  using Wrapper = ConfigTableWrapper<Kind>;
  static const typename Kind::Entry kEmpty{};
  bool found = false;
  const auto& entry = Wrapper::lookup(config_.get(), key, found);
  // By content: an entry that is present but all zero counts as deleted, on purpose.
  const bool deleted = entry == kEmpty;
  if (wrapper_ == nullptr) return;  // dropped by a callback of a table that was found corrupt
  if (deleted) {
    scratchRow_.fill(Wrapper::keyOnly(key));
  } else {
    scratchRow_.fill(entry);
  }
  wrapper_->quillTableModified(scratchRow_, deleted, key);
}

template <class Kind>
void ConfigReactor<Kind>::wrapperDel() {
  wrapper_ = nullptr;
  this->isRegisteredNotifieeIs(false);
}

template <class Kind>
ConfigTableWrapper<Kind>::ConfigTableWrapper(typename Config::Ptr config,
                                             std::shared_ptr<Lumen::LumenDB> lumenDb,
                                             const Lumen::LmTableOps* tableOps, bool modifierSupported,
                                             bool readerSupported, bool observerSupported)
    : DefaultLmTableImplementation(
          "TableLumenWrapper", std::string(EntryRow::rowTypeName()),
          static_cast<std::uint16_t>(Lumen::LumenDB::tableTypeId(EntryRow::rowTypeName(), false)),
          /*unique=*/true,
          /*ordered=*/false, /*bounded=*/false, readerSupported, tableOps, {}),
      config_(std::move(config)),
      reactor_(newReactor()),
      lumenDb_(std::move(lumenDb)),
      readerSupportedFlag_(readerSupported),
      modifierSupportedFlag_(modifierSupported),
      observerSupportedFlag_(observerSupported),
      keyToChange_(0, KeyHash(&tableKeyTarotHasher)) {
  keyToChange_.reserve(200);  // an ordinary burst of changes causes no rehash
}

template <class Kind>
ConfigTableWrapper<Kind>::~ConfigTableWrapper() = default;

template <class Kind>
std::shared_ptr<typename Kind::Reactor> ConfigTableWrapper<Kind>::newReactor() {
  auto reactor = Quill::allocate<typename Kind::Reactor>(config_, *this);
  return {reactor.release(), [](typename Kind::Reactor* own) {
            own->wrapperDel();
            own->referenceDel();
          }};
}

template <class Kind>
auto ConfigTableWrapper<Kind>::lookup(Config* config, const Key& key, bool& found, Vesta::IterHint* hint)
    -> const Entry& {
  static const Entry kEmpty{};
  const Entry* entry = &kEmpty;
  const bool read = config != nullptr && Vesta::readTable(config->table(), [&] {
                      entry = &config->table().directLookup(key, found, hint);
                    });
  if (!read) found = false;
  return *entry;
}

template <class Kind>
void ConfigTableWrapper<Kind>::markReadOnly(Lumen::BaseRow& row, Config* config, bool modifiable) {
  auto* const table = config != nullptr ? config->table().implementation() : nullptr;
  row.readOnlyIs(!modifiable || (table != nullptr && table->type() == Vesta::VestaType::readOnlyPlaceholder));
}

template <class Kind>
auto ConfigTableWrapper<Kind>::keyOnly(const Key& key) -> Entry {
  Entry entry{};
  static_cast<Key&>(entry) = key;
  return entry;
}

template <class Kind>
auto ConfigTableWrapper<Kind>::writable(const char* operation) const -> Config& {
  Cairn::require(config_ != nullptr, "no config table", operation);
  return *config_;
}

template <class Kind>
std::size_t ConfigTableWrapper<Kind>::size() const {
  std::size_t rows = 0;
  if (config_) Vesta::readTable(config_->table(), [&] { rows = config_->table().members(); });
  return rows;
}

template <class Kind>
Lumen::BaseRow ConfigTableWrapper<Kind>::row(const Lumen::BaseRow& keyRow, unsigned idx) {
  detail::requireFirstIndex(idx, "row");
  bool found = false;
  auto row = EntryRow::fromEntry(lookup(config_.get(), EntryRow(keyRow).keyRecord(), found));
  markReadOnly(row, config_.get(), modifierSupportedFlag_);
  return row;
}

template <class Kind>
std::unique_ptr<Lumen::LmRowIteratorImpl> ConfigTableWrapper<Kind>::find(const Lumen::BaseRow& keyRow,
                                                                         unsigned idx) {
  detail::requireFirstIndex(idx, "find");
  const Key key = EntryRow(keyRow).keyRecord();
  auto iterator = std::make_unique<typename Kind::RowIterator>(config_, modifierSupportedFlag_);
  iterator->placeAt(key);
  return iterator;
}

template <class Kind>
std::unique_ptr<Lumen::LmRowIteratorImpl> ConfigTableWrapper<Kind>::begin(unsigned idx) {
  detail::requireFirstIndex(idx, "begin");
  auto iterator = std::make_unique<typename Kind::RowIterator>(config_, modifierSupportedFlag_);
  iterator->placeFirst();
  return iterator;
}

template <class Kind>
std::unique_ptr<Lumen::LmRowIteratorImpl> ConfigTableWrapper<Kind>::end(unsigned idx) {
  detail::requireFirstIndex(idx, "end");
  return std::make_unique<typename Kind::RowIterator>(config_, modifierSupportedFlag_);
}

template <class Kind>
void ConfigTableWrapper<Kind>::rowIs(const Lumen::BaseRow& row, bool) {
  static const Lumen::BaseRow nullRow;
  if (this->preWriteActive()) this->preWrite(row, nullRow);
  const Entry entry = EntryRow(row).entry();
  writable("rowIs").tableIs(entry);  // what is recorded comes back through the reactor
}

template <class Kind>
void ConfigTableWrapper<Kind>::rowDel(const Lumen::BaseRow& keyRow) {
  const Key key = EntryRow(keyRow).keyRecord();
  writable("rowDel").tableDel(key);
}

template <class Kind>
void ConfigTableWrapper<Kind>::rowDelAll() {
  writable("rowDelAll").tableDelAll();
}

template <class Kind>
std::unique_ptr<Lumen::LmChangeIteratorImpl> ConfigTableWrapper<Kind>::nextChange(std::uint64_t idx) {
  return std::make_unique<typename Kind::ChangeIterator>(changeMap_.above(idx), config_,
                                                         modifierSupportedFlag_);
}

template <class Kind>
std::unique_ptr<Lumen::LmChangeIteratorImpl> ConfigTableWrapper<Kind>::endChange() {
  return std::make_unique<typename Kind::ChangeIterator>(changeMap_.end(), config_, modifierSupportedFlag_);
}

template <class Kind>
void ConfigTableWrapper<Kind>::cleanChangeMap(std::uint64_t idx) {
  changeMap_.trim(idx, [this](const Key& key) { keyToChange_.erase(key); });
  oldestChangeIdx_ = idx;
}

template <class Kind>
void ConfigTableWrapper<Kind>::quillTableModified(const EntryRow& row, bool deleted, const Key& key) {
  const std::uint64_t previous = latestChangeIdx_;
  const std::uint64_t latest = ((previous + 2) & ~std::uint64_t{1}) | (deleted ? 1 : 0);
  const auto [changed, inserted] = keyToChange_.try_emplace(key, 0);
  latestChangeIdx_ = latest;
  changeMap_.record(latest, key, changed->second);
  changed->second = latest;
  // Indices grow by 2: this keeps the newest 2 x capacity changes. The table may have been attached again
  // with another capacity.
  if (const std::uint64_t capacity = config_ ? config_->table().capacity() : 0; capacity != 0) {
    this->changeSpanIs(2 * 2 * capacity);
  }
  this->cleanChanges(*this, this->notifyObservers(previous, latest, deleted, row));
}

template <class Kind>
void ConfigTableWrapper<Kind>::changeLost() {
  latestChangeIdx_ = (latestChangeIdx_ + 2) & ~std::uint64_t{1};
  cleanChangeMap(latestChangeIdx_);
}

}  // namespace TolmarHwLib

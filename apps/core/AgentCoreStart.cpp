// The start: what an earlier process left open.
#include "apps/core/AgentCore.h"

#include <algorithm>
#include <array>
#include <utility>

#include "cairn/Exception.h"

namespace Agent {

using EntryState = HeldEntry::State;

namespace {

bool isAnswered(const ConfigTable& table, const Lumen::BaseRow& row, const HardwareAnswers& answers) {
  const auto answer = answers.find(table.handle(row));
  return answer != answers.end() && !answer->second.deleted && answer->second.genId == table.genId(row);
}

bool isKnown(std::uint64_t handle, const HardwareAnswers& answers) {
  const auto answer = answers.find(handle);
  return answer != answers.end() && !answer->second.deleted;
}

}  // namespace

void AgentCore::start(const HardwareAnswers& answers) {
  for (const std::string& fault : {images_->fault(), metadata_->fault()}) {
    if (!fault.empty()) settings_.log(fault);
  }
  std::vector<BeforeImages::Image> undecided = images_->undecided();
  bool anyRow = false;
  const auto above = [&](const ConfigTable& table, const Lumen::BaseRow& row) {
    anyRow = true;
    nextHandle_ = std::max({nextHandle_, table.handle(row) + 1, table.genId(row) + 1});
  };
  for (const auto& table : tables_) {
    table->eachRow([&](const Lumen::BaseRow& row) { above(*table, row); });
  }
  if (anyRow && images_->isNew()) {
    settings_.log(settings_.beforeImages + " is gone: the rows are taken as they are, undecided ones too");
  }
  if (anyRow && metadata_->isNew()) {
    settings_.log(settings_.metadata + " is gone: the entries of the previous run have no metadata");
  }
  std::erase_if(undecided, [&](BeforeImages::Image& image) { return !restorable(image, above); });
  nextGenId_ = nextHandle_;
  retainMetadata(undecided);
  if (!undecided.empty()) {
    settings_.log("undoing " + std::to_string(undecided.size()) +
                  " updates that the previous run left undecided");
  }
  for (BeforeImages::Image& image : undecided) restore(image, answers);
  for (const auto& table : tables_) {
    std::vector<Lumen::BaseRow> unanswered;
    table->eachRow([&](const Lumen::BaseRow& row) {
      if (!isAnswered(*table, row, answers)) unanswered.push_back(row);
    });
    for (Lumen::BaseRow& row : unanswered) {
      const std::uint32_t hash = table->keyHash(row);
      if (entries_.find(*table, hash, row) != nullptr) continue;
      HeldEntry& entry = entries_.add(*table, hash, row);
      entry.state = EntryState::outstanding;
      entries_.handleIs(entry, table->handle(row));
    }
  }
}

/// Keeps what belongs to a row of a table or of a before-image.
void AgentCore::retainMetadata(const std::vector<BeforeImages::Image>& undecided) {
  std::unordered_map<std::uint64_t, std::array<std::uint64_t, 2>> genIds;  // by handle: in the table, before
  for (const auto& table : tables_) {
    table->eachRow([&](const Lumen::BaseRow& row) { genIds[table->handle(row)][0] = table->genId(row); });
  }
  for (const BeforeImages::Image& image : undecided) {
    const ConfigTable& table = *tables_[image.table];
    if (image.present) genIds[table.handle(image.row)][1] = table.genId(image.row);
  }
  metadata_->retain([&genIds](std::uint64_t handle, std::uint64_t genId) {
    const auto found = genIds.find(handle);
    return found != genIds.end() && (found->second[0] == genId || found->second[1] == genId);
  });
}

/// Whether the image is that of a table of this core.
bool AgentCore::restorable(BeforeImages::Image& image,
                           const std::function<void(const ConfigTable&, const Lumen::BaseRow&)>& visit) {
  try {
    if (image.table >= tables_.size()) throw Cairn::Exception("it belongs to a table that is not served");
    tables_[image.table]->adopt(image.row);
    visit(*tables_[image.table], image.row);
    return true;
  } catch (const Cairn::Exception& failure) {
    settings_.log("a before-image is not used: " + failure.message());
    images_->remove(image.place);
    return false;
  }
}

/// The row may still await its answer, and only one may be outstanding: then that one leads to the undo.
void AgentCore::restore(BeforeImages::Image& image, const HardwareAnswers& answers) {
  ConfigTable& table = *tables_[image.table];
  const std::uint32_t hash = table.keyHash(image.row);
  if (entries_.find(table, hash, image.row) != nullptr) return images_->remove(image.place);
  const Lumen::BaseRow current = table.stored(image.row);
  // An insertion that was not written yet, or is undone: the hardware has nothing to answer.
  if (current.isNull() && !image.present) return images_->remove(image.place);
  HeldEntry& entry = entries_.add(table, hash, image.row);
  entry.image = image.place;
  if (image.present) beforeIs(entry, std::move(image.row));
  entry.removed = current.isNull();
  if (entry.removed) reserve(entry, true);
  entry.entryHandle = table.handle(entry.removed ? entry.row : current);
  if (!entry.removed) entry.genId = table.genId(current);
  const bool awaited =
      entry.removed ? isKnown(entry.entryHandle, answers) : !isAnswered(table, current, answers);
  if (!awaited) return undo(entry);
  entry.state = EntryState::doomed;
  entries_.handleIs(entry, entry.entryHandle);
}

}  // namespace Agent

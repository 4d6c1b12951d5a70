#include "vesta/Replacement.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace Vesta {

namespace {

enum class Predecessor { none, toRetire };

std::unique_ptr<RowWrites> createSegment(TableFiles& files, const Layout& layout,
                                         const AttachOptions& options, std::vector<SlotRow> rows,
                                         Predecessor predecessor) {
  const TableFiles::Unnamed created = files.create(layout, options.firstSequence);
  auto writes = std::make_unique<RowWrites>(created.segment, options.stepHook);
  std::vector<std::uint32_t> slots;
  for (const SlotRow& row : rows) slots.push_back(row.slot);
  writes->nextSlotsAre(slots);
  for (SlotRow& row : rows) writes->write(row.words.data(), false);
  if (predecessor == Predecessor::toRetire) {
    files.replace(created);
  } else {
    files.name(created);
  }
  return writes;
}

// With the rows that pass their checks, if the options ask for them.
IntactSegment replaceAtAttach(TableFiles& files, const std::shared_ptr<Segment>& damaged,
                              const std::string& reason, const AttachOptions& options) {
  std::vector<SlotRow> rows;
  if (options.onDamage == OnDamage::keepIntactRows) rows = intactRows(damaged);
  return {replaceDamaged(files, damaged->layout(), std::move(rows), reason, options), true};
}

}  // namespace

std::vector<SlotRow> intactRows(const std::shared_ptr<Segment>& damaged) {
  RowReads reads(damaged);
  std::vector<SlotRow> rows;
  for (std::uint32_t slot = 0; slot < damaged->layout().shape.capacity; ++slot) {
    std::vector<Word> words(1 + damaged->layout().rowWords);
    try {
      if (isOccupied(reads.readSlot(slot, words.data()))) rows.push_back({slot, std::move(words)});
    } catch (const Cairn::CorruptionDetectedException&) {
      // not one of the intact rows
    }
  }
  const auto newestFirst = [](const SlotRow& a, const SlotRow& b) {
    return isAfter(sequenceOf(a.words[0]), sequenceOf(b.words[0]));
  };
  std::sort(rows.begin(), rows.end(), newestFirst);
  std::set<EncodedKey> keys;
  std::erase_if(rows, [&](const SlotRow& row) {
    return !keys.emplace(row.words.begin() + 1, row.words.begin() + 1 + damaged->layout().keyWords).second;
  });
  std::reverse(rows.begin(), rows.end());
  return rows;
}

std::vector<EncodedKey> changedKeys(const RowWrites& writes, const std::vector<SlotRow>& rows) {
  std::vector<HeldRows::Row> held = writes.heldRows().rows();
  std::vector<HeldRows::Row> kept;
  const auto keyWords = writes.layout().keyWords;
  for (const auto& [slot, words] : rows) {
    kept.emplace_back(EncodedKey(words.begin() + 1, words.begin() + 1 + keyWords), sequenceOf(words[0]));
  }
  std::sort(held.begin(), held.end());
  std::sort(kept.begin(), kept.end());
  std::vector<HeldRows::Row> changed;
  std::set_symmetric_difference(held.begin(), held.end(), kept.begin(), kept.end(),
                                std::back_inserter(changed));
  std::vector<EncodedKey> keys;
  for (auto& [key, sequence] : changed) {
    if (keys.empty() || keys.back() != key) keys.push_back(std::move(key));
  }
  return keys;
}

void logError(const AttachOptions& options, const std::string& text) {
  const auto handler =
      options.debugHandler ? options.debugHandler : std::make_shared<const Cairn::DebugHandler>();
  if (handler->wants(Cairn::DebugHandler::kErrorFlag)) {
    handler->log(1, "VestaSegment", 0, "attach", options.path.text() + " " + text);
  }
}

std::unique_ptr<RowWrites> replaceDamaged(TableFiles& files, const Layout& layout, std::vector<SlotRow> rows,
                                          const std::string& reason, const AttachOptions& options) {
  auto writes = createSegment(files, layout, options, std::move(rows), Predecessor::toRetire);
  logError(options, "is damaged and retired: " + reason);
  return writes;
}

IntactSegment intactSegment(TableFiles& files, const Layout& layout, const AttachOptions& options) {
  TableFiles::Found found = files.open(layout, Access::writer);
  if (found.missing) return {createSegment(files, layout, options, {}, Predecessor::none)};
  if (found.segment && found.fault.rowsUsable()) {
    return replaceAtAttach(files, found.segment, found.fault.text, options);
  }
  if (found.fault) {
    auto writes = createSegment(files, layout, options, {}, Predecessor::toRetire);
    logError(options, std::string(found.fault.damaged() ? "is damaged" : "is incompatible") +
                          " and retired: " + found.fault.text);
    return {std::move(writes), found.fault.damaged()};
  }
  if (found.segment->load(kStateAt) != kLive) {
    return replaceAtAttach(files, found.segment, "state: found " + hexText(found.segment->load(kStateAt)),
                           options);
  }
  try {
    return {std::make_unique<RowWrites>(found.segment, options.stepHook)};
  } catch (const Cairn::CorruptionDetectedException& damage) {
    return replaceAtAttach(files, found.segment, damage.message(), options);
  }
}

}  // namespace Vesta

#include "vesta/Replacement.h"

#include <algorithm>
#include <vector>

namespace Vesta {

namespace {

// Every row that still passes its check, older first, so that of two rows with one key the newer stays.
std::vector<std::vector<Word>> soundRows(const std::shared_ptr<Segment>& segment) {
  RowReads reads(segment);
  std::vector<std::vector<Word>> rows;
  for (std::uint32_t slot = 0; slot < segment->layout().shape.capacity; ++slot) {
    std::vector<Word> row(1 + segment->layout().rowWords);
    try {
      if (isOccupied(reads.readSlot(slot, row.data()))) rows.push_back(std::move(row));
    } catch (const Cairn::CorruptionDetectedException&) {
      // this row is what is not sound
    }
  }
  std::sort(rows.begin(), rows.end(),
            [](const auto& a, const auto& b) { return isAfter(b[0] >> 2, a[0] >> 2); });
  return rows;
}

std::unique_ptr<RowWrites> createSegment(TableFiles& files, const Layout& layout,
                                         const AttachOptions& options, std::vector<std::vector<Word>> rows,
                                         bool inPlaceOfOther) {
  const TableFiles::Unnamed created = files.create(layout, options.firstSequence);
  auto writes = std::make_unique<RowWrites>(created.segment, options.stepHook);
  for (auto& row : rows) writes->write(row.data(), false);
  if (inPlaceOfOther) {
    files.replace(created);
  } else {
    files.name(created);
  }
  return writes;
}

}  // namespace

void logError(const AttachOptions& options, const std::string& text) {
  const auto handler =
      options.debugHandler ? options.debugHandler : std::make_shared<const Cairn::DebugHandler>();
  if (handler->wants(Cairn::DebugHandler::kErrorFlag)) {
    handler->log(1, "VestaSegment", 0, "attach", options.path.text() + " " + text);
  }
}

std::unique_ptr<RowWrites> replaceDamaged(TableFiles& files, std::shared_ptr<Segment> damaged,
                                          const std::string& reason, const AttachOptions& options) {
  std::vector<std::vector<Word>> rows;
  if (options.onDamage == OnDamage::keepSoundRows) rows = soundRows(damaged);
  auto writes = createSegment(files, damaged->layout(), options, std::move(rows), true);
  logError(options, "is damaged and set aside: " + reason);
  return writes;
}

std::unique_ptr<RowWrites> soundSegment(TableFiles& files, const Layout& layout,
                                        const AttachOptions& options) {
  TableFiles::Found found = files.open(layout, Access::writer);
  if (found.missing) return createSegment(files, layout, options, {}, false);
  if (found.segment && found.fault.sameKind) {
    return replaceDamaged(files, found.segment, found.fault.text, options);
  }
  if (!found.fault.text.empty()) {
    auto writes = createSegment(files, layout, options, {}, true);
    logError(options, std::string(found.fault.damaged ? "is damaged" : "is of another kind") +
                          " and set aside: " + found.fault.text);
    return writes;
  }
  if (found.segment->load(kStateAt) != kLive) {
    return replaceDamaged(files, found.segment, "state: found " + hexText(found.segment->load(kStateAt)),
                          options);
  }
  try {
    return std::make_unique<RowWrites>(found.segment, options.stepHook);
  } catch (const Cairn::CorruptionDetectedException& damage) {
    return replaceDamaged(files, found.segment, damage.message(), options);
  }
}

}  // namespace Vesta

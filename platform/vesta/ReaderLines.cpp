// What the writer knows of its readers: who is there, how far each is.
#include <cstring>

#include "vesta/SegmentWriter.h"

namespace Vesta {

// Frees the line of a reader that is gone. Should a new reader have taken it meanwhile, its identity is
// another, half of it being random, and the line stays.
bool SegmentWriter::isGone(unsigned reader, Word identity) {
  if (files_.lock().heldElsewhere(LockFile::readerByte(reader))) return false;
  std::atomic_ref<Word> line(rows_->reads().segment().at(readerLineAt(reader) + kReaderIdentityAt));
  return line.compare_exchange_strong(identity, 0, std::memory_order_acq_rel);
}

// `who`: the identity of a reader with a line. Of one without, the segment's number: it is on its way from an
// earlier segment, or else has come after this one was made, and may be left out like one that comes later.
bool SegmentWriter::isStalled(unsigned reader, Word who, Word handled) {
  ReaderNote& note = notes_[reader];
  const auto now = std::chrono::steady_clock::now();
  if (note.handled != handled || note.watched != who || note.movedAt.time_since_epoch().count() == 0) {
    note.handled = handled;
    note.watched = who;
    note.movedAt = now;
  }
  return now - note.movedAt >= std::chrono::seconds(1);
}

template <class Counts>
bool SegmentWriter::allHandled(std::uint64_t sequence, const Counts& counts) {
  if (!rows_) return true;
  const Segment& segment = rows_->reads().segment();
  // One that lags is mostly found without a system call; lines of the dead are freed on the way.
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    const std::size_t line = readerLineAt(reader);
    const Word identity = segment.load(line + kReaderIdentityAt);
    const Word handled = segment.load(line + kReaderHandledAt);
    if (identity == 0 || !isAfter(sequence, handled)) continue;
    if (!isGone(reader, identity) && counts(reader, identity, handled)) return false;
  }
  // A reader that follows but is not in this segment yet has handled nothing of it. Should the line be that
  // of a dead one, whose number it has taken, it has not looked at this segment yet: it is one that comes
  // later.
  for (const long byte :
       files_.lock().heldElsewhere(LockFile::followerByte(0), LockFile::followerByte(kMaxReaders))) {
    const auto reader = static_cast<unsigned>(byte - LockFile::followerByte(0));
    const std::size_t line = readerLineAt(reader);
    const Word identity = segment.load(line + kReaderIdentityAt);
    if (identity == 0) {
      if (counts(reader, segment.load(kGenerationAt), 0)) return false;
    } else {
      const Word handled = segment.load(line + kReaderHandledAt);
      if (isAfter(sequence, handled) && counts(reader, identity, handled)) return false;
    }
  }
  return true;
}

bool SegmentWriter::quiesced(std::uint64_t sequence) {
  return allHandled(sequence, [](unsigned, Word, Word) { return true; });
}

bool SegmentWriter::movingReadersQuiesced(std::uint64_t sequence) {
  return allHandled(
      sequence, [this](unsigned reader, Word who, Word handled) { return !isStalled(reader, who, handled); });
}

bool SegmentWriter::clientQuiesced(const std::string& name) {
  for (const ConnectedReader& reader : readers()) {
    if (reader.name == name && isAfter(sequence(), reader.handled)) return false;
  }
  return true;
}

std::vector<ConnectedReader> SegmentWriter::readers() {
  std::vector<ConnectedReader> found;
  if (!rows_) return found;
  const Segment& segment = rows_->reads().segment();
  const Word sleepers = segment.load(kSleepersAt);
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    const std::size_t line = readerLineAt(reader);
    const Word identity = segment.load(line + kReaderIdentityAt);
    if (identity == 0 || isGone(reader, identity)) continue;
    char name[4 * sizeof(Word) + 1] = {};
    for (std::size_t i = 0; i < 4; ++i) {
      const Word word = segment.load(line + kReaderNameAt + i);
      std::memcpy(name + i * sizeof word, &word, sizeof word);
    }
    found.push_back({reader, static_cast<int>(identity & 0xffffffff), name,
                     segment.load(line + kReaderHandledAt), (sleepers >> reader & 1) != 0});
  }
  return found;
}

}  // namespace Vesta

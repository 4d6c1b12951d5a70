// What the writer knows of its readers: who is there, how far each is.
#include "vesta/ReaderLine.h"
#include "vesta/SegmentWriter.h"

namespace Vesta {

// Frees the line of a reader that is gone.
bool SegmentWriter::isGone(unsigned reader, Word identity) {
  if (files_.lock().heldElsewhere(LockFile::readerByte(reader))) return false;
  return ReaderLine(segment(), reader).release(identity);
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
  // One that lags is mostly found without a system call; lines of the dead are freed on the way.
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    const std::optional<Word> handled = line.handled();
    if (identity == 0 || (handled && !isAfter(sequence, *handled))) continue;
    if (!isGone(reader, identity) && counts(reader, identity, handled.value_or(0))) return false;
  }
  // A reader that follows but is not in this segment yet has handled nothing of it. Should the line be that
  // of a dead one, whose number it has taken, it has not looked at this segment yet: it is one that comes
  // later.
  for (const long byte :
       files_.lock().heldElsewhere(LockFile::followerByte(0), LockFile::followerByte(kMaxReaders))) {
    const auto reader = static_cast<unsigned>(byte - LockFile::followerByte(0));
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    const std::optional<Word> handled = line.handled();
    if (identity == 0) {
      if (counts(reader, segment().generation(), 0)) return false;
    } else if (!handled || isAfter(sequence, *handled)) {
      if (counts(reader, identity, handled.value_or(0))) return false;
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
    const ReaderLine line(segment(), reader.number);
    if (line.name().value_or(name) != name) continue;
    const std::optional<Word> handled = line.handled();
    if (!handled || isAfter(sequence(), *handled)) return false;
  }
  return true;
}

std::vector<ConnectedReader> SegmentWriter::readers() {
  std::vector<ConnectedReader> found;
  if (!rows_) return found;
  const Word sleepers = segment().load(kSleepersAt);
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    if (identity == 0 || isGone(reader, identity)) continue;
    found.push_back({reader, static_cast<int>(identity & 0xffffffff), line.name().value_or(std::string()),
                     line.handled().value_or(0), (sleepers >> reader & 1) != 0});
  }
  return found;
}

}  // namespace Vesta

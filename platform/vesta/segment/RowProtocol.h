// How a row gets into its slot and out of it while others do the same: every access of words that writer and
// readers share in the course of a write. What surrounds it is in RowWrites, RowReads and ChangeLog.
//
//   a write of the change s                          a read of one slot
//     W1 the log record of s                           R1 the version
//     W2 the staging row, then its checksum            R2 checksum and row: of the staging row if the version
//     W3 the version: s, staged                           is staged, of the slot if not
//     W4 the slot's row, then its checksum             R3 the version again: the same, or back to R1
//     W5 the version: s
//     W6 insertion: the cell, then its shortcut;     a read of the record of s, which is published
//        removal: the shortcut, then the cell          L1 the record
//     W7 the published sequence: s                     L2 the published sequence: less than R - 1 ahead of s,
//     W8 the sleepers' word; wakes them                   or the record may have been overwritten
//
//                                                    a reader goes to sleep
//                                                      S1 its bit in the sleepers' word
//                                                      S2 the published sequence: no change pending, or awake
//
// Every store is a release and every load an acquire; W7, W8, S1 and S2 are sequentially consistent.
//
//   R2 gets a word of W4: that word's load acquires W3 before it, so R3 differs from R1 unless R1 has seen W3
//      itself. Then R2 reads the staging row.
//   R2 gets a word of W2 of the next change: that acquires W5 before it, and R3 is no longer staged.
//   R1 and R3 are equal: R2 got one row whole. Its checksum, over version, key, entry and slot number, now
//      distinguishes an intact row from damage.
//   L1 gets a word of the record of s + R: that acquires W7 of s + R - 1 before it, and L2 sees it.
//   S1 comes after W8 in the single order of these four: then W7 comes before S2, and the reader stays awake.
//      Otherwise W8 sees the bit, and the writer wakes the reader.
#pragma once

#include "vesta/segment/Layout.h"
#include "vesta/segment/WriteStep.h"

namespace Vesta {

/// A slot as R1 to R3 got it. `row`, filled beside it, is the version without kStaged, the key, the entry.
struct CopiedRow {
  bool settled;  ///< false: the version moved meanwhile, and the row may be of two changes
  Word found;    ///< its checksum as stored
  Word computed;
  bool intact() const { return found == computed; }
};

template <class Sizes>
[[gnu::always_inline]] inline CopiedRow copyRow(const Sizes& sizes, const Word* slotWords,
                                                const Word* staging, std::uint32_t slot, Word* row) {
  const Word version = loadAcquire(slotWords[0]);  // R1
  const Word* stored = slotWords + 1;
  if (isStaged(version)) [[unlikely]]  // a branch: the loads of the slot need not wait for the version
    stored = staging;
  const Word found = loadAcquire(stored[0]);  // R2
  row[0] = version & ~kStaged;
  const Word computed = checksumOf(row[0], sizes.rowWords, slot,
                                   [&](std::size_t i) { return row[1 + i] = loadAcquire(stored[1 + i]); });
  return {loadAcquire(slotWords[0]) == version, found, computed};  // R3
}

// The writer's half. `step(WriteStep)` is called after each step.

/// W1. `row`: any first word, then the key; the first word becomes that of the record.
template <class Sizes, class Step>
void putRecord(const Sizes& sizes, Word* record, Word sequence, std::uint32_t slot, bool written, Word* row,
               const Step& step) {
  row[0] = sequence << 2 | Word{written};
  const Word check = checksumOf(row, sizes.keyWords, slot);
  storeRelease(record[0], row[0]);
  storeRelease(record[1], Word{slot} << 32 | check);
  step(WriteStep::recordHalf);
  eachWord(sizes.keyWords, [&](std::size_t i) { storeRelease(record[2 + i], row[1 + i]); });
  step(WriteStep::recorded);
}

/// W4 and W5.
template <class Sizes, class Step>
void finishRow(const Sizes& sizes, Word* slotWords, const Word* row, Word check, const Step& step) {
  eachWord(sizes.rowWords, [&](std::size_t i) { storeRelease(slotWords[2 + i], row[1 + i]); });
  step(WriteStep::rowHalf);
  storeRelease(slotWords[1], check);
  step(WriteStep::rowMoved);
  storeRelease(slotWords[0], row[0]);
  step(WriteStep::versionFinal);
}

/// W2 to W5. `row` begins with the new version.
template <class Sizes, class Step>
void putRow(const Sizes& sizes, Word* slotWords, Word* staging, std::uint32_t slot, const Word* row,
            const Step& step) {
  const Word check = checksumOf(row, sizes.rowWords, slot);
  eachWord(sizes.rowWords, [&](std::size_t i) { storeRelease(staging[1 + i], row[1 + i]); });
  step(WriteStep::stagedHalf);
  storeRelease(staging[0], check);
  step(WriteStep::staged);
  storeRelease(slotWords[0], row[0] | kStaged);
  step(WriteStep::versionMoved);
  finishRow(sizes, slotWords, row, check, step);
}

/// W7.
inline void storePublished(Word& published, Word sequence) {
  std::atomic_ref<Word>(published).store(sequence, std::memory_order_seq_cst);
}

/// W8.
inline Word loadSleepers(Word& sleepers) {
  return std::atomic_ref<Word>(sleepers).load(std::memory_order_seq_cst);
}

/// S1.
inline void announceSleep(Word& sleepers, Word bit) {
  std::atomic_ref<Word>(sleepers).fetch_or(bit, std::memory_order_seq_cst);
}

/// S2.
inline Word loadPublished(Word& published) {
  return std::atomic_ref<Word>(published).load(std::memory_order_seq_cst);
}

}  // namespace Vesta

// What entries were before undecided updates, in a mapped file that outlives the process.
//
// One file, 64-bit words, native byte order:
//   offset          size          what
//   0               4096          header: magic, layout version, batch words, records, record bytes, check
//   4096            8 x batches   batch words; 0 for one that was never used
//   behind them     R x records   records: control, batch id, order, check, then the row's bytes
//
//   batch word: id << 17 | check << 1 | decided
//
//   control         states and who changes them
//   0               free
//   bit 63          in use; stored last, with release: the record is whole
//   bit 62          late: counts whatever becomes of its batch
//   bit 61          present: the row is the one before the update; otherwise the update's, for its key
//   bits 32-39      table; 16-31 batch word; 0-15 bytes of the row
//
// The agent alone writes. A record counts when it is late, or when its batch word has its batch id and is not
// decided: so one store decides a batch, and its records need not be touched. SIGKILL between any two stores
// leaves either a record that counts or none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "rows/BaseRow.h"

namespace Agent {

class BeforeImages {
 public:
  /// How much the file holds. Batches: 1 to 65,535; a row: at most `rowBytes`, 1 to 65,535.
  struct Capacity {
    std::size_t batches;
    std::size_t records;
    std::size_t rowBytes;
    friend bool operator==(const Capacity&, const Capacity&) = default;
  };
  using Place = std::uint32_t;
  static constexpr Place kNone = 0xffffffff;

  /// A record that an earlier process left undecided.
  struct Image {
    Place place;
    std::size_t table;
    bool present;
    Lumen::BaseRow row;  ///< generic
  };

  /// Maps the file at `path`, creating it if missing. A file that is damaged or of another layout is renamed
  /// to `path`.damaged and replaced by an empty one; fault() then says so. Throws Cairn::SystemException.
  BeforeImages(std::string path, Capacity capacity);
  ~BeforeImages();
  BeforeImages(const BeforeImages&) = delete;
  BeforeImages& operator=(const BeforeImages&) = delete;

  /// The contents of a file at one moment.
  struct Contents {
    std::vector<Image> undecided;  ///< the newest first
    std::size_t damaged = 0;       ///< records that count, and batch words, that fail their check
  };
  /// For another process than the agent, which may be running; changes nothing. Throws
  /// Cairn::SystemException, also ENOENT, and Cairn::CorruptionDetectedException for a file that is damaged
  /// or of another layout.
  static Contents read(const std::string& path);

  /// What was wrong with the file as found; empty if nothing.
  const std::string& fault() const noexcept { return fault_; }
  /// There was no file, or an empty one.
  bool isNew() const noexcept { return isNew_; }
  /// The undecided records as found, the newest first. They stay until removed.
  std::vector<Image> undecided() const;

  /// Begins a batch; kNone when all batch words are in use.
  Place begin() noexcept;
  /// Records what an entry is before an update of `batch`. `row` is that of the table, or, if `present` is
  /// false, the update's own. kNone when the file is full.
  Place add(Place batch, std::size_t table, bool present, const Lumen::BaseRow& row) noexcept;
  /// The row of a record that has not been given back; generic. Throws std::bad_alloc.
  Lumen::BaseRow row(Place record) const;
  /// The record counts from now on whatever becomes of its batch.
  void lateIs(Place record) noexcept;
  /// Ends the batch: from the return on, its records that are not late no longer count. They are to be given
  /// back by forget().
  void decide(Place batch) noexcept;
  /// Ends the batch undecided: its records count until each is removed.
  void abandon(Place batch) noexcept;
  /// The record no longer counts.
  void remove(Place record) noexcept;
  /// Gives back a record of a decided batch.
  void forget(Place record) noexcept { freeRecords_.push_back(record); }

 private:
  using Word = std::uint64_t;

  /// A private copy of the file.
  explicit BeforeImages(const std::string& path);
  Contents contents() const;
  void open(const std::string& path);
  bool describesItself() const noexcept;
  void format() noexcept;
  void findFree();
  bool counts(Place record) const noexcept;
  bool isIntact(Place record) const noexcept;
  Word checkOf(const Word* record) const noexcept;
  std::size_t recordWords() const noexcept;
  std::size_t fileBytes() const noexcept;
  Word* batchWord(Place batch) const noexcept;
  Word* recordAt(Place record) const noexcept;

  Capacity capacity_;
  std::string fault_;
  bool isNew_ = false;
  bool isWhole_ = true;    // the file as found has the size that belongs to the capacity
  Word* words_ = nullptr;  // the mapping; owned
  /// A batch word in use.
  struct Use {
    std::uint32_t records = 0;  // that count because of it
    bool ended = false;
  };
  void released(Place record) noexcept;

  std::vector<Use> uses_;           // by batch word
  std::vector<Place> freeBatches_;  // the next to be used is the last, likewise
  std::vector<Place> freeRecords_;
  Word nextBatchId_ = 1;
  Word nextOrder_ = 1;
};

}  // namespace Agent

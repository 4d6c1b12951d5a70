// What controllers keep with their entries, in a mapped file that outlives the process.
//
// One file, 64-bit words, native byte order:
//   offset   size             what
//   0        4096             header: magic, layout version, slots, bytes of a slot, check
//   4096     slots x bytes    slots: handle, genId, check << 32 | length, then the bytes
//
// A slot whose handle is 0, or whose check does not fit, is free. A record belongs to the row that has its
// handle and genId, so a kill between the stores of the two leaves a record without a row, which the next
// start drops, and an entry keeps its old record until its new row is decided.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/core/FlatIndex.h"
#include "cairn/Descriptor.h"

namespace Agent {

class Metadata {
 public:
  struct Capacity {
    std::size_t records;
    std::size_t bytes;  ///< of the longest record
  };

  /// Maps the file at `path`, creating it if missing; one of a smaller capacity is rewritten, one of a larger
  /// keeps its own, so that no record is lost. One that is damaged is renamed to `path`.damaged and replaced
  /// by an empty one; fault() then says so. Throws Cairn::SystemException, and what add() throws.
  Metadata(std::string path, Capacity capacity);
  ~Metadata();
  Metadata(const Metadata&) = delete;
  Metadata& operator=(const Metadata&) = delete;

  /// How many records a file holds, for another process than the agent; changes nothing. Throws
  /// Cairn::SystemException, also ENOENT, and Cairn::CorruptionDetectedException for a damaged file.
  static std::size_t count(const std::string& path);

  /// What was wrong with the file as found; empty if nothing.
  const std::string& fault() const noexcept { return fault_; }
  /// There was no file, or an empty one.
  bool isNew() const noexcept { return isNew_; }
  /// Drops the records for which `keep(handle, genId)` is false.
  void retain(const std::function<bool(std::uint64_t handle, std::uint64_t genId)>& keep);

  /// Empty for a row without any. Valid until that row's record is removed.
  std::string_view of(std::uint64_t handle, std::uint64_t genId) const noexcept;
  /// Stores `bytes`, unless they are empty, for a row that has none. Throws Cairn::ResourceExhaustedException
  /// without room for them, also on disk.
  void add(std::uint64_t handle, std::uint64_t genId, std::string_view bytes);
  /// No effect for a row without any.
  void remove(std::uint64_t handle, std::uint64_t genId) noexcept;
  std::size_t size() const noexcept { return index_.size(); }

 private:
  using Word = std::uint64_t;
  using Slot = std::uint32_t;

  void stage();
  void publish();
  void map();
  void load();
  Slot find(std::uint64_t handle, std::uint64_t genId) const noexcept;
  const Word* slotAt(Slot slot) const noexcept;
  std::size_t slotBytes() const noexcept;
  std::size_t fileBytes() const noexcept;

  std::string path_;
  Capacity capacity_;
  std::string fault_;
  bool isNew_ = false;
  Cairn::Descriptor file_;
  Word* words_ = nullptr;  // the mapping; owned
  FlatIndex index_;
  std::vector<Slot> free_;  // the next to be used is the last
  std::vector<std::byte> scratch_;
};

}  // namespace Agent

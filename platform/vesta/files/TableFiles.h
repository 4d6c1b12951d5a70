#pragma once

#include <memory>
#include <string>

#include "vesta/files/LockFile.h"
#include "vesta/files/RootPath.h"
#include "vesta/files/WakeFifo.h"
#include "vesta/segment/Segment.h"

namespace Vesta {

/// Never 0.
Word randomWord() noexcept;

/// The files of one table in its folder: the segment <collection>, the lock file <collection>.lock, the FIFO
/// vesta.<collection>.<n> of each reader, and segments set aside, <collection>.retired.<n>.
class TableFiles {
 public:
  explicit TableFiles(const RootPath& path);

  const RootPath& path() const noexcept { return path_; }
  LockFile& lock() noexcept { return lock_; }
  int folder() const noexcept { return folder_.get(); }

  /// The file under the table's name: missing, or sound as far as its header and size say, or at fault.
  struct Found {
    /// Mapped when the size is right. Otherwise there is no memory beyond the end of the file: writers get a
    /// copy if the rows are usable, readers a mapping of which they may touch their own page.
    std::shared_ptr<Segment> segment;
    bool missing = false;
    HeaderFault fault;
  };
  Found open(const Layout& layout, Access access) const;

  /// Whether the table's name is that of the file which `segment` maps.
  bool isNamed(const Segment& segment) const noexcept;

  /// Says so when the file that `segment` maps has the table's name and the wrong size; empty otherwise.
  std::string sizeFault(const Segment& segment) const;

  /// A formatted segment without a name, its blocks reserved: touching a block that a full memory file system
  /// cannot supply would be a signal.
  struct Unnamed {
    Descriptor file;
    std::shared_ptr<Segment> segment;
  };
  Unnamed create(const Layout& layout, Word firstSequence) const;
  /// Gives it the table's name, whole or not at all. The name must be free.
  void name(const Unnamed& created) const;
  /// Gives it the table's name and that segment, marked retired, the name <collection>.retired.<n>, in one
  /// step. Of the segments set aside the first seven and the last are kept.
  void replace(const Unnamed& created) const;
  /// Marks the segment retired and removes it if it is there, and the FIFOs of readers that are gone. Throws
  /// Cairn::ResourceExhaustedException when there was no descriptor to wake a reader; to be called again
  /// then.
  void remove();
  /// Throws unless the file under the table's name is private, whole and of this layout.
  void validate(const Layout& layout) const;

  /// The path at which the lock file or the file of `segment` no longer is, because somebody removed, moved
  /// or replaced it behind the table service's back; empty when both are in place. A retired segment has no
  /// path.
  std::string displacedFile(const Segment& segment) const;

  std::string fifoName(unsigned reader) const;
  WakeFifo readerFifo(unsigned reader) const;
  /// Writes to every FIFO there is: for changes that concern sleeping readers of any segment of this table.
  /// Those for whose FIFO there was no descriptor are left to the next write to `segment`.
  void wakeEveryone(Segment& segment) const;
  /// The pid that the segment names as its writer; 0 when it names none.
  int writerPid() const;

 private:
  void link(const Unnamed& created, const std::string& name) const;
  void stateIs(int segment, Word state) const;
  Word wakeEveryone() const;

  RootPath path_;
  Descriptor folder_;
  LockFile lock_;
};

}  // namespace Vesta

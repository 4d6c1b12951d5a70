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
/// vesta.<collection>.<n> of each reader, and retired segments, <collection>.retired.<n>.
class TableFiles {
 public:
  explicit TableFiles(const RootPath& path);

  const RootPath& path() const noexcept { return path_; }
  LockFile& lock() noexcept { return lock_; }
  int folder() const noexcept { return folder_.get(); }

  /// The file under the table's name. Without a fault, its header and size are right.
  struct Found {
    /// Mapped when the size is right. Otherwise there is no memory beyond the end of the file: writers and
    /// passive readers get a copy if the rows are usable, readers a mapping of which they may access only the
    /// readers' page. May be null when there is a fault.
    std::shared_ptr<Segment> segment;
    bool missing = false;
    SegmentFault fault{};
  };
  Found open(const Layout& layout, Access access) const;
  /// The same for a file that is open; `path` is for messages.
  static Found inspect(int file, const Layout& layout, Access access, const std::string& path);

  /// Whether the table's name is that of the file which `segment` maps.
  bool isNamed(const Segment& segment) const noexcept;

  /// The fault of the file that `segment` maps when it has the table's name and the wrong size.
  SegmentFault sizeFault(const Segment& segment) const;

  /// A formatted segment without a name. Its blocks are reserved: access to a block that a full memory file
  /// system cannot supply would raise a signal.
  struct Unnamed {
    Cairn::Descriptor file;
    std::shared_ptr<Segment> segment;
  };
  Unnamed create(const Layout& layout, Word firstSequence) const;
  /// Gives it the table's name, atomically. The name must be free.
  void name(const Unnamed& created) const;
  /// Exchanges its name, which is <collection>.retired.<n>, with that of the table's segment, which is marked
  /// retired before. The first seven retired segments and the last are kept.
  void replace(const Unnamed& created) const;
  /// Marks the segment retired and removes it, if there is one, and the FIFOs of readers that are gone.
  /// Throws Cairn::ResourceExhaustedException when a reader could not be woken for want of a descriptor; the
  /// caller may try again.
  void remove();
  /// Throws unless the file under the table's name is private, whole and of this layout.
  void validate(const Layout& layout) const;

  /// The path of the lock file or of the file of `segment` if it was removed, moved or replaced by other
  /// means than the table service; empty when both are in place. A retired segment has no path.
  std::string displacedFile(const Segment& segment) const;

  std::string fifoName(unsigned reader) const;
  WakeFifo readerFifo(unsigned reader) const;
  /// Wakes the readers of every segment of this table. A reader whose FIFO cannot be opened for want of a
  /// descriptor is woken by the next write to `segment`.
  void wakeEveryone(Segment& segment) const;
  /// The writer's pid as the segment names it; 0 when it names none.
  int writerProcess() const;

 private:
  void link(const Unnamed& created, const std::string& name) const;
  void stateIs(int segment, Word state) const;
  Word wakeEveryone() const;

  RootPath path_;
  Cairn::Descriptor folder_;
  LockFile lock_;
};

}  // namespace Vesta

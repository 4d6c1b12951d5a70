#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "vesta/files/RootPath.h"
#include "vesta/files/TableFiles.h"
#include "vesta/segment/RowReads.h"

namespace Vesta {

/// A table as an onlooker sees it: mapped read-only, without a reader's line, a lock or a FIFO, so nothing in
/// the folder is created or changed and neither writer nor readers know of it. They may be running, stopped
/// or dead.
///
/// Thread safety: one thread.
class SegmentView {
 public:
  /// Opens the file under the table's name if there is one. Throws Cairn::SystemException and
  /// Cairn::Exception for a file that cannot be opened.
  SegmentView(RootPath path, const Shape& shape);

  /// Opens the file under the table's name again unless it is the one in use. Returns whether the rows are
  /// those of another file now. Throws as the constructor does and leaves no segment then.
  bool refresh();

  /// Null while there is no segment whose rows can be read. Of a segment with a fault, intact rows can be
  /// read if its layout is provably this one.
  RowReads* reads() noexcept { return reads_ ? &*reads_ : nullptr; }
  bool hasRows() const noexcept { return reads_.has_value(); }
  /// What is wrong with header or size of the file.
  const SegmentFault& fault() const noexcept { return fault_; }
  bool missing() const noexcept { return missing_; }
  const RootPath& path() const noexcept { return path_; }
  const Layout& layout() const noexcept { return layout_; }

  /// The process that the segment names as its writer, and whether one holds the writer's lock.
  struct Writer {
    pid_t process = 0;  ///< 0: it has detached, or the segment names none
    bool living = false;
  };
  Writer writer() const;

 private:
  void open();

  RootPath path_;
  Layout layout_;
  std::optional<RowReads> reads_;
  SegmentFault fault_;
  bool missing_ = true;
};

}  // namespace Vesta

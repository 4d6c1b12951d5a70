#include "vesta/SegmentView.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "cairn/Exception.h"
#include "vesta/files/PrivateFile.h"

namespace Vesta {

SegmentView::SegmentView(RootPath path, const Shape& shape) : path_(std::move(path)), layout_(shape) {
  open();
}

bool SegmentView::refresh() {
  struct stat named {};
  const bool found = lstat(path_.text().c_str(), &named) == 0;
  const bool whole = found && static_cast<std::size_t>(named.st_size) == layout_.bytes();
  if (!found && missing_) return false;
  if (reads_ && whole && reads_->segment().maps(named) && !reads_->segment().lostMemory()) return false;
  open();
  return true;
}

void SegmentView::open() {
  reads_.reset();
  fault_ = {};
  missing_ = false;
  Cairn::Descriptor file;
  try {
    file = openToRead(path_.text());
  } catch (const Cairn::SystemException& failure) {
    missing_ = failure.error() == ENOENT;
    if (!missing_) throw;
    return;
  }
  TableFiles::Found found = TableFiles::inspect(file.get(), layout_, Access::passiveReader, path_.text());
  fault_ = std::move(found.fault);
  if (found.segment && (!fault_ || fault_.rowsUsable())) reads_.emplace(std::move(found.segment));
}

SegmentView::Writer SegmentView::writer() const {
  Writer writer;
  try {
    const Cairn::Descriptor file = openToRead(path_.text());
    Word word = 0;
    const auto at = static_cast<off_t>(kWriterProcessAt * sizeof word);
    const bool read = pread(file.get(), &word, sizeof word, at) == sizeof word;
    if (read && isSealed(word, kWriterProcessAt))
      writer.process = static_cast<pid_t>(static_cast<std::uint32_t>(word));
    writer.living = LockFile(path_.text() + ".lock").heldElsewhere(LockFile::kWriter);
  } catch (const Cairn::SystemException& failure) {
    if (failure.error() != ENOENT) throw;
  }
  return writer;
}

}  // namespace Vesta

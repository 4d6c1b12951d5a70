#pragma once

#include <sys/types.h>

#include <string>

#include "orrery/MountDescription.h"
#include "quill/Entity.h"
#include "quill/EventLoop.h"
#include "vesta/AttachOptions.h"

namespace QuillVesta {

/// An entity whose collection lies in shared memory, as the mount adapter sees it.
class TableEntity : public Quill::Entity {
 public:
  using Quill::Entity::Entity;
  ~TableEntity() override;
  const Quill::TypeNode* fwkType() const override;
  static const Quill::TypeNode _quillType;

  /// Attaches the collection to its segment, creating a missing one. Changes that another process makes are
  /// delivered from `loop`. Throws what attaching throws; the entity is then detached as before.
  virtual void attach(const MountDescription& description, const Vesta::AttachOptions& options,
                      Quill::EventLoop& loop) = 0;
  /// Whether the collection is attached; false before attach(), after detach() and once found corrupt.
  virtual bool attached() const = 0;
  /// The process that writes the table; 0 when none does. Costs a few system calls.
  virtual pid_t writerProcess() const = 0;
  /// The path of a file of the table that is no longer the one in use, because somebody removed, moved or
  /// replaced it; empty when all are in place. Costs a few system calls.
  virtual std::string displacedFile() const = 0;
  /// Repairs what no use of the table notices, and replaces a segment that this process writes and a reader
  /// has found damaged; to be called at least once a second. The entity manager does for what it mounts.
  virtual void monitor() = 0;
  /// Removes the table's files when this process writes it.
  virtual void cleanup() = 0;
  /// Lets go of the segment; the collection reads as empty from then on and refuses writes.
  virtual void detach() = 0;
};

}  // namespace QuillVesta

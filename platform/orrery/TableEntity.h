// Shared-memory tables as entities: how a mount describes one, what the entity manager does with it, and how
// the event loop delivers its changes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "quill/Entity.h"
#include "quill/EventLoop.h"
#include "quill/String.h"
#include "vesta/AttachOptions.h"
#include "vesta/EventSource.h"

namespace QuillVesta {

/// Which side of a shared-memory table this process is on.
enum class QuillVestaType : int {
  writer = 0,  ///< the table that this process writes; existing rows are kept
  reader = 1,  ///< a table that another process writes
};

/// What is mounted: the side, and the one keyed collection with its capacity in entries.
class MountDescription {
 public:
  explicit MountDescription(QuillVestaType type) : type_(type) {}

  void collectionIs(Quill::String name, unsigned capacity) {
    collection_ = std::move(name);
    capacity_ = capacity;
  }

  QuillVestaType type() const noexcept { return type_; }
  const Quill::String& collection() const noexcept { return collection_; }
  unsigned capacity() const noexcept { return capacity_; }

  friend bool operator==(const MountDescription&, const MountDescription&) = default;

 private:
  QuillVestaType type_;
  Quill::String collection_;
  unsigned capacity_ = 0;
};

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
  /// has found damaged. To be called at least once a second; the entity manager does this for its mounts.
  virtual void monitor() = 0;
  /// Removes the table's files when this process writes it.
  virtual void cleanup() = 0;
  /// Detaches from the segment; the collection then reads as empty and refuses writes.
  virtual void detach() = 0;
};

/// Connects a table's event source to the event loop while it lives: changes are delivered in bounded
/// portions, and the loop sleeps only when none is pending. May be destroyed from within a handler.
class TablePump {
 public:
  /// Neither `source` nor `loop` is owned; both outlive the pump.
  TablePump(Vesta::EventSource& source, Quill::EventLoop& loop);
  ~TablePump();
  TablePump(const TablePump&) = delete;
  TablePump& operator=(const TablePump&) = delete;

 private:
  Quill::EventLoop& loop_;
  int descriptor_;
  std::uint64_t sleepHook_;
  std::uint64_t wakeHook_;
};

}  // namespace QuillVesta

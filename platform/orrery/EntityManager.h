// The state database's entity manager: entities by path, and the mounts that bring shared-memory tables in.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cairn/DebugHandler.h"
#include "orrery/Mounter.h"
#include "orrery/TableEntity.h"
#include "quill/Counted.h"
#include "quill/EventLoop.h"

namespace Orrery {

/// Knows the entities mounted in this process. Paths are relative and joined by "/"; each names one entity.
/// Monitors the mounted tables from the event loop, twice a second.
/// Mounting changes the mounts, not the manager, and so is const: its users hold pointers to a const manager.
/// Thread safety: none; used on the event loop's thread.
class EntityManager : public Quill::Typed<EntityManager, Quill::PtrInterface> {
 public:
  /// Tables live in `runtimeFolder`, which must exist and belong to this user with mode 0700. Changes made by
  /// other processes are delivered from `loop`, which is not owned and outlives the manager's mounts.
  /// Without a debug handler, errors are written to standard error. A mount for reading waits up
  /// to `damagePatience` for a damaged table to be replaced by its writer.
  EntityManager(std::string runtimeFolder, Quill::EventLoop& loop,
                std::shared_ptr<const Cairn::DebugHandler> debugHandler = nullptr,
                std::chrono::milliseconds damagePatience = {});
  ~EntityManager() override;
  static const Quill::TypeNode _quillType;

  /// Mounts an entity of the registered type `typeName` at `path` and returns it; an entity of the same type
  /// and description that is mounted there already is returned as it is. Throws Cairn::Exception for an
  /// unknown type or a path taken by another one, and whatever attaching the table throws.
  virtual Quill::Ptr<QuillVesta::TableEntity> mount(const Quill::String& path, const Quill::String& typeName,
                                                    const QuillVesta::MountDescription& description) const;
  /// The entity mounted at `path`, or null.
  virtual Quill::Ptr<Quill::Entity> entity(const Quill::String& path) const;
  /// Removes the table's files, if this process writes it, and notifies readers. No effect on a path that is
  /// not mounted.
  virtual void cleanup(const Quill::String& path) const;
  /// Detaches the table and forgets the entity, which then reads as empty. No effect on a path that is not
  /// mounted.
  virtual void unmount(const Quill::String& path) const;
  /// Notes for the mount group that is open, if there is one, that a mount has failed.
  void mountFailed() const noexcept;

  std::vector<Quill::String> mountedPaths() const;
  Quill::EventLoop& eventLoop() const noexcept { return loop_; }

 private:
  friend class MountGroup;
  struct Mounted {
    Quill::Ptr<QuillVesta::TableEntity> entity;
    QuillVesta::MountDescription description;
  };
  void attach(const Quill::String& path, const Mounted& mounted) const;
  void monitorMounts() const;

  std::string runtimeFolder_;
  Quill::EventLoop& loop_;
  std::shared_ptr<const Cairn::DebugHandler> debugHandler_;
  std::chrono::milliseconds damagePatience_;
  mutable std::map<Quill::String, Mounted> mounts_;
  mutable Quill::EventLoop::TimerId timer_ = 0;  // 0 before the first mount
  mutable PendingMounts* openGroup_ = nullptr;   // not owned
};

/// A mounter that is waiting for doMountsComplete. Shared by the mounter and the event loop's timer; the
/// mounter clears it when it is destroyed.
struct PendingMounts {
  Mounter* mounter = nullptr;  // not owned
  Quill::Ptr<EntityManager> mountGroup;
  MountStatus status = MountStatus::success;
};

/// The mounts that are made through one entity manager while this object lives, on behalf of one mounter. The
/// mounter's doMountsComplete is called from the manager's event loop afterwards, once, unless the mounter
/// has been destroyed or has started another group by then.
class MountGroup {
 public:
  MountGroup(Mounter& mounter, const Quill::Ptr<EntityManager>& entityManager);
  ~MountGroup() { entityManager_->openGroup_ = outer_; }
  MountGroup(const MountGroup&) = delete;
  MountGroup& operator=(const MountGroup&) = delete;

 private:
  const Quill::Ptr<EntityManager> entityManager_;
  const std::shared_ptr<PendingMounts> pending_;
  PendingMounts* const outer_;  // not owned
};

}  // namespace Orrery

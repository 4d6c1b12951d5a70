#pragma once

#include <memory>

#include "quill/Entity.h"

namespace Orrery {

class EntityManager;
struct PendingMounts;

/// The outcome of a mount or of a group of mounts.
enum class MountStatus { pending, success, failed };

/// An entity that requests mounts and is notified of their outcome.
class Mounter : public Quill::Entity {
 public:
  using Entity::Entity;
  ~Mounter() override;
  const Quill::TypeNode* fwkType() const override;

  // Virtual operations, in slot order after those of Entity. Both do nothing by default.

  /// Called from the event loop once every mount of a MountGroup of this mounter has completed or failed;
  /// `mountStatus` is success or failed.
  virtual void doMountsComplete(MountStatus mountStatus, const Quill::Ptr<EntityManager>& mountGroup);
  /// One mount has changed its status.
  virtual void handleMountStatus(MountStatus mountStatus);

  static const Quill::TypeNode _quillType;

 private:
  friend class MountGroup;
  std::shared_ptr<PendingMounts> pending_;  // null unless doMountsComplete is to be called
};

}  // namespace Orrery

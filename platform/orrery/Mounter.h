#pragma once

#include "quill/Entity.h"

namespace Orrery {

class EntityManager;

/// How a mount, or a group of them, has come out.
enum class MountStatus { pending, success, failed };

/// An entity that asks for mounts and is told how they came out.
class Mounter : public Quill::Entity {
 public:
  using Entity::Entity;
  ~Mounter() override;

  // Virtual operations, in slot order after those of Entity. Both do nothing by default.

  /// Every mount that was asked for through `mountGroup` is there or has failed.
  virtual void doMountsComplete(MountStatus mountStatus, const Quill::Ptr<EntityManager>& mountGroup);
  /// One mount has changed its status.
  virtual void handleMountStatus(MountStatus mountStatus);

  static const Quill::TypeNode _quillType;
};

}  // namespace Orrery

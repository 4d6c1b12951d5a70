// The mount adapter: mounts shared-memory tables by path, finds and unmounts them.
#pragma once

#include "orrery/EntityManager.h"

namespace QuillVesta {

/// A short-lived front to the entity manager for mounts of shared-memory tables.
class Mount {
 public:
  explicit Mount(Quill::Ptr<const Orrery::EntityManager> entityManager)
      : entityManager_(std::move(entityManager)) {}

  Quill::Ptr<TableEntity> doMount(const Quill::String& path, const Quill::String& typeName,
                                  const MountDescription& description) const {
    try {
      return entityManager_->mount(path, typeName, description);
    } catch (...) {
      entityManager_->mountFailed();
      throw;
    }
  }
  /// The entity mounted at `path`, or null.
  Quill::Ptr<Quill::Entity> getEntity(const Quill::String& path) const {
    return entityManager_->entity(path);
  }
  void cleanup(const Quill::String& path) const { entityManager_->cleanup(path); }
  void doUnmount(const Quill::String& path) const { entityManager_->unmount(path); }

 private:
  Quill::Ptr<const Orrery::EntityManager> entityManager_;
};

}  // namespace QuillVesta

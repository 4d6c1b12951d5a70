#pragma once

#include <vector>

#include "quill/PtrInterface.h"
#include "quill/String.h"
#include "quill/TypeNode.h"

namespace Quill {

/// The constructor arguments from which an entity can be re-created, as generic values.
using ConstructParams = std::vector<GenericValue>;

/// A counted object with a name and, if it is in a directory, a parent.
class Entity : public PtrInterface {
 public:
  explicit Entity(Name name) : name_(std::move(name)) {}
  ~Entity() override;
  const TypeNode* fwkType() const override;

  // Virtual operations, in slot order after those of PtrInterface.

  /// Replaces the name; for entities that are restored from a saved state.
  virtual void nameIsFromBackup(const Name& name);
  virtual const Name& name() const;
  /// Called when the entity is put into a directory, with null when it is removed. The parent is not owned.
  virtual void handleParent(const Ptr<Entity>& parent);
  /// Whether changes of attributes are logged; no entity of this platform does.
  virtual bool quillHasAttrLogInterface() const;
  virtual void quillNboAttrLogSaIs(const Ptr<PtrInterface>& log);
  /// Restores the entity from the arguments of saveConstructParams; false if they do not fit.
  virtual bool reconstruct(const ConstructParams& params);
  virtual void saveConstructParams(ConstructParams& params) const;
  /// Called when the saved state of the entity `name` is dropped.
  virtual void entBackupDel(const Name& name);

  Entity* parent() const noexcept { return parent_; }
  /// The names from the topmost parent down to this entity, joined by "/".
  String fullName() const;
  /// The attribute of the parent that contains the entity: "entity", or "" without a parent.
  String parentAttrName() const;

  /// The members that every entity has.
  static const TypeNode _quillType;

 private:
  Name name_;
  Entity* parent_ = nullptr;  // not owned
};

}  // namespace Quill

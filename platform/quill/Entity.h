#pragma once

#include <vector>

#include "quill/PtrInterface.h"
#include "quill/String.h"
#include "quill/TypeNode.h"

namespace Quill {

/// What an entity needs to be made again: its constructor arguments as generic values.
using ConstructParams = std::vector<GenericValue>;

/// A counted object with a name and, once it stands in a directory, a parent.
class Entity : public PtrInterface {
 public:
  explicit Entity(Name name) : name_(std::move(name)) {}
  ~Entity() override;
  const TypeNode* fwkType() const override;

  // Virtual operations, in slot order after those of PtrInterface.

  /// Replaces the name; for entities that are restored from a saved state.
  virtual void nameIsFromBackup(const Name& name);
  virtual const Name& name() const;
  /// Told when the entity is put into a directory; null when it is taken out. The parent is not owned.
  virtual void handleParent(const Ptr<Entity>& parent);
  /// Whether changes of attributes are logged; no entity of this platform does.
  virtual bool quillHasAttrLogInterface() const;
  virtual void quillNboAttrLogSaIs(const Ptr<PtrInterface>& log);
  /// Takes the arguments that saveConstructParams gave; false when they do not fit.
  virtual bool reconstruct(const ConstructParams& params);
  virtual void saveConstructParams(ConstructParams& params) const;
  /// Told when the saved state of the entity `name` is dropped.
  virtual void entBackupDel(const Name& name);

  Entity* parent() const noexcept { return parent_; }
  /// The names from the topmost parent down to this entity, joined by "/".
  String fullName() const;
  /// Under which attribute of the parent the entity stands: "entity", or "" without a parent.
  String parentAttrName() const;

  /// The members that every entity has.
  static const TypeNode _quillType;

 private:
  Name name_;
  Entity* parent_ = nullptr;  // not owned
};

}  // namespace Quill

#include "quill/Entity.h"

namespace Quill {

Entity::~Entity() = default;

void Entity::nameIsFromBackup(const Name& name) { name_ = name; }

const Name& Entity::name() const { return name_; }

void Entity::handleParent(const Ptr<Entity>& parent) { parent_ = parent.get(); }

bool Entity::quillHasAttrLogInterface() const { return false; }

void Entity::quillNboAttrLogSaIs(const Ptr<PtrInterface>&) {}

bool Entity::reconstruct(const ConstructParams& params) {
  if (params.size() != 1) return false;
  const auto* saved = std::any_cast<Name>(&params.front());
  if (saved == nullptr) return false;
  name_ = *saved;
  return true;
}

void Entity::saveConstructParams(ConstructParams& params) const { params.emplace_back(name_); }

void Entity::entBackupDel(const Name&) {}

String Entity::fullName() const {
  return parent_ == nullptr ? name_.stringValue() : parent_->fullName() + "/" + name_.stringValue();
}

}  // namespace Quill

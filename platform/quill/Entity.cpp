#include "quill/Entity.h"

#include "quill/Generic.h"

namespace Quill {

namespace {

// A plain entity is not a directory: it contains no entities.
GenericValue noEntity(const PtrInterface&, GenericArguments) { return Ptr<PtrInterface>(); }

GenericValue parentOf(const PtrInterface& object, GenericArguments) {
  return genericValue(Ptr<Entity>(genericObject<Entity>(object).parent()));
}

constexpr Member kMembers[] = {
    genericReader<&Entity::name>("name"),
    {.name = "parent", .get = &parentOf, .type = "Quill::Entity"},
    genericReader<&Entity::fullName>("fullName"),
    genericReader<&Entity::parentAttrName>("parentAttrName"),
    {.name = "entity", .kind = Member::Kind::collection, .get = &noEntity, .type = "Quill::Entity"},
};

}  // namespace

constinit const TypeNode Entity::_quillType{.name = "Quill::Entity", .members = kMembers};

Entity::~Entity() = default;

const TypeNode* Entity::fwkType() const { return &_quillType; }

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

String Entity::parentAttrName() const { return parent_ == nullptr ? "" : "entity"; }

}  // namespace Quill

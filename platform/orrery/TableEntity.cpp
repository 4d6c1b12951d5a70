#include "orrery/TableEntity.h"

#include "quill/TypeNode.h"

namespace QuillVesta {

constinit const Quill::TypeNode TableEntity::_quillType{
    .name = "QuillVesta::TableEntity", .members = {}, .base = &Quill::Entity::_quillType};

TableEntity::~TableEntity() = default;

const Quill::TypeNode* TableEntity::fwkType() const { return &_quillType; }

}  // namespace QuillVesta

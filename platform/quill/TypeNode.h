// Type descriptors and the generic interface: the types of the framework by name, with their members.
#pragma once

#include <any>
#include <span>
#include <string_view>
#include <vector>

#include "quill/PtrInterface.h"
#include "quill/String.h"

namespace Quill {

class Entity;

/// A value of any type; what a member takes or gives is told by the member itself.
using GenericValue = std::any;
using GenericArguments = std::span<const GenericValue>;

/// One member of a type, reached by name. A null function means that the member does not offer it.
struct Member {
  enum class Kind { attribute, collection, operation };

  std::string_view name;
  Kind kind = Kind::attribute;
  GenericValue (*get)(const PtrInterface& object, GenericArguments key) = nullptr;
  void (*set)(PtrInterface& object, GenericArguments arguments) = nullptr;
  void (*del)(PtrInterface& object, GenericArguments key) = nullptr;
  GenericValue (*call)(PtrInterface& object, GenericArguments arguments) = nullptr;
};

/// The descriptor of one class, its static member `_quillType`: constant data in the library that has the class.
struct TypeNode {
  std::string_view name;  ///< fully qualified
  std::span<const Member> members;
  Ptr<PtrInterface> (*genericIfFromCtorArgs)(GenericArguments arguments) = nullptr;
  Ptr<Entity> (*newEntityForDir)(const Name& name, const Ptr<Entity>& directory) = nullptr;

  /// The member called `memberName`, or null.
  const Member* member(std::string_view memberName) const;
};

/// Adds a descriptor to the process-wide list; it stays until typeNodeDel. Not owned.
void typeNodeIs(const TypeNode* node);
void typeNodeDel(const TypeNode* node);
/// The descriptor of that name, or null.
const TypeNode* typeNode(std::string_view name);
/// All descriptors, in order of registration.
std::vector<const TypeNode*> typeNodes();

}  // namespace Quill

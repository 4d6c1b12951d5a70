// Type descriptors and the generic interface: the types of the framework by name, with their members.
#pragma once

#include <any>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "quill/PtrInterface.h"
#include "quill/Registrant.h"
#include "quill/String.h"

namespace Quill {

class Entity;
class GenericIf;

/// The name of a C++ type as in the source.
std::string typeName(const std::type_info& type);

/// A value of any type; each member determines the types that it takes and returns. Counted pointers are
/// passed as Ptr<PtrInterface> or Ptr<const PtrInterface>, all other values as themselves.
using GenericValue = std::any;
using GenericArguments = std::span<const GenericValue>;

/// An iterator over a collection member; stays valid when elements are added or removed. Holds the object.
/// key, value and del throw GenericIfException while nonNull is false.
class GenericIterator {
 public:
  virtual ~GenericIterator();
  virtual bool nonNull() const = 0;
  virtual GenericValue key() const = 0;
  virtual GenericValue value() const = 0;
  virtual void next() = 0;
  /// Removes the current element; next() continues with the one after it.
  virtual void del() = 0;
};

/// One member of a type, accessed by name. A null function means that the member does not support the
/// operation.
struct Member {
  enum class Kind { attribute, collection, operation };

  std::string_view name;
  Kind kind = Kind::attribute;
  GenericValue (*get)(const PtrInterface& object, GenericArguments key) = nullptr;
  void (*set)(PtrInterface& object, GenericArguments arguments) = nullptr;
  void (*del)(PtrInterface& object, GenericArguments key) = nullptr;
  GenericValue (*call)(PtrInterface& object, GenericArguments arguments) = nullptr;
  std::size_t (*count)(const PtrInterface& object) = nullptr;
  std::shared_ptr<GenericIterator> (*iterator)(PtrInterface& object) = nullptr;
  std::string_view type = {};  ///< of an attribute that is an object: that object's type name
};

/// Called with the name of each attribute that changes.
using GenericObserver = std::function<void(std::string_view attribute)>;

/// The descriptor of one class, its static member `_quillType`: constant data in the library that defines the
/// class.
struct TypeNode {
  std::string_view name;            ///< fully qualified
  std::span<const Member> members;  ///< the class's own; inherited ones come first
  GenericIf (*genericIfFromCtorArgs)(GenericArguments arguments) = nullptr;
  Ptr<Entity> (*newEntityForDir)(const Name& name, const Ptr<Entity>& directory) = nullptr;
  const TypeNode* base = nullptr;  ///< the type whose members are inherited; not owned
  /// A registered, active reactor on `notifier` that forwards every notification to `observer`.
  Ptr<NotifieeConst> (*genericNotifiee)(const Ptr<const PtrInterface>& notifier,
                                        GenericObserver observer) = nullptr;

  /// The member called `memberName`, inherited ones included, or null.
  const Member* member(std::string_view memberName) const;
  /// All members, inherited ones first.
  std::vector<const Member*> allMembers() const;
};

/// Adds a descriptor to the process-wide list, under the current registrant. Not owned.
void typeNodeIs(const TypeNode* node);
/// Removes every descriptor of that registrant.
void typeNodeDelAll(const Registrant& registrant);
/// The descriptor of that name, or null.
const TypeNode* typeNode(std::string_view name);
/// All descriptors, in order of registration.
std::vector<const TypeNode*> typeNodes();
/// The registrant of a descriptor; null for the process's own and for one that is not in the list.
const Registrant* typeNodeRegistrant(const TypeNode* node);

}  // namespace Quill

#include "quill/Generic.h"

namespace Quill {

namespace {

struct Support {
  bool given;
  const char* what;  // for the message if it is not supported
};

Support support(const Member& member, GenericOp op) {
  switch (op) {
    case GenericOp::get:
      return {member.get != nullptr, "read"};
    case GenericOp::set:
      return {member.set != nullptr, "set"};
    case GenericOp::del:
      return {member.del != nullptr, "removed"};
    case GenericOp::call:
      return {member.call != nullptr, "called"};
    case GenericOp::count:
      return {member.count != nullptr, "counted"};
    case GenericOp::iterator:
      break;
  }
  return {member.iterator != nullptr, "walked"};
}

/// The member `name` of the object's type, which must support `op`.
const Member& memberWith(const PtrInterface& object, GenericOp op, std::string_view name) {
  const TypeNode& type = *object.fwkType();
  const std::string typeText(type.name);
  const Member* const member = type.member(name);
  if (member == nullptr) throw GenericIfException(typeText + " has no member \"" + std::string(name) + "\"");
  if (const auto [given, what] = support(*member, op); !given) {
    throw GenericIfException(typeText + ": member \"" + std::string(name) + "\" cannot be " + what);
  }
  return *member;
}

GenericValue apply(const Member& member, GenericOp op, PtrInterface& object, GenericArguments arguments) {
  switch (op) {
    case GenericOp::get:
      return member.get(object, arguments);
    case GenericOp::set:
      return member.set(object, arguments), GenericValue();
    case GenericOp::del:
      return member.del(object, arguments), GenericValue();
    case GenericOp::call:
      return member.call(object, arguments);
    case GenericOp::count:
      return member.count(object);
    case GenericOp::iterator:
      break;
  }
  return member.iterator(object);
}

}  // namespace

GenericIfException::~GenericIfException() = default;

GenericValue genericIfAttributeOp(const Ptr<PtrInterface>& object, GenericOp op, std::string_view member,
                                  GenericArguments arguments) {
  const Ptr<PtrInterface> held = object;  // the call may drop the caller's pointer
  const Member& found = memberWith(*held, op, member);
  try {
    return apply(found, op, *held, arguments);
  } catch (const GenericIfException& exception) {
    throw GenericIfException(std::string(member) + ": " + exception.message());
  }
}

namespace detail {

void argumentMismatch(std::size_t index, const std::string& expected, const std::type_info& came) {
  throw GenericIfException("argument " + std::to_string(index + 1) + ": expected " + expected + ", got " +
                           (came == typeid(void) ? "nothing" : typeName(came)));
}

void argumentCountMismatch(std::size_t expected, std::size_t came) {
  throw GenericIfException("expected " + std::to_string(expected) + " arguments, got " +
                           std::to_string(came));
}

void throwNoElement() { throw GenericIfException("the iterator has no current element"); }

const PtrInterface* objectIn(const GenericValue& value, bool mayBeConst, bool& held) {
  held = true;
  if (const auto* plain = std::any_cast<Ptr<PtrInterface>>(&value)) return plain->get();
  const auto* constant = std::any_cast<Ptr<const PtrInterface>>(&value);
  held = mayBeConst && constant != nullptr;
  return held ? constant->get() : nullptr;
}

}  // namespace detail

}  // namespace Quill

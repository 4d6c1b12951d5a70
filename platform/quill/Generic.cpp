#include "quill/Generic.h"

namespace Quill {

namespace {

/// The member `name` of the object's type, which must offer `function`.
template <class Function>
const Member& memberWith(const Ptr<PtrInterface>& object, std::string_view name, Function Member::*function,
                         const char* what) {
  const PtrInterface& target = *object;
  const TypeNode* const type = target.fwkType();
  const std::string typeText = type == nullptr ? typeName(typeid(target)) : std::string(type->name);
  const Member* const member = type == nullptr ? nullptr : type->member(name);
  if (member == nullptr) throw GenericIfException(typeText + " has no member \"" + std::string(name) + "\"");
  if (member->*function == nullptr) {
    throw GenericIfException(typeText + ": member \"" + std::string(name) + "\" cannot be " + what);
  }
  return *member;
}

/// Runs `call`; a complaint about its arguments then names the member too.
template <class Call>
auto named(std::string_view member, const Call& call) {
  try {
    return call();
  } catch (const GenericIfException& exception) {
    throw GenericIfException(std::string(member) + ": " + exception.message());
  }
}

}  // namespace

GenericIfException::~GenericIfException() = default;

GenericValue GenericIf::get(std::string_view member, GenericArguments key) const {
  const Member& found = memberWith(object_, member, &Member::get, "read");
  return named(member, [&] { return found.get(*object_, key); });
}

void GenericIf::set(std::string_view member, GenericArguments arguments) const {
  const Member& found = memberWith(object_, member, &Member::set, "set");
  named(member, [&] { found.set(*object_, arguments); });
}

void GenericIf::del(std::string_view member, GenericArguments key) const {
  const Member& found = memberWith(object_, member, &Member::del, "removed");
  named(member, [&] { found.del(*object_, key); });
}

GenericValue GenericIf::call(std::string_view member, GenericArguments arguments) const {
  const Member& found = memberWith(object_, member, &Member::call, "called");
  return named(member, [&] { return found.call(*object_, arguments); });
}

std::size_t GenericIf::count(std::string_view member) const {
  return memberWith(object_, member, &Member::count, "counted").count(*object_);
}

std::unique_ptr<GenericIterator> GenericIf::iterator(std::string_view member) const {
  return memberWith(object_, member, &Member::iterator, "walked").iterator(*object_);
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

const PtrInterface* objectIn(const GenericValue& value, bool mayBeConst, bool& held) {
  held = true;
  if (const auto* plain = std::any_cast<Ptr<PtrInterface>>(&value)) return plain->get();
  const auto* constant = std::any_cast<Ptr<const PtrInterface>>(&value);
  held = mayBeConst && constant != nullptr;
  return held ? constant->get() : nullptr;
}

}  // namespace detail

}  // namespace Quill

// Both sides of the generic interface: access to objects by member name, and the parts from which a class
// builds its member table.
#pragma once

#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "cairn/Exception.h"
#include "quill/TypeNode.h"

namespace Quill {

/// A missing member, an operation that the member does not support, or arguments that do not fit; the text
/// says what was expected and what was given.
class GenericIfException : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~GenericIfException() override;
};

/// The operations on members.
enum class GenericOp { get, set, del, call, count, iterator };

/// Performs `op` on the member `member` of `object`, found in the member table of its type. `arguments` are
/// those of a call, the values to set, or the key. Returns the value read or returned, a count as
/// std::size_t, an iterator as std::shared_ptr<GenericIterator>, else an empty value. Throws
/// GenericIfException if the member is missing, does not support `op` or refuses the arguments; exceptions of
/// the member itself propagate.
GenericValue genericIfAttributeOp(const Ptr<PtrInterface>& object, GenericOp op, std::string_view member,
                                  GenericArguments arguments = {});

/// An object accessed through its type descriptor; each call is a genericIfAttributeOp.
class GenericIf {
 public:
  explicit GenericIf(Ptr<PtrInterface> object) : object_(std::move(object)) {}

  const Ptr<PtrInterface>& object() const noexcept { return object_; }

  GenericValue get(std::string_view member, GenericArguments key = {}) const {
    return genericIfAttributeOp(object_, GenericOp::get, member, key);
  }
  void set(std::string_view member, GenericArguments arguments) const {
    genericIfAttributeOp(object_, GenericOp::set, member, arguments);
  }
  void del(std::string_view member, GenericArguments key = {}) const {
    genericIfAttributeOp(object_, GenericOp::del, member, key);
  }
  GenericValue call(std::string_view member, GenericArguments arguments = {}) const {
    return genericIfAttributeOp(object_, GenericOp::call, member, arguments);
  }
  std::size_t count(std::string_view member) const {
    return std::any_cast<std::size_t>(genericIfAttributeOp(object_, GenericOp::count, member));
  }
  std::shared_ptr<GenericIterator> iterator(std::string_view member) const {
    return std::any_cast<std::shared_ptr<GenericIterator>>(
        genericIfAttributeOp(object_, GenericOp::iterator, member));
  }

 private:
  Ptr<PtrInterface> object_;
};

namespace detail {

[[noreturn]] void argumentMismatch(std::size_t index, const std::string& expected,
                                   const std::type_info& came);
[[noreturn]] void argumentCountMismatch(std::size_t expected, std::size_t came);
[[noreturn]] void throwNoElement();

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {
  using Object = T;
};

/// The object in `value` as a const PtrInterface; `held` is false if the value contains no pointer.
const PtrInterface* objectIn(const GenericValue& value, bool mayBeConst, bool& held);

}  // namespace detail

/// A C++ value as a generic value.
template <class T>
GenericValue genericValue(const T& value) {
  if constexpr (detail::IsPtr<T>::value) {
    using Object = typename detail::IsPtr<T>::Object;
    return Ptr<std::conditional_t<std::is_const_v<Object>, const PtrInterface, PtrInterface>>(value);
  } else {
    return GenericValue(value);
  }
}

/// The argument at `index` as a `T`.
template <class T>
T genericArgument(GenericArguments arguments, std::size_t index) {
  const GenericValue& value = arguments[index];
  if constexpr (detail::IsPtr<T>::value) {
    using Object = typename detail::IsPtr<T>::Object;
    if (const T* exact = std::any_cast<T>(&value)) return *exact;
    bool held = false;
    const PtrInterface* const object = detail::objectIn(value, std::is_const_v<Object>, held);
    auto* const cast = dynamic_cast<Object*>(const_cast<PtrInterface*>(object));
    if (!held) detail::argumentMismatch(index, typeName(typeid(Object)), value.type());
    if (object != nullptr && cast == nullptr)
      detail::argumentMismatch(index, typeName(typeid(Object)), typeid(*object));
    return T(cast);
  } else {
    const T* const exact = std::any_cast<T>(&value);
    if (exact == nullptr) detail::argumentMismatch(index, typeName(typeid(T)), value.type());
    return *exact;
  }
}

/// The object as the class that has the member.
template <class Object>
const Object& genericObject(const PtrInterface& object) {
  return dynamic_cast<const Object&>(object);
}
template <class Object>
Object& genericObject(PtrInterface& object) {
  return dynamic_cast<Object&>(object);
}

/// Calls `function` with the arguments unpacked to `Arguments`.
template <class... Arguments, class Function>
decltype(auto) genericCall(const Function& function, GenericArguments arguments) {
  if (arguments.size() != sizeof...(Arguments)) {
    detail::argumentCountMismatch(sizeof...(Arguments), arguments.size());
  }
  return [&]<std::size_t... I>(std::index_sequence<I...>)->decltype(auto) {
    return function(genericArgument<std::remove_cvref_t<Arguments>>(arguments, I)...);
  }
  (std::index_sequence_for<Arguments...>());
}

namespace detail {

template <class T>
struct MethodTraits;
template <class Result, class Class, class... Arguments>
struct MethodTraits<Result (Class::*)(Arguments...)> {
  using Object = Class;
  static GenericValue apply(Result (Class::*method)(Arguments...), PtrInterface& object,
                            GenericArguments arguments) {
    const auto call = [&](const std::remove_cvref_t<Arguments>&... unpacked) -> Result {
      return (genericObject<Class>(object).*method)(unpacked...);
    };
    if constexpr (std::is_void_v<Result>) {
      genericCall<Arguments...>(call, arguments);
      return {};
    } else {
      return genericValue<std::remove_cvref_t<Result>>(genericCall<Arguments...>(call, arguments));
    }
  }
};
template <class Result, class Class, class... Arguments>
struct MethodTraits<Result (Class::*)(Arguments...) const> {
  using Object = Class;
};
template <class Result, class Class>
struct MethodTraits<Result (Class::*)() const noexcept> {
  using Object = Class;
};

}  // namespace detail

// The functions of a member table for a plain getter, setter or operation.

/// Reads by a getter.
template <auto Getter>
GenericValue genericGet(const PtrInterface& object, GenericArguments) {
  using Object = typename detail::MethodTraits<decltype(Getter)>::Object;
  return genericValue<std::remove_cvref_t<decltype((std::declval<const Object&>().*Getter)())>>(
      (genericObject<Object>(object).*Getter)());
}

/// Unpacks the arguments, calls a method and returns its result.
template <auto Method>
GenericValue genericInvoke(PtrInterface& object, GenericArguments arguments) {
  return detail::MethodTraits<decltype(Method)>::apply(Method, object, arguments);
}

/// The same without a result: sets or removes.
template <auto Method>
void genericChange(PtrInterface& object, GenericArguments arguments) {
  genericInvoke<Method>(object, arguments);
}

/// A generic iterator over a collection of `object`, made from an iterator with nonNull, key, value, next and
/// del.
template <class Iterator>
std::shared_ptr<GenericIterator> genericIterator(PtrInterface& object, Iterator iterator) {
  class Walk final : public GenericIterator {
   public:
    Walk(PtrInterface& object, Iterator at) : object_(&object), at_(at) {}
    bool nonNull() const override { return at_.nonNull(); }
    GenericValue key() const override { return here().key(); }
    GenericValue value() const override { return here().value(); }
    void next() override { at_.next(); }
    void del() override { here().del(); }

   private:
    Iterator here() const {
      if (!at_.nonNull()) detail::throwNoElement();
      return at_;
    }

    Ptr<PtrInterface> object_;  // the collection lives in it
    Iterator at_;
  };
  return std::make_shared<Walk>(object, iterator);
}

/// An attribute that can be read.
template <auto Getter>
constexpr Member genericReader(std::string_view name, std::string_view type = {}) {
  return {.name = name, .get = &genericGet<Getter>, .type = type};
}

/// An attribute that can be read and set; the setter may take several arguments.
template <auto Getter, auto Setter>
constexpr Member genericAttribute(std::string_view name, std::string_view type = {}) {
  return {.name = name, .get = &genericGet<Getter>, .set = &genericChange<Setter>, .type = type};
}

template <auto Method>
constexpr Member genericOperation(std::string_view name) {
  return {.name = name, .kind = Member::Kind::operation, .call = &genericInvoke<Method>};
}

}  // namespace Quill

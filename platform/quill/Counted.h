// The members that every class of the framework has of its own: tracked memory and a type descriptor.
#pragma once

#include <concepts>

#include "quill/PtrInterface.h"

namespace Quill {

/// The base of `Derived`, a class over `Base` whose objects are created by `allocate`: its record of live
/// objects and the matching operator delete.
template <class Derived, class Base>
class Counted : public Base {
 public:
  using Base::Base;
  static void operator delete(void* memory) noexcept { deallocate(memory, quillAllocTrackTypeInfo_); }
  inline static constinit AllocTrackTypeInfo quillAllocTrackTypeInfo_;
};

/// The same with a type descriptor of its own, `static const Quill::TypeNode _quillType`.
template <class Derived, class Base>
class Typed : public Counted<Derived, Base> {
  template <const TypeNode* node>
  struct Descriptor;

 public:
  using Counted<Derived, Base>::Counted;
  const TypeNode* fwkType() const override {
    // As template arguments: g++ takes no comparison of addresses for constant under -fsanitize=undefined.
    static_assert(!std::same_as<Descriptor<&Derived::_quillType>, Descriptor<&Base::_quillType>>,
                  "the class has a descriptor of its own");
    return &Derived::_quillType;
  }
};

}  // namespace Quill

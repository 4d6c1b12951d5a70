// The counted pointer of the object framework. The count is in the object (PtrInterface); each Ptr holds one
// reference. Counts change atomically only while PtrInterface::threadSafePtrs() is on.
#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "cairn/Assert.h"

namespace Quill {

enum class Adopt { yes };

template <class T>
class Ptr {
 public:
  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  explicit Ptr(T* object) noexcept : object_(object) { take(); }
  /// Takes ownership of a reference that is already counted, such as the first one of a new object.
  Ptr(T* object, Adopt) noexcept : object_(object) {}
  Ptr(const Ptr& other) noexcept : object_(other.object_) { take(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
  noexcept : object_(other.get()) { take(); }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}
  ~Ptr() { drop(); }

  Ptr& operator=(const Ptr& other) noexcept {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }

  T* get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  /// Cairn::AssertionException if null.
  T& operator*() const {
    Cairn::require(object_ != nullptr, "null pointer", "Quill::Ptr");
    return *object_;
  }
  T* operator->() const { return &**this; }

  /// Passes the reference to the caller; this pointer becomes null.
  T* release() noexcept { return std::exchange(object_, nullptr); }
  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  template <class U>
  friend bool operator==(const Ptr& a, const Ptr<U>& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

 private:
  void take() noexcept {
    if (object_ != nullptr) object_->referenceIs();
  }
  void drop() noexcept {
    if (object_ != nullptr) object_->referenceDel();
  }

  T* object_ = nullptr;
};

/// The object as a `T`, or null if it is not one.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& pointer) {
  return Ptr<T>(dynamic_cast<T*>(pointer.get()));
}

}  // namespace Quill

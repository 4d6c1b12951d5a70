// The base of every counted object: reference count, notification flag, deletion mark, and the list of its
// reactors.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "quill/AllocTrack.h"
#include "quill/Ptr.h"
#include "quill/SafeList.h"

namespace Quill {

struct TypeNode;

class PtrInterface {
 public:
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  // Virtual operations, in slot order.

  /// The reactors registered with this object, in order of registration.
  virtual NotifieeList& notifieeList() const;
  /// An object whose flag is false, as it is at first, calls no reactor; a reactor whose flag is false is not
  /// called.
  virtual void hasNotificationActiveIs(bool active);
  /// Called with true when the last reference has been dropped: notifies the reactors that hold no reference,
  /// then destroys the object.
  virtual void zeroReferencesIs(bool zero);
  /// The class's type descriptor; that of its base for a class that has none of its own.
  virtual const TypeNode* fwkType() const;
  virtual ~PtrInterface();

  bool hasNotificationActive() const noexcept { return notificationActive_; }
  bool quillMarkedForDeletion() const noexcept { return markedForDeletion_; }
  void quillMarkedForDeletionIs(bool marked) noexcept { markedForDeletion_ = marked; }

  // Counting, used by Ptr. A new object has one reference, which its creator adopts.
  void referenceIs() const noexcept {
    if (threadSafePtrs_) {
      references_.fetch_add(1, std::memory_order_relaxed);
    } else {
      references_.store(references_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }
  void referenceDel() const noexcept {
    if (droppedReference() == 0) const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
  }
  std::uint32_t references() const noexcept { return references_.load(std::memory_order_relaxed); }

  /// The process-wide switch for atomic counting. Must be set before a second thread holds counted pointers.
  static void threadSafePtrsIs(bool on) noexcept { threadSafePtrs_ = on; }
  static bool threadSafePtrs() noexcept { return threadSafePtrs_; }

  static const TypeNode _quillType;

  static void* quillMemAlloc(std::size_t size) { return ::operator new(size); }
  static void quillMemFree(void* memory) noexcept { ::operator delete(memory); }

  /// Calls `call` with each registered, active reactor as a `Notifiee`. During a call, reactors may add and
  /// remove themselves and others, and the last reference to this object may be dropped.
  template <class Notifiee, class Call>
  void notify(const Call& call) const;

 protected:
  PtrInterface() = default;

 private:
  std::uint32_t droppedReference() const noexcept {
    if (threadSafePtrs_) return references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    const std::uint32_t left = references_.load(std::memory_order_relaxed) - 1;
    references_.store(left, std::memory_order_relaxed);
    return left;
  }

  inline static bool threadSafePtrs_ = false;
  // The count once the last reference has been dropped. While the object is destroyed, its reactors and
  // notify() may still take and drop references; from this count they cannot reach 0 and destroy it a second
  // time.
  static constexpr std::uint32_t kEndingReferences = 1u << 30;

  mutable std::atomic<std::uint32_t> references_{1};
  bool notificationActive_ = false;
  bool markedForDeletion_ = false;
  mutable NotifieeList notifiees_;
};

/// Creates a `T` with tracked memory, takes its first reference and switches its notifications on. If the
/// constructor throws, memory and record are released before the exception propagates.
template <class T, class... Arguments>
Ptr<T> allocate(Arguments&&... arguments) {
  AllocTrackTypeInfo::trackAllocation(T::quillAllocTrackTypeInfo_, typeid(T), sizeof(T));
  void* memory = nullptr;
  T* object = nullptr;
  try {
    memory = PtrInterface::quillMemAlloc(sizeof(T));
    object = ::new (memory) T(std::forward<Arguments>(arguments)...);
  } catch (...) {
    AllocTrackTypeInfo::trackDeallocation(T::quillAllocTrackTypeInfo_);
    PtrInterface::quillMemFree(memory);
    throw;
  }
  Ptr<T> pointer(object, Adopt::yes);
  pointer->hasNotificationActiveIs(true);
  return pointer;
}

/// The counterpart of `allocate`, called by a class's own operator delete.
inline void deallocate(void* memory, AllocTrackTypeInfo& record) noexcept {
  AllocTrackTypeInfo::trackDeallocation(record);
  PtrInterface::quillMemFree(memory);
}

}  // namespace Quill

#include "quill/Notifiee.h"
